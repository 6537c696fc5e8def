#include "sim/foreca_routes.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "sim/alert_scenarios.hpp"
#include "sim/json_writer.hpp"

namespace ombrine::sim {

using namespace std::chrono;
namespace json = boost::json;

namespace {

// ---- Phrases -------------------------------------------------------------------------------

enum Language { english, finnish, swedish, german };

struct Phrasebook {
  std::array<const char*, 7> clouds;  // by cloud class a
  // [type c][intensity b - 1]: rain, sleet, snow; light, moderate, heavy, thunder
  std::array<std::array<const char*, 4>, 3> precipitation;
  const char* conjunction;
};

constexpr Phrasebook kPhrasebooks[] = {
    {{"clear", "mostly clear", "partly cloudy", "cloudy", "overcast", "thin upper cloud", "fog"},
     {{{"light rain", "rain", "heavy rain", "thunderstorms"},
       {"light sleet", "sleet", "heavy sleet", "thunderstorms and sleet"},
       {"light snow", "snow", "heavy snow", "thundersnow"}}},
     " and "},
    {{"selkeää", "enimmäkseen selkeää", "puolipilvistä", "pilvistä", "täysin pilvistä", "ohutta yläpilveä", "sumua"},
     {{{"heikkoa vesisadetta", "vesisadetta", "runsasta vesisadetta", "ukkosta"},
       {"heikkoa räntäsadetta", "räntäsadetta", "runsasta räntäsadetta", "ukkosta ja räntää"},
       {"heikkoa lumisadetta", "lumisadetta", "runsasta lumisadetta", "ukkosta ja lunta"}}},
     " ja "},
    {{"klart", "mestadels klart", "halvklart", "molnigt", "mulet", "tunna höga moln", "dimma"},
     {{{"lätt regn", "regn", "kraftigt regn", "åska"},
       {"lätt snöblandat regn", "snöblandat regn", "kraftigt snöblandat regn", "åska och snöblandat regn"},
       {"lätt snöfall", "snöfall", "kraftigt snöfall", "åska och snö"}}},
     " och "},
    {{"klar", "überwiegend klar", "teilweise bewölkt", "bewölkt", "bedeckt", "dünne hohe Wolken", "Nebel"},
     {{{"leichter Regen", "Regen", "starker Regen", "Gewitter"},
       {"leichter Schneeregen", "Schneeregen", "starker Schneeregen", "Gewitter mit Schneeregen"},
       {"leichter Schneefall", "Schneefall", "starker Schneefall", "Gewitter mit Schnee"}}},
     " und "},
};

constexpr const char* kLanguageCodes[] = {"en", "fi", "sv", "de"};

Language languageOf(std::string_view code) {
  std::string prefix;
  for (const char c : code.substr(0, 2)) prefix += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (int i = 0; i < 4; ++i) {
    if (prefix == kLanguageCodes[i]) return static_cast<Language>(i);
  }
  return english;
}

// ---- Warnings texts ------------------------------------------------------------------------

struct WarningWords {
  const char* id;                     // wire "type"
  const char* englishName;            // wire "name"
  std::array<const char*, 4> titles;  // by Language
  std::array<const char*, 4> texts;
};

constexpr WarningWords kWarningWords[] = {
    // clang-format off
    {"wind", "wind warning", {"Wind warning", "Tuulivaroitus", "Vindvarning", "Windwarnung"},
     {"Strong winds expected. Secure loose objects outdoors.", "Kovaa tuulta odotettavissa. Kiinnitä irtonaiset esineet.",
      "Hård vind väntas. Säkra lösa föremål utomhus.", "Starker Wind erwartet. Lose Gegenstände im Freien sichern."}},
    {"rain", "heavy rain warning", {"Heavy rain warning", "Rankkasadevaroitus", "Varning för skyfall", "Starkregenwarnung"},
     {"Heavy rain may cause local flooding.", "Runsas sade voi aiheuttaa paikallisia tulvia.",
      "Kraftigt regn kan orsaka lokala översvämningar.", "Starkregen kann örtlich zu Überflutungen führen."}},
    {"snow", "snow warning", {"Snow warning", "Lumivaroitus", "Snövarning", "Schneefallwarnung"},
     {"Heavy snowfall will make travel difficult.", "Runsas lumisade vaikeuttaa liikkumista.",
      "Kraftigt snöfall försvårar resor.", "Starker Schneefall erschwert den Verkehr."}},
    {"thunderstorm", "thunderstorm warning", {"Thunderstorm warning", "Ukkosvaroitus", "Åskvarning", "Gewitterwarnung"},
     {"Thunderstorms with lightning, hail and strong gusts.", "Ukkosta, salamointia, rakeita ja voimakkaita puuskia.",
      "Åskväder med blixtar, hagel och kraftiga byar.", "Gewitter mit Blitzschlag, Hagel und Sturmböen."}},
    {"heat", "heat warning", {"Heat warning", "Hellevaroitus", "Värmevarning", "Hitzewarnung"},
     {"High temperatures; drink plenty and avoid the midday sun.", "Helle; juo runsaasti ja vältä keskipäivän aurinkoa.",
      "Höga temperaturer; drick mycket och undvik middagssolen.", "Hohe Temperaturen; viel trinken und die Mittagssonne meiden."}},
    {"cold", "cold warning", {"Cold warning", "Pakkasvaroitus", "Köldvarning", "Kältewarnung"},
     {"Severe cold; protect against frostbite.", "Kova pakkanen; suojaudu paleltumilta.",
      "Sträng kyla; skydda dig mot köldskador.", "Strenge Kälte; vor Erfrierungen schützen."}},
    {"fog", "fog warning", {"Fog warning", "Sumuvaroitus", "Dimvarning", "Nebelwarnung"},
     {"Dense fog with visibility below 200 m.", "Sankka sumu, näkyvyys alle 200 m.", "Tät dimma med sikt under 200 m.",
      "Dichter Nebel mit Sichtweiten unter 200 m."}},
    {"forest-fire", "forest fire warning", {"Forest fire warning", "Metsäpalovaroitus", "Brandriskvarning", "Waldbrandwarnung"},
     {"Very dry conditions; open fires are prohibited.", "Erittäin kuivaa; avotulen teko on kielletty.",
      "Mycket torrt; eldningsförbud gäller.", "Sehr trocken; offenes Feuer ist verboten."}},
    {"icing", "slippery roads warning", {"Slippery roads warning", "Liukkausvaroitus", "Varning för halka", "Glättewarnung"},
     {"Roads and pavements may be icy and slippery.", "Tiet ja jalkakäytävät voivat olla jäisiä ja liukkaita.",
      "Vägar och trottoarer kan vara isiga och hala.", "Straßen und Gehwege können vereist und glatt sein."}},
    // clang-format on
};

constexpr const char* kSignificanceNames[] = {"green", "yellow", "orange", "red", "purple"};
constexpr const char* kSignificanceDescriptions[] = {"No particular awareness required", "Be aware", "Be prepared",
                                                     "Take action", "Extreme danger"};

// ---- Request reading -----------------------------------------------------------------------

double coordinate(std::string_view text, double limit, std::string_view whole) {
  double value = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(value) ||
      std::abs(value) > limit) {
    throw Refusal{400, fmt::format("Invalid location \"{}\": expected <longitude>,<latitude> in degrees", whole)};
  }
  return value;
}

GeoPoint pointOf(std::string_view text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string_view::npos) {
    throw Refusal{400, fmt::format("Invalid location \"{}\": expected <longitude>,<latitude> in degrees", text)};
  }
  const double longitude = coordinate(text.substr(0, comma), 180.0, text);
  const double latitude = coordinate(text.substr(comma + 1), 90.0, text);
  return GeoPoint{latitude, longitude};
}

