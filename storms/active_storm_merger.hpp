#pragma once
// One list of active storms from two agencies' lists, without duplicates.
//
// The preferred list (NHC) always survives whole and in order; a fallback record (JTWC) that is
// the same storm is folded into it as an alternate identifier, and the rest follow in order.
// "The same storm" is either the same canonical identifier ("AL012026" = "al0126"), or an invest
// (numbers 90-99) of the fallback list that has since become a numbered preferred storm of the
// same basin and year, judged by distance, time and motion (`transitionScore`). Pure; the
// scoring is quadratic in the list sizes, which hold a handful of records.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "storms/jtwc_feed.hpp"
#include "storms/storm.hpp"

namespace ombrine {

class ActiveStormMerger {
 public:
  struct Identity {
    std::string id;
    StormCoordinate coordinate;
    std::optional<Date> lastUpdate;
    std::optional<double> movementDir;
    std::optional<double> movementSpeed;

    static Identity of(const Storm& storm);
  };

  struct IDComponents {
    std::string basin;  // two letters
    int number = 0;
    std::string numberCode;  // two digits
    std::string yearCode;    // two digits

    bool operator==(const IDComponents&) const = default;
  };

  struct InvestTransitionCandidate {
    std::size_t preferredIndex = 0;
    std::size_t fallbackIndex = 0;
    double score = 0.0;  // lower is better
  };

  // Upper-cased, letters and numeric characters only.
  static std::string normalizedIdentifier(std::string_view id);
  // From 6 or 8 normalised characters: two letters, then digits ("AL0126", "AL012026").
  static std::optional<IDComponents> components(std::string_view id);
  // basin + number + year when the components exist, else the normalised text.
  static std::string canonicalIdentifier(std::string_view id);

  // How well fallback invest `fallback` continues as preferred storm `preferred`; nothing when
  // it cannot be the same system.
  static std::optional<double> transitionScore(const Identity& preferred, const Identity& fallback);

  static std::vector<Storm> merge(std::vector<Storm> preferred, const std::vector<Storm>& fallback);

  // The descriptors whose canonical slug names no storm of `nhc`.
  static std::vector<JTWCStormDescriptor> descriptorsNotIn(const std::vector<Storm>& nhc,
                                                           std::vector<JTWCStormDescriptor> descriptors);
};

// Great-circle initial bearing in degrees [0, 360) from `from` to `to`.
double initialBearing(StormCoordinate from, StormCoordinate to);

}  // namespace ombrine
