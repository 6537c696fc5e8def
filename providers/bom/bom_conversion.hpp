#pragma once
// The Bureau of Meteorology record, and its merge with the system weather record.
//
// Pure functions of their arguments; safe from any thread.

#include <span>
#include <string_view>
#include <vector>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "core/values/time_zone.hpp"
#include "providers/bom/bom_wire.hpp"

namespace ombrine {

inline constexpr std::string_view kBureauServiceName = "Bureau of Meteorology";
// "Bureau of Meteorology & " with non-breaking spaces, the platform mark U+F8FF and "Weather".
inline constexpr std::string_view kBureauMergedServiceName =
    "Bureau\u00A0of\u00A0Meteorology\u00A0&\u00A0\uF8FFWeather";

// The glyph of an icon descriptor ("mostly_sunny", "shower", ...), by day or by night; `main`
// and `description` the descriptor's words ("Mostly sunny"). An unknown descriptor draws "cloud".
OneCallWeather::Glyph bureauGlyph(std::string_view descriptor, bool isDaylight);

struct BureauAnswers {
  BOM::Current::WeatherData observations;
  std::vector<BOM::Hourly::WeatherData> hourly;
  std::vector<BOM::Daily::WeatherData> daily;  // the published days (BOMPublishedDailyForecasts)
  std::vector<BomWarning> warnings;
};

struct BureauConversionContext {
  Location location;
  TimeZone timeZone;
  Date now;
};

// The Bureau's own record. Raises DomainError("Empty data", 6000) for an empty daily list.
//   - `current.dt` is `now`; sun times from the daily entry of today (the place's day);
//   - hourly: dew point from the answer, else by the Magnus form; `rain` the amount's midpoint
//     (its minimum without a maximum); `pop` chance / 100; sun rows as every provider adds them;
//   - daily: a missing minimum is the first day's "temp later", else the maximum; `rain` as
//     hourly; `pop` chance / 100;
//   - alerts: one per warning not expired at `now` (sender the Bureau, event its title, tag its
//     type). Without pressure, visibility, clouds and minute forecast.
OneCallWeather convertBureau(const BureauAnswers& answers, const BureauConversionContext& context);

// The merge of the Bureau record `a` with the system weather record `b`: rows matched by index,
// fields by the merge table (pressure and visibility from B, else A; clouds, dew point and air
// quality of now from B; gust from A, else B; minute forecast and alerts from B; daily
// feels-like, wind, humidity, dew point and clouds from B), attribution
// kBureauMergedServiceName. Rows of A beyond the end of B stay as they are.
OneCallWeather mergeBureauWithSystemWeather(OneCallWeather a, const OneCallWeather& b);

}  // namespace ombrine