int wholeParam(const SimRequest& request, std::string_view name, int low, int high, int fallback) {
  const auto text = request.param(name);
  if (!text) return fallback;
  int value = 0;
  const auto result = std::from_chars(text->data(), text->data() + text->size(), value);
  if (text->empty() || result.ec != std::errc() || result.ptr != text->data() + text->size() || value < low ||
      value > high) {
    throw Refusal{400, fmt::format("Invalid {} \"{}\": expected a whole number {}..{}", name, *text, low, high)};
  }
  return value;
}

// How the answer is written, from the query items every forecast route shares.
struct Style {
  int decimals = 1;
  double windFactor = 1.0;  // m/s to the requested unit
  bool full = false;
  Language language = english;

  json::value number(double value) const { return roundedNumber(value, decimals); }
  json::value wind(double metresPerSecond) const { return roundedNumber(metresPerSecond * windFactor, decimals); }
};

Style styleOf(const SimRequest& request) {
  Style style;
  style.decimals = wholeParam(request, "rounding", 0, 3, 1);
  if (const auto unit = request.param("windunit")) {
    if (*unit == "MS")
      style.windFactor = 1.0;
    else if (*unit == "KMH")
      style.windFactor = 3.6;
    else if (*unit == "MPH")
      style.windFactor = 3600.0 / 1609.344;
    else if (*unit == "KT")
      style.windFactor = 3600.0 / 1852.0;
    else
      throw Refusal{400, fmt::format("Invalid windunit \"{}\": expected MS, KMH, MPH or KT", *unit)};
  }
  if (const auto dataset = request.param("dataset")) {
    if (*dataset == "full")
      style.full = true;
    else if (*dataset != "standard")
      throw Refusal{400, fmt::format("Invalid dataset \"{}\": expected standard or full", *dataset)};
  }
  if (const auto lang = request.param("lang")) style.language = languageOf(*lang);
  return style;
}

