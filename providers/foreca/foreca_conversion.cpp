#include "providers/foreca/foreca_conversion.hpp"

#include <boost/url/parse.hpp>

#include <unicode/locid.h>
#include <unicode/stringoptions.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>

#include "providers/foreca/foreca_calendar.hpp"

namespace ombrine {

namespace {

// One row of the symbol table. `a`, `b`, `c` list the digits a position may hold; empty
// means any. Rows are tried in order, the first match wins.
struct SymbolRule {
  std::string_view a;
  std::string_view b;
  std::string_view c;
  std::string_view day;
  std::string_view night;
};

// The order matters: a = 6 (fog) wins over every precipitation class, and "2 2 0" keeps the sun
// or moon only because it comes before the generic rain row.
constexpr std::array<SymbolRule, 13> kSymbolRules{{
    {"0", "0", "", "sun.max", "moon.stars"},
    {"12", "0", "", "cloud.sun", "cloud.moon"},
    {"34", "0", "", "cloud", "cloud"},
    {"5", "0", "", "cloud.sun", "cloud.moon"},
    {"6", "", "", "cloud.fog", "cloud.fog"},
    {"2", "2", "0", "cloud.sun.rain", "cloud.moon.rain"},
    {"", "1", "0", "cloud.drizzle", "cloud.drizzle"},
    {"", "123", "1", "cloud.sleet", "cloud.sleet"},
    {"", "123", "2", "cloud.snow", "cloud.snow"},
    {"", "2", "0", "cloud.rain", "cloud.rain"},
    {"", "3", "0", "cloud.heavyrain", "cloud.heavyrain"},
    {"", "4", "0", "cloud.bolt.rain", "cloud.bolt.rain"},
    {"", "4", "12", "cloud.bolt", "cloud.bolt"},
}};
constexpr std::string_view kFallbackSymbolName = "cloud";

// Twelve names as the product lists them; "cloud.drizzle" appears twice there.
constexpr std::array<std::string_view, 12> kWetSymbolNames{
    "cloud.rain", "cloud.drizzle", "cloud.heavyrain", "cloud.sun.rain",        "cloud.moon.rain", "cloud.bolt.rain",
    "cloud.snow", "cloud.sleet",   "wind.snow",       "thermometer.snowflake", "cloud.hail",      "cloud.drizzle",
};

bool allows(std::string_view digits, char c) { return digits.empty() || digits.find(c) != std::string_view::npos; }

bool isDaylightSymbol(std::string_view symbol) { return !symbol.empty() && symbol.front() == 'd'; }

std::optional<int> roundedInteger(const std::optional<double>& value) {
  if (!value || !std::isfinite(*value)) return std::nullopt;
  return static_cast<int>(std::lround(std::clamp(*value, -2147483648.0, 2147483647.0)));
}

OneCallWeather::Glyph glyphWithPhrase(std::string_view symbol, std::string phrase) {
  return OneCallWeather::Glyph{
      .id = 0,
      .main = phrase,
      .description = phrase,
      .symbolName = forecaSymbolName(symbol),
      .isDaylight = isDaylightSymbol(symbol),
  };
}

// The few distinct phrases of an answer repeat over hundreds of rows; each is capitalised once.
class PhraseCapitalizer {
 public:
  explicit PhraseCapitalizer(std::string_view locale) : locale_(locale) {}

  const std::string& operator()(std::string_view phrase) {
    auto found = cache_.find(phrase);
    if (found == cache_.end()) {
      found = cache_.emplace(std::string(phrase), capitalizedFirstLetter(phrase, locale_)).first;
    }
    return found->second;
  }

  OneCallWeather::Glyph glyph(std::string_view symbol, std::string_view phrase) {
    return glyphWithPhrase(symbol, (*this)(phrase));
  }

 private:
  std::string locale_;
  std::map<std::string, std::string, std::less<>> cache_;
};

// The air quality entries keyed by the start of their clock hour, so each row looks its hour up
// without calendar work.
class AirQualityByHour {
 public:
  AirQualityByHour(const std::vector<AirQuality>& list, const PlaceCalendar& calendar) : calendar_(calendar) {
    entries_.reserve(list.size());
    for (const AirQuality& entry : list) entries_.emplace_back(calendar.startOfHour(entry.time), entry);
  }

