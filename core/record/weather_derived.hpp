#pragma once
// Values derived from a forecast record, and the two ready-made records.
//
// Every function here is a pure function of its arguments (the present moment, the device's
// language and idiom are parameters); thread-safe; nothing raises.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/measurements.hpp"
#include "core/values/time_zone.hpp"
#include "core/values/weather_data_source.hpp"

namespace ombrine {

// The form of the device, which sets the smallest visible bar of the minute chart.
enum class DeviceIdiom { phone, pad, desktop };

// How a glyph's symbol is drawn: forced to its day or night form, or as stored.
enum class SymbolVariant { forceDay, forceNight, asStored };

// The theme of the main screen.
enum class WeatherState { sunnyDay, hotDay, rainyDay, chillyDay, overcast, night, rainyNight, placeholder };

// Who delivered the record: `dynamic` (unknown) without attribution or for an unknown service
// name; `apple` for the system weather service (apple or image attribution); `foreca` and `ow`
// for the name attributions "Foreca" and "OpenWeather".
WeatherDataSource weatherDataSource(const OneCallWeather& weather) noexcept;

// The condition word shown for now: the first glyph's `main` when the device language is "en",
// its `description` for any other language; empty without glyphs.
std::string_view conditionWord(const OneCallWeather::Current& current, std::string_view languageCode) noexcept;

// True when the first glyph's symbol is "cloud", else when clouds exceed 84 percent.
bool isCloudy(const OneCallWeather::Current& current) noexcept;

// True when any of the first 60 minute entries has precipitation above 0.
bool expectsRainWithinHour(const OneCallWeather& weather) noexcept;

// The kind of what falls now: the first minute entry with a kind other than none; failing that,
// snow when the current rain volume (0 when missing) is below the snow volume, else rain (with
// no snow volume, snow only for a negative rain volume). Never `none`.
PrecipitationKind minutePrecipitationKind(const OneCallWeather& weather) noexcept;

// One minute entry's rate scaled to 0...1 for charts: the rate capped at 3 mm/h for snow and
// sleet (7.5 mm/h for every other kind or none), divided by that cap, and raised to a floor
// (0.03 on pads, 0.05 elsewhere) so that light rain stays visible. 0 when the rate is not above 0.
double minuteIntensity(const OneCallWeather::Minutely& minute, DeviceIdiom idiom) noexcept;

// The symbol of the minute chart for a precipitation kind (rain when none can be told): hail
// "cloud.hail"; mixed and sleet "cloud.sleet"; snow "cloud.snow"; rain by the highest minute
// intensity (the earlier entry on ties): above 0.75 "cloud.heavyrain", from 0.5 "cloud.rain",
// else (and without minute entries) "cloud.drizzle"; `none` gives nothing.
std::optional<std::string_view> precipitationSymbol(
    std::optional<PrecipitationKind> kind, const std::optional<std::vector<OneCallWeather::Minutely>>& minutely,
    DeviceIdiom idiom) noexcept;
// The same for a record, with the kind from minutePrecipitationKind.
std::optional<std::string_view> precipitationSymbol(const OneCallWeather& weather, DeviceIdiom idiom) noexcept;

// True when an hourly entry with air quality lies in the window from the later of `current.dt`
// and `start` to `interval` seconds after it (both ends included) and its AQI is above
// `threshold`. False when `interval` is not above 0.
bool airQualityWarning(const OneCallWeather& weather, int threshold, Date start, double interval) noexcept;

// The glyph's symbol in the requested form. Night forms: "sun.max" "moon.stars", "cloud.sun"
// "cloud.moon", "cloud.sun.rain" "cloud.moon.rain", "cloud.sun.bolt" "cloud.moon.bolt",
// "sun.haze" "moon.haze"; forcing day maps them back. Other symbols stay.
std::string_view symbolName(const OneCallWeather::Glyph& glyph, SymbolVariant variant) noexcept;

// The theme for the record at `now`. A placeholder record gives `placeholder`. When sunrise and
// sunset are both known, it is day between them; otherwise the first glyph's `isDaylight`
// decides. By day: rainy, then cloudy (overcast), then by feels-like temperature: above 30 °C
// hot, above 4 °C sunny (at least 10 °C when only the glyph told day from night), else chilly.
// By night: rainy night or night. Rainy means minute rain within the hour, or a first glyph with
// a rain symbol or condition 701. Without glyphs only minute rain (by night) or the temperature
// rule (by day) applies.
WeatherState weatherState(const OneCallWeather& weather, Date now) noexcept;

// The record shown while nothing better exists, for a place in `timeZone` at `now`: 19 °C,
// feels like 20, broken clouds, AQI 40, hourly entries from the start of the local day for 48
// hours with those before `now` dropped, 10 daily entries. `isPlaceholder` is true; never store
// it.
OneCallWeather placeholderWeather(const TimeZone& timeZone, Date now);

// The record of the fictional planet shown on share and preview screens: the placeholder's form
// at 430 to 432 °C under "Plasma Waves", with one extreme weather alert from the distant past to
// the distant future. It is shown as a forecast, not as a stand-in, so `isPlaceholder` is false.
OneCallWeather demonstrationWeather(const TimeZone& timeZone, Date now);

// The text of the demonstration record's alert.
extern const std::string_view kDemonstrationAlertText;

}  // namespace ombrine