bool historyOf(const SimRequest& request) {
  const auto history = request.param("history");
  if (!history || *history == "0" || *history == "false") return false;
  if (*history == "1" || *history == "true") return true;
  throw Refusal{400, fmt::format("Invalid history \"{}\": expected 0 or 1", *history)};
}

// ---- Records -------------------------------------------------------------------------------

const char* compassPoint(int degrees) {
  static constexpr const char* kPoints[] = {"N", "NE", "E", "SE", "S", "SW", "W", "NW"};
  return kPoints[((degrees * 2 + 45) / 90) % 8];
}

const char* precipTypeOf(PrecipKind kind) {
  switch (kind) {
    case PrecipKind::rain: return "rain";
    case PrecipKind::mixed: return "mixed";
    case PrecipKind::snow: return "snow";
  }
  return "rain";
}

bool daylightAt(GeoPoint point, Instant instant) { return WeatherModel::sunElevation(point, instant) > -0.833; }

// The chance of precipitation around `instant`: the mean rate over the two hours about it.
int probabilityAround(const WeatherModel& model, GeoPoint point, Instant instant, int cloudiness) {
  const auto around = model.accumulation(point, instant - minutes(30), instant + minutes(90));
  return precipitationProbability(around.total / 2.0, cloudiness);
}

json::object currentRecord(const WeatherModel& model, GeoPoint point, Instant now, const Style& style) {
  const Instant time = floor<minutes>(now);
  const minutes offset = longitudeUtcOffset(point.longitude);
  const WeatherSample s = model.sample(point, time);
  const std::string symbol = forecaSymbol(s, s.precipRate, daylightAt(point, time));
  json::object current;
  current["time"] = formatLocalMinute(time, offset);
  current["symbol"] = symbol;
  current["symbolPhrase"] = forecaSymbolPhrase(symbol, kLanguageCodes[style.language]);
  current["temperature"] = style.number(s.temperature);
  current["feelsLikeTemp"] = style.number(s.feelsLike);
  current["relHumidity"] = s.relHumidity;
  current["dewPoint"] = style.number(s.dewPoint);
  current["windSpeed"] = style.wind(s.windSpeed);
  current["windDir"] = s.windDirection;
  current["windGust"] = style.wind(s.windGust);
  current["precipProb"] = probabilityAround(model, point, time, s.cloudiness);
  current["cloudiness"] = s.cloudiness;
  current["uvIndex"] = style.number(s.uvIndex);
  current["pressure"] = style.number(s.pressure);
  current["visibility"] = static_cast<std::int64_t>(s.visibility);
  return current;
}