  // The first entry in the clock hour of `instant`, if any.
  std::optional<AirQuality> at(Date instant) const { return inHour(calendar_.startOfHour(instant)); }

  // The first entry in the clock hour that starts at `hour`, if any.
  std::optional<AirQuality> inHour(Date hour) const {
    for (const auto& [entryHour, entry] : entries_) {
      if (entryHour == hour) return entry;
    }
    return std::nullopt;
  }

 private:
  const PlaceCalendar& calendar_;
  std::vector<std::pair<Date, AirQuality>> entries_;
};

// The fields current and hourly rows take alike.
template <class Row, class Wire>
void copyCommonFields(Row& row, const Wire& wire, PhraseCapitalizer& phrases) {
  row.dt = wire.time;
  row.temp = wire.temperature;
  row.feelsLike = wire.feelsLikeTemp;
  row.pressure = roundedInteger(wire.pressure);
  row.dewPoint = wire.dewPoint;
  row.uvi = wire.uvIndex;
  row.humidity = wire.relHumidity;
  row.clouds = wire.cloudiness;
  row.visibility = roundedInteger(wire.visibility);
  row.windSpeed = wire.windSpeed;
  row.windGust = wire.windGust;
  row.windDeg = wire.windDir;
  row.weather = {phrases.glyph(wire.symbol, wire.symbolPhrase)};
}

OneCallWeather::Current convertCurrent(const ForecaWeather& weather, const ForecaConversionContext& context,
                                       const AirQualityByHour& airQuality, PhraseCapitalizer& phrases) {
  OneCallWeather::Current result;
  copyCommonFields(result, weather.current, phrases);
  const ForecaDaily* today = weather.daily.empty() ? nullptr : &weather.daily.front();
  result.sunrise = today && today->sunrise ? *today->sunrise : context.now;
  result.sunset = today && today->sunset ? *today->sunset : context.now;
  result.airQuality = airQuality.at(weather.current.time);
  return result;
}

// `hourStart` is the start of the clock hour of the row.
OneCallWeather::Hourly convertHour(const ForecaHourly& hour, Date hourStart, const AirQualityByHour& airQuality,
                                   PhraseCapitalizer& phrases) {
  OneCallWeather::Hourly row;
  copyCommonFields(row, hour, phrases);
  row.pop = hour.precipProb / 100.0;
  row.rain = OneCallWeather::Rain{hour.precipAccum};
  row.snow = OneCallWeather::Snow{hour.snowAccum};
  row.airQuality = airQuality.inHour(hourStart);
  return row;
}

std::string representativeOf(std::span<const std::string_view> names, std::string_view fallbackSymbolName,
                             double wetWeight) {
  std::vector<std::string_view> wet;
  std::vector<std::string_view> other;
  for (std::string_view name : names) (isWetSymbolName(name) ? wet : other).push_back(name);
  const std::vector<std::string_view>& kept =
      wetWeight * static_cast<double>(wet.size()) >= static_cast<double>(other.size()) ? wet : other;
  if (kept.empty()) return std::string(fallbackSymbolName);

  // Counted in order of first appearance, so a tie goes to the name seen first.
  std::vector<std::pair<std::string_view, int>> counts;
  for (std::string_view name : kept) {
    auto found = std::find_if(counts.begin(), counts.end(), [&](const auto& entry) { return entry.first == name; });
    if (found == counts.end()) {
      counts.emplace_back(name, 1);
    } else {
      ++found->second;
    }
  }
  auto best = counts.begin();
  for (auto it = counts.begin(); it != counts.end(); ++it) {
    if (it->second > best->second) best = it;
  }
  return std::string(best->first);
}

// The symbol names of the hourly rows in [from, until).
std::vector<std::string_view> symbolNamesBetween(const std::vector<OneCallWeather::Hourly>& hourly, Date from,
                                                 Date until) {
  std::vector<std::string_view> names;
  for (const auto& row : hourly) {
    if (row.dt < from || row.dt >= until) continue;
    for (const auto& glyph : row.weather) names.push_back(glyph.symbolName);
  }
  return names;
}

OneCallWeather::Daily convertDay(const std::vector<ForecaDaily>& days, size_t index,
                                 const std::vector<OneCallWeather::Hourly>& hourly, PhraseCapitalizer& phrases,
                                 const PlaceCalendar& calendar) {
  const ForecaDaily& day = days[index];
  Date start = calendar.startOfDay(day.date);
  Date end = calendar.endOfDay(day.date);
  CivilDay civil = calendar.day(start);
  CivilDay nextCivil = civil;
  ++nextCivil.day;

  Date evening = day.sunset ? *day.sunset : calendar.date(civil, 17, 0);
  Date morning = end;
  if (index + 1 < days.size()) {
    const ForecaDaily& next = days[index + 1];
    morning = next.sunrise ? *next.sunrise : calendar.date(nextCivil, 7, 0);
  }

  std::vector<std::string_view> daytime = symbolNamesBetween(hourly, start, evening);
  std::vector<std::string_view> night = symbolNamesBetween(hourly, evening, morning);
  const std::string& phrase = phrases(day.symbolPhrase);
  OneCallWeather::Glyph dayGlyph{
      .id = 0,
      .main = phrase,
      .description = phrase,
      .symbolName = representativeOf(daytime, forecaSymbolName(day.symbol), kDaytimeWetWeight),
      .isDaylight = true,
  };
  OneCallWeather::Glyph nightGlyph{
      .id = 0,
      .main = phrase,
      .description = phrase,
      .symbolName = representativeOf(night, forecaSymbolName(day.symbol), kNightWetWeight),
      .isDaylight = false,
  };

  OneCallWeather::Daily row;
  row.dt = day.date;
  row.temp = {.min = day.minTemp, .max = day.maxTemp};
  row.feelsLike = {
      .day = day.maxFeelsLikeTemp,
      .night = day.minFeelsLikeTemp,
      .eve = day.maxFeelsLikeTemp,
      .morn = day.minFeelsLikeTemp,
  };
  row.pop = day.precipProb / 100.0;
  row.rain = day.precipAccum;
  row.snow = day.snowAccum;
  row.uvi = day.uvIndex;
  row.windSpeed = day.maxWindSpeed;
  row.windDeg = day.windDir;
  row.windGust = day.maxWindGust;
  row.humidity = (static_cast<double>(day.maxRelHumidity) + day.minRelHumidity) / 2.0;
  row.dewPoint = Temperature::celsius((day.maxDewPoint.inCelsius() + day.minDewPoint.inCelsius()) / 2.0);
  row.clouds = static_cast<double>(day.cloudiness);
  row.weather = {dayGlyph, nightGlyph};
  row.sunrise = day.sunrise;
  row.sunset = day.sunset;
  return row;
}

// The synthetic row of a sun event: a copy of the first row in the event's clock hour.
// `rowHours[i]` is the start of the clock hour of `hourly[i]`.
std::optional<OneCallWeather::Hourly> sunEventRow(const std::vector<OneCallWeather::Hourly>& hourly,
                                                  const std::vector<Date>& rowHours, SunStateChange change,
                                                  const PlaceCalendar& calendar) {
  Date event = change.date();
  auto found = std::find(rowHours.begin(), rowHours.end(), calendar.startOfHour(event));
  if (found == rowHours.end()) return std::nullopt;
  OneCallWeather::Hourly copy = hourly[static_cast<size_t>(found - rowHours.begin())];
  copy.dt = event;
  std::string label(change.label());
  copy.weather = {OneCallWeather::Glyph{
      .id = 0,
      .main = label,
      .description = label,
      .symbolName = change.isRise() ? "sunrise" : "sunset",
      .isDaylight = true,
  }};
  copy.sunStateChange = change;
  return copy;
}

}  // namespace

std::string forecaSymbolName(std::string_view symbol) {
  if (symbol.size() < 4) return std::string(kFallbackSymbolName);
  bool day = isDaylightSymbol(symbol);
  char a = symbol[1];
  char b = symbol[2];
  char c = symbol[3];
  auto isDigit = [](char d) { return d >= '0' && d <= '9'; };
  if (!isDigit(a) || !isDigit(b) || !isDigit(c)) return std::string(kFallbackSymbolName);
  for (const SymbolRule& rule : kSymbolRules) {
    if (allows(rule.a, a) && allows(rule.b, b) && allows(rule.c, c)) {
      return std::string(day ? rule.day : rule.night);
    }
  }
  return std::string(kFallbackSymbolName);
}

bool isWetSymbolName(std::string_view symbolName) {
  return std::find(kWetSymbolNames.begin(), kWetSymbolNames.end(), symbolName) != kWetSymbolNames.end();
}

std::string capitalizedFirstLetter(std::string_view text, std::string_view locale) {
  icu::UnicodeString unicode =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  icu::Locale icuLocale(std::string(locale).c_str());
  // Title case of the first letter only (Dutch "ij" becomes "IJ", Turkish "i" becomes "İ");
  // the rest keeps its case.
  unicode.toTitle(nullptr, icuLocale, U_TITLECASE_WHOLE_STRING | U_TITLECASE_NO_LOWERCASE);
  std::string result;
  unicode.toUTF8String(result);
  return result;
}

OneCallWeather::Glyph forecaGlyph(std::string_view symbol, std::string_view symbolPhrase, std::string_view locale) {
  return glyphWithPhrase(symbol, capitalizedFirstLetter(symbolPhrase, locale));
}

std::string representativeSymbolName(std::span<const OneCallWeather::Glyph> glyphs, std::string_view fallbackSymbolName,
                                     double wetWeight) {
  std::vector<std::string_view> names;
  names.reserve(glyphs.size());
  for (const auto& glyph : glyphs) names.push_back(glyph.symbolName);
  return representativeOf(names, fallbackSymbolName, wetWeight);
}

OneCallWeather convertForecaWeather(const ForecaWeather& weather, const ForecaConversionContext& context) {
  PlaceCalendar calendar(context.timeZone);

  OneCallWeather record;
  record.lat = context.location.latitude();
  record.lon = context.location.longitude();
  record.timeZone = context.timeZone;
  AirQualityByHour airQuality(weather.airQuality, calendar);
  PhraseCapitalizer phrases(context.languageCode);
  record.current = convertCurrent(weather, context, airQuality, phrases);

  std::vector<OneCallWeather::Minutely> minutely;
  minutely.reserve(weather.minutely.size());
  for (const ForecaMinute& minute : weather.minutely) {
    double rate = std::max(0.0, precipRateMillimetersPerHour(minute));
    minutely.push_back({.dt = minute.time, .precipitation = Precipitation::millimeters(rate), .type = std::nullopt});
  }
  record.minutely = std::move(minutely);

  std::vector<OneCallWeather::Hourly> hourly;
  hourly.reserve(weather.hourly.size() + 2 * weather.daily.size());
  std::vector<Date> rowHours;
  rowHours.reserve(weather.hourly.size());
  for (const ForecaHourly& hour : weather.hourly) {
    rowHours.push_back(calendar.startOfHour(hour.time));
    hourly.push_back(convertHour(hour, rowHours.back(), airQuality, phrases));
  }

  record.daily.reserve(weather.daily.size());
  for (size_t i = 0; i < weather.daily.size(); ++i) {
    record.daily.push_back(convertDay(weather.daily, i, hourly, phrases, calendar));
  }

  std::vector<OneCallWeather::Hourly> sunRows;
  for (const ForecaDaily& day : weather.daily) {
    std::optional<SunStateChange> events[] = {
        day.sunrise ? std::optional(SunStateChange::rise(*day.sunrise)) : std::nullopt,
        day.sunset ? std::optional(SunStateChange::set(*day.sunset)) : std::nullopt,
    };
    for (const auto& event : events) {
      if (!event || event->date() <= context.now) continue;
      if (auto row = sunEventRow(hourly, rowHours, *event, calendar)) sunRows.push_back(std::move(*row));
    }
  }
  hourly.insert(hourly.end(), std::make_move_iterator(sunRows.begin()), std::make_move_iterator(sunRows.end()));
  std::stable_sort(hourly.begin(), hourly.end(), [](const auto& a, const auto& b) { return a.dt < b.dt; });
  Date currentHour = calendar.startOfHour(context.now);
  std::erase_if(hourly, [currentHour](const auto& row) { return row.dt < currentHour; });
  record.hourly = std::move(hourly);

  record.alerts = convertForecaWarnings(weather.warnings, context.now, context.languageCode);
  record.attribution = WeatherServiceAttribution{WeatherServiceAttribution::NameAttribution{
      .serviceName = std::string(kForecaServiceName),
      .url = boost::urls::url(*boost::urls::parse_absolute_uri(kForecaSiteUrl)),
  }};
  return record;
}

}  // namespace ombrine
