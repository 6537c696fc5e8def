#pragma once
// Conversion of a gathered Foreca answer into the unified forecast record.
//
// Pure functions of their arguments (the present instant is passed in): no I/O, no clock,
// safe from any thread. Calendar arithmetic (days, clock hours, 17:00 and 07:00 edges) uses a
// Gregorian calendar in the place's time zone. Nothing raises except std::bad_alloc.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "providers/foreca/foreca_wire.hpp"

namespace ombrine {

// The name and site shown as the record's attribution.
inline constexpr std::string_view kForecaServiceName = "Foreca";
inline constexpr std::string_view kForecaSiteUrl = "https://www.foreca.com";

// Weights of the wet glyphs when a day's representative glyph is chosen: rain by day must
// cover nearly half of the hours to show, at night a quarter is enough.
inline constexpr double kDaytimeWetWeight = 1.1;
inline constexpr double kNightWetWeight = 3.0;

// The symbol name of a Foreca symbol (one letter, three digits a, b, c: "d100", "n412") by the
// symbol table; a symbol of fewer than 4 characters gives "cloud". The day form is chosen
// when the first character is "d", the night form otherwise.
std::string forecaSymbolName(std::string_view symbol);

// True for the symbol names that show precipitation.
bool isWetSymbolName(std::string_view symbolName);

// `text` with its first letter capitalised by the rules of `locale` (an ICU locale name such as
// "en", "tr", "nl"); the rest unchanged.
std::string capitalizedFirstLetter(std::string_view text, std::string_view locale);

// The glyph of a symbol: `symbolName` by the table, daylight from the first character,
// `main` and `description` the capitalised phrase, `id` 0.
OneCallWeather::Glyph forecaGlyph(std::string_view symbol, std::string_view symbolPhrase, std::string_view locale);

// The representative symbol name of a period: glyphs are split into wet and other ones; the wet
// group is kept when `wetWeight` × its size is at least the size of the other group. The most
// frequent name of the kept group wins, ties going to the name seen first; an empty group
// leaves `fallbackSymbolName` (the day's own symbol).
std::string representativeSymbolName(std::span<const OneCallWeather::Glyph> glyphs, std::string_view fallbackSymbolName,
                                     double wetWeight);

// What the conversion needs besides the answers.
struct ForecaConversionContext {
  Location location;         // the requested point: the record's coordinates
  TimeZone timeZone;         // the place's zone (from GeoDetails)
  Date now;                  // the present instant
  std::string languageCode;  // the device language, e.g. "en", "fi"; empty reads as "en"
};

// The whole record. `minutely` and `alerts` are always present (possibly empty lists).
//
// Hourly rows: one per `ForecaHourly`, plus one synthetic row for every daily sunrise and
// sunset after `now` that falls in the clock hour of an hourly row (a copy of that row with
// `dt` the event, `sunStateChange` set and the single glyph "sunrise" or "sunset"). Rows are
// stably sorted by `dt` (an event on the full hour follows the regular row) and rows before
// the current clock hour are dropped.
//
// Daily rows carry two glyphs: the representative glyph of the daytime (start of day to the
// evening edge: sunset, else 17:00) and of the night (evening edge to the next day's
// sunrise, else 07:00 of the next day; the last day ends at midnight). A period with no
// hourly rows shows the day's own symbol, in its night form for the night.
OneCallWeather convertForecaWeather(const ForecaWeather& weather, const ForecaConversionContext& context);

// The description of a warning in the device language `languageCode` (empty reads as "en"):
// the first in that language; without one, or when the language is "en", the first in "en";
// else the first of all. Null when the warning has none.
const ForecaWarning::Description* chooseForecaDescription(const ForecaWarning& warning, std::string_view languageCode);

// The alerts of the warnings still valid after `now`: highest significance first, the later
// `validFrom` first among equals. `event` is the chosen description's title, else the
// warning's title, else its name (an empty text counts as missing); `tags` holds the warning's
// `type`; both capitalised.
std::vector<OneCallWeather::Alert> convertForecaWarnings(std::span<const ForecaWarning> warnings, Date now,
                                                         std::string_view languageCode);

}  // namespace ombrine