// The row of the hour beginning at `time`; `before`, `hour` and `after` are the precipitation of
// the hours before, from and after `time`.
json::object hourlyRecord(const WeatherModel& model, GeoPoint point, Instant time, const Style& style,
                          const WeatherModel::Accumulation& before, const WeatherModel::Accumulation& hour,
                          const WeatherModel::Accumulation& after) {
  const minutes offset = longitudeUtcOffset(point.longitude);
  const WeatherSample s = model.sample(point, time);
  const std::string symbol = forecaSymbol(s, hour.total, daylightAt(point, time));
  json::object row;
  row["time"] = formatLocalMinute(time, offset);
  row["symbol"] = symbol;
  row["symbolPhrase"] = forecaSymbolPhrase(symbol, kLanguageCodes[style.language]);
  row["temperature"] = style.number(s.temperature);
  row["feelsLikeTemp"] = style.number(s.feelsLike);
  row["windSpeed"] = style.wind(s.windSpeed);
  if (style.full) row["windGust"] = style.wind(s.windGust);
  row["windDir"] = s.windDirection;
  row["windDirString"] = compassPoint(s.windDirection);
  // The two hours about `time`, as probabilityAround() takes them, from whole hours.
  const double meanRate = (before.total / 2.0 + hour.total + after.total / 2.0) / 2.0;
  row["precipProb"] = precipitationProbability(meanRate, s.cloudiness);
  row["precipAccum"] = style.number(hour.total);
  if (!style.full) return row;
  row["snowAccum"] = style.number(hour.snow);
  row["cloudiness"] = s.cloudiness;
  row["uvIndex"] = style.number(s.uvIndex);
  row["pressure"] = style.number(s.pressure);
  row["visibility"] = static_cast<std::int64_t>(s.visibility);
  row["relHumidity"] = s.relHumidity;
  row["dewPoint"] = style.number(s.dewPoint);
  row["precipType"] = precipTypeOf(s.precipKind);
  return row;
}

