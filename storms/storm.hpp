#pragma once
// The one record of an active tropical system, whichever agency reported it, and what is
// derived from it: basin, intensity tag, labels and title.
//
// Every field is agency-neutral: an intensity is knots and a pressure millibars whatever the
// source. Plain value; copy freely. Functions are pure and thread-safe.

#include <boost/url/url.hpp>

#include <compare>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

#include <unicode/locid.h>

#include "core/values/date.hpp"

namespace ombrine {

struct StormCoordinate {
  double latitude = 0.0;
  double longitude = 0.0;

  bool operator==(const StormCoordinate&) const = default;
};

enum class StormBasin {
  atlantic,
  eastPacific,
  centralPacific,
  westPacific,
  southernHemisphere,
  indianOcean,
  otherBasin
};

// The areas for which a source has spoken completely, in this order.
enum class ActiveStormCoverage {
  nhcAtlantic,
  nhcEastCentralPacific,
  jtwcEastCentralPacific,
  jtwcWestPacific,
  jtwcIndianOcean,
  jtwcSouthernHemisphere,
};
using ActiveStormCoverageSet = std::set<ActiveStormCoverage>;

const ActiveStormCoverageSet& nhcCoverage();
const ActiveStormCoverageSet& jtwcCoverage();
const ActiveStormCoverageSet& wholeCoverage();
ActiveStormCoverageSet intersection(const ActiveStormCoverageSet& a, const ActiveStormCoverageSet& b);
const char* coverageName(ActiveStormCoverage coverage);

// The normalised intensity used for labels and marker colours.
struct StormIntensityTag {
  enum class Kind {
    hurricane,
    tropicalStorm,
    tropicalDepression,
    subtropicalStorm,
    subtropicalDepression,
    extratropical,
    potentialTropicalCyclone,
    other,
  };
  Kind kind = Kind::other;
  std::optional<long long> category;  // with `hurricane`
  std::string text;                   // with `other`

  static StormIntensityTag hurricane(std::optional<long long> category = std::nullopt) {
    return {Kind::hurricane, category, {}};
  }
  static StormIntensityTag plain(Kind kind) { return {kind, std::nullopt, {}}; }
  static StormIntensityTag other(std::string text) { return {Kind::other, std::nullopt, std::move(text)}; }

  bool operator==(const StormIntensityTag&) const = default;
};

struct Storm {
  // The agency class; `other` keeps the code as given.
  struct Classification {
    enum class Kind {
      hurricane,
      tropicalStorm,
      tropicalDepression,
      subtropicalStorm,
      subtropicalDepression,
      extratropical,
      potentialTropicalCyclone,
      other,
    };
    Kind kind = Kind::other;
    std::string otherText;

    // "HU", "TS", ... exactly; anything else is `other` with the text.
    static Classification fromCode(std::string code);
    // The code ("HU") or the other text.
    std::string code() const;
    bool operator==(const Classification&) const = default;
  };

  std::string id;
  StormCoordinate coordinate;
  std::string name;
  Classification classification;
  std::optional<int> intensity;  // knots
  std::optional<int> pressure;   // millibars
  std::optional<boost::urls::url> advisoryURL;
  std::optional<double> movementDir;    // degrees
  std::optional<double> movementSpeed;  // knots
  std::optional<Date> lastUpdate;
  std::optional<boost::urls::url> coneURL;
  std::optional<boost::urls::url> trackURL;
  std::optional<boost::urls::url> historyURL;
  std::optional<Date> forecastIssuance;
  std::set<std::string> alternateIDs;  // always empty on a freshly decoded record

  StormBasin basin() const;
  StormIntensityTag intensityTag() const;
  // The name, with " (Cat N)" for a hurricane of category 1 to 5 unless it is a West Pacific
  // super typhoon (130 kt or more).
  std::string title(const icu::Locale& locale) const;
  // A copy whose `alternateIDs` also hold `other`'s id and alternate ids.
  Storm mergingAlternateIdentifiers(const Storm& other) const;

  bool operator==(const Storm&) const = default;
};

// The basin of an identifier, by its first two letters.
StormBasin basinOf(std::string_view identifier);
const char* basinName(StormBasin basin);

// The Saffir-Simpson category of a wind in knots; nothing below 64.
std::optional<int> categoryForKnots(int knots);

// The tag a classification text stands for ("HU3", "TS", " td\n").
StormIntensityTag tagFromText(const std::optional<std::string>& text);

// "Hurricane", "Cyclone", "Typhoon" or "Super Typhoon" for a basin.
std::string regionalCycloneLabel(bool isSuperTyphoon, const icu::Locale& locale, StormBasin basin);

// The intensity label of a tag ("Typhoon (Category 4)", "Tropical Storm"); nothing for an
// unknown ("UNK") or empty text.
std::optional<std::string> intensityLabel(const StormIntensityTag& tag, StormBasin basin, std::optional<int> knots,
                                          const icu::Locale& locale);

}  // namespace ombrine
