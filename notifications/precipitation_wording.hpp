#pragma once
// The words of the rain and snow notification in the user's language: the fixed sentences
// (looked up by their English text), a relative time ("in 25 minutes") and a number of minutes
// ("45 minutes"), both from ICU's data for the locale.
//
// English is the key language; German is carried as well. Any other language gets the English
// sentences around ICU's own relative times and durations.
//
// Context: a plain value; any thread.

#include <string>
#include <string_view>

#include <unicode/locid.h>

#include "core/values/measurements.hpp"

namespace ombrine {

class PrecipitationWording {
 public:
  explicit PrecipitationWording(icu::Locale locale);

  // The translation of an English sentence; the sentence itself when there is none. "{}"
  // marks where a phrase goes and stays in the result.
  std::string text(std::string_view english) const;
  // `english` translated, with its "{}" marks filled in order.
  std::string format(std::string_view english, std::string_view first, std::string_view second = {}) const;

  // The name of what falls ("Rain", "Snow"), translated. A missing kind is rain.
  std::string kindName(std::optional<PrecipitationKind> kind) const;
  // A relative time for `seconds` from now, full words, in the largest whole unit that is not
  // zero (seconds, minutes, hours, days): "in 25 minutes", "in 2 hours".
  std::string relativeTime(double seconds) const;
  // A duration of whole minutes, long style: "45 minutes", "1 minute".
  std::string minutes(long minutes) const;

  const icu::Locale& locale() const { return locale_; }

 private:
  icu::Locale locale_;
  bool german_ = false;
};

}  // namespace ombrine