json::object dailyRecord(const WeatherModel& model, GeoPoint point, sys_days day, const Style& style) {
  const minutes offset = longitudeUtcOffset(point.longitude);
  const Instant start = startOfLocalDay(day, offset);
  WeatherSample high, low, windiest;
  double maxGust = 0.0, maxUv = 0.0, wettestHour = 0.0, daytimeCloud = 0.0, total = 0.0, snow = 0.0;
  int maxHumidity = 0, minHumidity = 100, maxCloud = 0, daytimeHours = 0;
  double maxFeels = -1e9, minFeels = 1e9, maxDew = -1e9, minDew = 1e9;
  bool thunder = false;
  for (int h = 0; h < 24; ++h) {
    const Instant time = start + hours(h);
    const WeatherSample s = model.sample(point, time);
    const auto hour = model.accumulation(point, time, time + hours(1));
    if (h == 0 || s.temperature > high.temperature) high = s;
    if (h == 0 || s.temperature < low.temperature) low = s;
    if (h == 0 || s.windSpeed > windiest.windSpeed) windiest = s;
    maxFeels = std::max(maxFeels, s.feelsLike);
    minFeels = std::min(minFeels, s.feelsLike);
    maxDew = std::max(maxDew, s.dewPoint);
    minDew = std::min(minDew, s.dewPoint);
    maxHumidity = std::max(maxHumidity, s.relHumidity);
    minHumidity = std::min(minHumidity, s.relHumidity);
    maxGust = std::max(maxGust, s.windGust);
    maxUv = std::max(maxUv, s.uvIndex);
    maxCloud = std::max(maxCloud, s.cloudiness);
    wettestHour = std::max(wettestHour, hour.total);
    total += hour.total;
    snow += hour.snow;
    thunder = thunder || (s.thunder && hour.total > 0.0);
    if (h >= 8 && h < 20) {
      daytimeCloud += s.cloudiness;
      ++daytimeHours;
    }
  }
  // The day's symbol summarises the daytime sky and the day's total precipitation.
  WeatherSample summary = high;
  summary.cloudiness = static_cast<int>(std::lround(daytimeCloud / daytimeHours));
  summary.thunder = thunder;
  summary.fog = false;
  summary.precipKind =
      snow > 0.7 * total ? PrecipKind::snow : (snow > 0.3 * total ? PrecipKind::mixed : PrecipKind::rain);
  const double dailyRate = total < 0.3 ? 0.0 : (total < 2.0 ? 0.5 : (total < 8.0 ? 2.0 : 5.0));
  const std::string symbol = forecaSymbol(summary, dailyRate, true);

  json::object row;
  row["date"] = formatDay(day);
  row["symbol"] = symbol;
  row["symbolPhrase"] = forecaSymbolPhrase(symbol, kLanguageCodes[style.language]);
  row["maxTemp"] = style.number(high.temperature);
  row["minTemp"] = style.number(low.temperature);
  if (style.full) {
    row["maxFeelsLikeTemp"] = style.number(maxFeels);
    row["minFeelsLikeTemp"] = style.number(minFeels);
    row["maxRelHumidity"] = maxHumidity;
    row["minRelHumidity"] = minHumidity;
    row["maxDewPoint"] = style.number(maxDew);
    row["minDewPoint"] = style.number(minDew);
  }
  row["precipAccum"] = style.number(total);
  if (style.full) row["snowAccum"] = style.number(snow);
  row["maxWindSpeed"] = style.wind(windiest.windSpeed);
  row["windDir"] = windiest.windDirection;
  if (!style.full) return row;
  row["maxWindGust"] = style.wind(maxGust);
  row["precipProb"] = precipitationProbability(wettestHour, maxCloud);
  row["cloudiness"] = static_cast<int>(std::lround(daytimeCloud / daytimeHours));
  const SunEvents sun = WeatherModel::sunEvents(point, day, offset);
  if (sun.sunrise) row["sunrise"] = formatLocalMinute(*sun.sunrise, offset);
  if (sun.sunset) row["sunset"] = formatLocalMinute(*sun.sunset, offset);
  row["uvIndex"] = style.number(maxUv);
  return row;
}

json::object warningRecord(const WarningEvent& event, bool full) {
  const WarningWords& words = kWarningWords[static_cast<int>(event.kind)];
  const auto level = static_cast<int>(event.level);
  // Wording varies per warning: most carry four languages, some only Nordic ones (so a reader
  // asking for English falls back), a few none at all.
  const std::uint64_t variant = event.key % 100;
  std::vector<Language> languages;
  if (variant < 8)
    languages = {};
  else if (variant < 20)
    languages = {finnish, swedish};
  else if (variant < 60)
    languages = {english, finnish, swedish, german};
  else
    languages = {finnish, swedish, english, german};

  json::object warning;
  warning["name"] = words.englishName;
  warning["type"] = words.id;
  warning["significance"] = kSignificanceNames[level];
  warning["attribution"] = "Ombrine Simulated Weather Service";
  if (full && variant % 4 != 3) warning["attributionUrl"] = fmt::format("https://warnings.example.org/{}", words.id);
  warning["validFrom"] = formatUtc(event.validFrom);
  warning["validUntil"] = formatUtc(event.validUntil);
  json::array descriptions;
  for (const Language l : languages) {
    json::object description;
    description["lang"] = kLanguageCodes[l];
    description["title"] = words.titles[l];
    description["text"] = words.texts[l];
    descriptions.push_back(std::move(description));
  }
  warning["description"] = std::move(descriptions);
  warning["significanceDescription"] = kSignificanceDescriptions[level];
  warning["sent"] = formatUtc(event.issued, true);
  if (full) {
    std::string title = fmt::format("{} warning for {}", kSignificanceNames[level], words.id);
    title[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(title[0])));
    warning["title"] = title;
    warning["langArea"] = event.area;
  }
  return warning;
}

