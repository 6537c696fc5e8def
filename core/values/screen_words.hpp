#pragma once
// The words and numbers of one human screen in the reader's locale. Every number goes through
// the locale's ICU number formatter (core/values/value_format.hpp), so that one screen shows one
// numbering system; the screen's own English words go through translate(), which a program
// with message catalogues overrides (this base keeps them English). JSON output never goes
// through here: it keeps plain ASCII numbers.
//
// Subsystems that compose screen lines take a `const ScreenWords&` and leave the choice of
// language to the program. Immutable; any thread may use one. Raises only what ValueFormatter
// raises.

#include <unicode/locid.h>

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "core/values/date.hpp"
#include "core/values/value_format.hpp"

namespace ombrine {

class ScreenWords {
 public:
  // English words, `locale`'s numbers and units.
  explicit ScreenWords(const icu::Locale& locale);
  virtual ~ScreenWords() = default;
  ScreenWords(const ScreenWords&) = delete;
  ScreenWords& operator=(const ScreenWords&) = delete;

  const icu::Locale& locale() const noexcept { return locale_; }
  const ValueFormatter& values() const noexcept { return values_; }

  // One of the screen's words in the reader's language, or the words as written.
  std::string_view operator()(std::string_view message) const { return translate(message); }

  // The translation of `message` with its {} filled by `values` in order; the English text
  // when a translation's placeholders do not fit the values.
  template <class... Values>
  std::string format(std::string_view message, const Values&... values) const {
    try {
      return fmt::format(fmt::runtime(translate(message)), values...);
    } catch (const fmt::format_error&) {
      return fmt::format(fmt::runtime(message), values...);
    }
  }

  std::string number(double value, NumberStyle style = {}) const { return values_.number(value, style); }
  std::string percent(double fraction) const { return values_.percent(fraction); }
  // `one` or `many` (each with a {} for the number) translated, by `count`: "{} key", "{} keys".
  std::string counted(double count, std::string_view one, std::string_view many) const {
    return format(count == 1 ? one : many, number(count));
  }
  // "48.137, 11.575": a coordinate with `decimals` decimals.
  std::string coordinate(double latitude, double longitude, int decimals) const;
  // "48.14°N 11.58°E": a coordinate to two decimals with its hemispheres (translated letters).
  std::string hemispheres(double latitude, double longitude) const;
  // "07:05" or "07:05:09": a wall-clock time, two digits per field.
  std::string clock(int hour, int minute) const;
  std::string clock(int hour, int minute, int second) const;
  // "2026-06-21": a calendar day, year-month-day.
  std::string day(int year, int month, int day) const;
  // "2026-06-21 14:05:09 UTC": an instant in UTC on the Gregorian calendar, in every locale.
  std::string utcTime(Date instant) const;

 protected:
  virtual std::string_view translate(std::string_view message) const { return message; }

 private:
  icu::Locale locale_;
  const ValueFormatter& values_;
};

}  // namespace ombrine