// A scripted warning (sim/alert_scenarios.hpp) in the service's shape, worded in English only.
json::object scriptedWarningRecord(const ScriptedWarning& scripted, bool full) {
  const auto level = static_cast<int>(scripted.level);
  json::object warning;
  warning["name"] = scripted.event;
  warning["type"] = "scripted";
  warning["significance"] = kSignificanceNames[level];
  warning["attribution"] = scripted.sender;
  if (full) warning["attributionUrl"] = "https://warnings.example.org/scripted";
  warning["validFrom"] = formatUtc(scripted.validFrom);
  warning["validUntil"] = formatUtc(scripted.validUntil);
  json::array descriptions;
  json::object description;
  description["lang"] = "en";
  description["title"] = scripted.event;
  description["text"] = scripted.event + " in effect.";
  descriptions.push_back(std::move(description));
  warning["description"] = std::move(descriptions);
  warning["significanceDescription"] = kSignificanceDescriptions[level];
  warning["sent"] = formatUtc(scripted.issued, true);
  if (full) warning["title"] = scripted.event;
  return warning;
}

// ---- Routes --------------------------------------------------------------------------------

// Runs `build` for an authorised request with a valid point and wraps what it returns.
template <class Build>
SimResponse answer(const SimRequest& request, Build build) {
  try {
    const auto token = request.param("token");
    if (!token || token->empty()) throw Refusal{401, "Missing or invalid token"};
    const GeoPoint point = pointOf(request.captures.empty() ? std::string_view{} : request.captures.front());
    return SimResponse{.status = 200, .body = writeJson(build(point))};
  } catch (const Refusal& refusal) {
    return SimResponse{.status = refusal.status, .body = forecaErrorBody(refusal.status, refusal.message)};
  }
}

json::object envelope(std::string_view key, json::array rows) {
  json::object object;
  object[key] = std::move(rows);
  return object;
}

SimRoute route(std::string name, std::string_view path, std::function<SimResponse(const SimRequest&)> handler) {
  return SimRoute{
      .name = std::move(name),
      .pattern = std::regex(fmt::format("/foreca(?:-alt)?/api/v1/{}([^/]*)", path)),
      .answer = std::move(handler),
      .errorBody = forecaErrorBody,
  };
}

}  // namespace

std::string forecaErrorBody(int status, std::string_view message) {
  json::object error;
  error["code"] = status;
  error["message"] = message;
  json::object body;
  body["error"] = std::move(error);
  return writeJson(body);
}

std::string forecaSymbol(const WeatherSample& sample, double meanRate, bool daylight) {
  int cloud = sample.cloudiness < 10   ? 0
              : sample.cloudiness < 30 ? 1
              : sample.cloudiness < 60 ? 2
              : sample.cloudiness < 85 ? 3
                                       : 4;
  int intensity = meanRate < 0.1 ? 0 : (sample.thunder ? 4 : (meanRate < 1.0 ? 1 : (meanRate < 4.0 ? 2 : 3)));
  const int type = sample.precipKind == PrecipKind::snow ? 2 : (sample.precipKind == PrecipKind::mixed ? 1 : 0);
  if (intensity > 0) {
    cloud = std::max(cloud, intensity == 3 ? 3 : 2);  // no rain from a clear sky, no downpour from a broken one
  } else if (sample.fog) {
    cloud = 6;
  } else if (sample.thinHighCloud && (cloud == 1 || cloud == 2)) {
    cloud = 5;
  }
  return fmt::format("{}{}{}{}", daylight ? 'd' : 'n', cloud, intensity, intensity > 0 ? type : 0);
}

std::string forecaSymbolPhrase(std::string_view symbol, std::string_view language) {
  const Phrasebook& book = kPhrasebooks[languageOf(language)];
  if (symbol.size() != 4) return book.clouds[3];
  const int cloud = std::clamp(symbol[1] - '0', 0, 6);
  const int intensity = std::clamp(symbol[2] - '0', 0, 4);
  const int type = std::clamp(symbol[3] - '0', 0, 2);
  if (intensity == 0) return book.clouds[cloud];
  const std::string precipitation = book.precipitation[type][intensity - 1];
  if (cloud >= 3) return precipitation;
  return std::string(book.clouds[cloud]) + book.conjunction + precipitation;
}

std::vector<SimRoute> forecaRoutes(const WeatherModel& model) {
  std::vector<SimRoute> routes;
  routes.push_back(route("foreca.current", "current/", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const Style style = styleOf(request);
      json::object body;
      body["current"] = currentRecord(model, point, request.now, style);
      return body;
    });
  }));
  routes.push_back(route("foreca.hourly", "forecast/hourly/", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const Style style = styleOf(request);
      const int periods = wholeParam(request, "periods", 1, 240, 24);
      const bool history = historyOf(request);
      // The first row is the next whole hour; with history also the hour already begun.
      const Instant first = floor<hours>(request.now) + hours(history ? 0 : 1);
      const int count = periods + (history ? 1 : 0);
      // Precipitation of every hour from the one before the first row to the one after the last.
      std::vector<WeatherModel::Accumulation> precipitation;
      for (int i = -1; i <= count; ++i) {
        const Instant start = first + hours(i);
        precipitation.push_back(model.accumulation(point, start, start + hours(1)));
      }
      json::array rows;
      for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i) + 1;
        rows.push_back(hourlyRecord(model, point, first + hours(i), style, precipitation[at - 1], precipitation[at],
                                    precipitation[at + 1]));
      }
      return envelope("forecast", std::move(rows));
    });
  }));
  routes.push_back(route("foreca.daily", "forecast/daily/", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const Style style = styleOf(request);
      const int periods = wholeParam(request, "periods", 1, 16, 7);
      const sys_days today = localDay(request.now, longitudeUtcOffset(point.longitude));
      json::array rows;
      for (int i = 0; i < periods; ++i) rows.push_back(dailyRecord(model, point, today + days(i), style));
      return envelope("forecast", std::move(rows));
    });
  }));
  routes.push_back(route("foreca.minutely", "forecast/minutely/", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const minutes offset = longitudeUtcOffset(point.longitude);
      const Instant start = floor<minutes>(request.now);
      json::array rows;
      for (int i = 0; i < 90; ++i) {
        const Instant time = start + minutes(i);
        json::object row;
        row["time"] = formatLocalMinute(time, offset);
        row["precipRate"] = roundedNumber(model.sample(point, time).precipRate, 2);
        rows.push_back(std::move(row));
      }
      return envelope("forecast", std::move(rows));
    });
  }));
  routes.push_back(route("foreca.airquality", "air-quality/forecast/hourly/", [model](const SimRequest& request) {
    return answer(request, [&](GeoPoint point) {
      const int periods = wholeParam(request, "periods", 1, 96, 24);
      const minutes offset = longitudeUtcOffset(point.longitude);
      Instant time = floor<hours>(request.now);
      json::array rows;
      for (int i = 0; i < periods; ++i, time += hours(1)) {
        json::object row;
        row["time"] = formatLocalMinute(time, offset);
        row["AQI"] = model.airQualityIndex(point, time);
        rows.push_back(std::move(row));
      }
      return envelope("forecast", std::move(rows));
    });
  }));
  routes.push_back(route("foreca.warnings", "warning/",
                         [model, sites = alertScenarioSitesFromEnvironment()](const SimRequest& request) {
                           return answer(request, [&](GeoPoint point) {
                             const Style style = styleOf(request);
                             json::array rows;
                             if (const auto scripted = scriptedWarnings(sites, point, request.now)) {
                               for (const ScriptedWarning& warning : *scripted)
                                 rows.push_back(scriptedWarningRecord(warning, style.full));
                               return envelope("warnings", std::move(rows));
                             }
                             for (const WarningEvent& event : model.warnings(point, request.now)) {
                               // Only warnings already issued; recently ended ones stay in the answer for a day and
                               // readers filter them.
                               if (event.issued > request.now || event.validUntil <= request.now - hours(24)) continue;
                               rows.push_back(warningRecord(event, style.full));
                             }
                             return envelope("warnings", std::move(rows));
                           });
                         }));
  return routes;
}

}  // namespace ombrine::sim
