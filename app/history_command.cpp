#include "app/history_command.hpp"

#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/history_chart.hpp"
#include "app/place_query.hpp"
#include "core/errors.hpp"
#include "core/geocoder.hpp"
#include "core/value_json.hpp"
#include "history/climate_normals_service.hpp"
#include "history/history_comparison.hpp"
#include "history/sun_labels.hpp"
#include "history/zoned_calendar.hpp"
#include "platform/coroutines.hpp"
#include "platform/http_client.hpp"
#include "platform/log.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct HistoryOptions {
  std::string place;
  std::string compare;
  std::string output;
  bool json = false;
};

struct PlaceHistory {
  NamedPlace place;
  HistoryData history;
};

constexpr const char* kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Query text that is a coordinate ("69.65,18.96") is named by reverse geocoding.
bool looksLikeCoordinate(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789.,-+ ") == std::string::npos;
}

std::string cell(std::optional<double> value, const char* format) {
  return value ? fmt::format(fmt::runtime(format), *value) : std::string("--");
}

// Low, high, precipitation and sunshine of one month, 30 columns.
std::string monthCells(const std::vector<std::vector<std::optional<double>>>& series, size_t month) {
  const auto sunshine = series[3][month] ? std::optional(*series[3][month] / 60.0) : std::nullopt;
  return fmt::format("{:>6}{:>7}{:>9}{:>7}  ", cell(series[0][month], "{:.1f}"), cell(series[1][month], "{:.1f}"),
                     cell(series[2][month], "{:.0f}"), cell(sunshine, "{:.0f}"));
}

std::vector<std::vector<std::optional<double>>> placeSeries(const HistoryData& history) {
  return {monthlyValues(history, HistoryComparisonMode::temperature, HistoryComparisonMonthlySeriesKind::minimum),
          monthlyValues(history, HistoryComparisonMode::temperature, HistoryComparisonMonthlySeriesKind::maximum),
          monthlyValues(history, HistoryComparisonMode::precipitation, HistoryComparisonMonthlySeriesKind::value),
          monthlyValues(history, HistoryComparisonMode::sunshine, HistoryComparisonMonthlySeriesKind::value)};
}

std::string clock(ZonedCalendar& calendar, std::optional<Date> event) {
  if (!event) return "--";
  const auto local = calendar.localTime(*event);
  return local ? fmt::format("{:02}:{:02}", local->hour, local->minute) : std::string("--");
}

std::string sunCells(const std::optional<DailySunTimes>& day, ZonedCalendar& calendar) {
  if (!day) return fmt::format("{:<28}", "--");
  const std::string_view label = sunDaylightStateLabel(day->daylightState);
  std::string length = "--";
  if (day->daylightDuration) {
    const auto seconds = static_cast<long>(*day->daylightDuration);
    length = fmt::format("{}:{:02}", seconds / 3600, seconds % 3600 / 60);
  }
  if (!label.empty() && !day->sunrise && !day->sunset) return fmt::format("{:<21}{:<7}", label, length);
  return fmt::format("{:<7}{:<7}{:<7}{:<7}", clock(calendar, day->sunrise), clock(calendar, day->sunset), length, "");
}

// The 21st of each month: both solstices and days near the equinoxes.
bool isSampleDay(const SunHistoryComparisonDay& day) { return day.key.day == 21; }

void printText(const PlaceHistory& primary, const std::optional<PlaceHistory>& comparison,
               const SunHistoryComparisonData& sun) {
  const auto first = placeSeries(primary.history);
  const auto second = comparison ? placeSeries(comparison->history) : decltype(first){};
  std::cout << "Climate normals for " << primary.place.name;
  if (comparison) std::cout << " and " << comparison->place.name;
  std::cout << " (1991-2020 where available)\n\n";
  std::cout << fmt::format("{:<7}{:<32}{}\n", "", primary.place.name, comparison ? comparison->place.name : "");
  const std::string header = fmt::format("{:>6}{:>7}{:>9}{:>7}  ", "Low°C", "High°C", "Rain mm", "Sun h");
  std::cout << fmt::format("{:<7}{}{}\n", "Month", header, comparison ? header : "");
  for (size_t month = 0; month < 12; ++month) {
    std::cout << fmt::format("{:<7}{}{}\n", kMonthNames[month], monthCells(first, month),
                             comparison ? monthCells(second, month) : "");
  }

  std::cout << fmt::format("\nSun through {}. {}\n\n", sun.referenceYear, kSunComparisonCaption);
  std::cout << fmt::format("{:<8}{:<28}{}\n", "", primary.place.name, comparison ? comparison->place.name : "");
  const std::string sunHeader = fmt::format("{:<7}{:<7}{:<7}{:<7}", "Rise", "Set", "Day", "");
  std::cout << fmt::format("{:<8}{}{}\n", "Date", sunHeader, comparison ? sunHeader : "");
  auto primaryCalendar = ZonedCalendar::make(primary.place.zone);
  auto comparisonCalendar = ZonedCalendar::make(comparison ? comparison->place.zone : primary.place.zone);
  for (const auto& day : sun.days) {
    if (!isSampleDay(day) || !primaryCalendar || !comparisonCalendar) continue;
    std::cout << fmt::format("{:<8}{}{}\n", fmt::format("{} {}", kMonthNames[day.key.month - 1], day.key.day),
                             sunCells(day.primary, *primaryCalendar),
                             comparison ? sunCells(day.comparison, *comparisonCalendar) : "");
  }
}

void writeOptionalValues(JsonWriter& json, const std::vector<std::optional<double>>& values) {
  json.beginArray();
  for (const auto& value : values) {
    if (value) json.number(*value);
    else json.null();
  }
  json.endArray();
}

void writePlace(JsonWriter& json, const PlaceHistory& place) {
  json.beginObject();
  writeKey(json, "name", place.place.name);
  writeKey(json, "latitude", place.place.location.latitude());
  writeKey(json, "longitude", place.place.location.longitude());
  writeKey(json, "timeZone", place.place.zone.identifier());
  json.key("history");
  writeJson(json, place.history);
  json.endObject();
}

void writeSunDay(JsonWriter& json, std::string_view key, const std::optional<DailySunTimes>& day) {
  if (!day) return;
  json.key(key);
  json.beginObject();
  writeKey(json, "daylightState", sunDaylightStateName(day->daylightState));
  writeOptionalKey(json, "sunrise", day->sunrise);
  writeOptionalKey(json, "sunset", day->sunset);
  writeOptionalKey(json, "sunriseClockSeconds", day->sunriseClockSeconds);
  writeOptionalKey(json, "sunsetClockSeconds", day->sunsetClockSeconds);
  writeOptionalKey(json, "daylightDuration", day->daylightDuration);
  json.endObject();
}

std::string_view roleName(HistoryComparisonPlaceRole role) {
  return role == HistoryComparisonPlaceRole::primary ? "primary" : "comparison";
}

std::string_view kindName(HistoryComparisonMonthlySeriesKind kind) {
  switch (kind) {
    case HistoryComparisonMonthlySeriesKind::maximum:
      return "maximum";
    case HistoryComparisonMonthlySeriesKind::minimum:
      return "minimum";
    case HistoryComparisonMonthlySeriesKind::value:
      return "value";
  }
  return "value";
}

void printJson(const PlaceHistory& primary, const std::optional<PlaceHistory>& comparison,
               const SunHistoryComparisonData& sun) {
  std::string out;
  JsonWriter json(out);
  json.beginObject();
  json.key("primary");
  writePlace(json, primary);
  if (comparison) {
    json.key("comparison");
    writePlace(json, *comparison);
  }
  json.key("series");
  json.beginObject();
  const std::optional<HistoryComparisonPlace> second =
      comparison ? std::optional(HistoryComparisonPlace{comparison->place.name, comparison->history}) : std::nullopt;
  const std::pair<const char*, HistoryComparisonMode> modes[] = {{"temperature", HistoryComparisonMode::temperature},
                                                                 {"precipitation", HistoryComparisonMode::precipitation},
                                                                 {"sunshine", HistoryComparisonMode::sunshine}};
  for (const auto& [name, mode] : modes) {
    json.key(name);
    json.beginArray();
    for (const auto& series : monthlyComparisonSeries(mode, {primary.place.name, primary.history}, second)) {
      json.beginObject();
      writeKey(json, "placeName", series.placeName);
      writeKey(json, "role", roleName(series.role));
      writeKey(json, "kind", kindName(series.kind));
      json.key("values");
      writeOptionalValues(json, series.values);
      json.endObject();
    }
    json.endArray();
  }
  json.endObject();
  json.key("sun");
  json.beginObject();
  writeKey(json, "referenceYear", sun.referenceYear);
  writeKey(json, "caption", kSunComparisonCaption);
  json.key("days");
  json.beginArray();
  for (const auto& day : sun.days) {
    json.beginObject();
    writeKey(json, "date", fmt::format("{:04}-{:02}-{:02}", day.key.year, day.key.month, day.key.day));
    writeSunDay(json, "primary", day.primary);
    writeSunDay(json, "comparison", day.comparison);
    json.endObject();
  }
  json.endArray();
  json.endObject();
  json.endObject();
  std::cout << out << "\n";
}

int run(const HistoryOptions& options) {
  if (options.place.empty()) throw InvalidPlaceQuery("name a place (e.g. Munich) or a coordinate LAT,LON");
  if (!options.output.empty() && !isHistoryChartFile(options.output)) {
    throw InvalidPlaceQuery("-o takes a file name ending in .png or .svg");
  }
  ProgramServices program;
  Services& services = *program;
  PlaceHistory primary{resolveNamedPlace(services, options.place, looksLikeCoordinate(options.place)), {}};
  std::optional<PlaceHistory> comparison;
  if (!options.compare.empty()) {
    comparison = PlaceHistory{resolveNamedPlace(services, options.compare, looksLikeCoordinate(options.compare)), {}};
  }
  // Both places' normals are asked at once.
  std::vector<Task<HistoryData>> loads;
  loads.push_back(services.climate().historyData(primary.place.location));
  if (comparison) loads.push_back(services.climate().historyData(comparison->place.location));
  auto histories = services.runtime().runBlocking(whenAll(std::move(loads)));
  primary.history = std::move(histories[0]);
  if (comparison) comparison->history = std::move(histories[1]);

  auto calendar = ZonedCalendar::make(primary.place.zone);
  const auto today = calendar ? calendar->localTime(Date::fromSystem(services.clock().now())) : std::nullopt;
  const int referenceYear = today ? today->date.year : 2026;
  const SunComparisonPlace primarySun{primary.place.name, primary.place.location, primary.place.zone};
  const std::optional<SunComparisonPlace> comparisonSun =
      comparison ? std::optional(SunComparisonPlace{comparison->place.name, comparison->place.location, comparison->place.zone})
                 : std::nullopt;
  const SunHistoryComparisonData sun = sunHistoryComparison(referenceYear, primarySun, comparisonSun);

  if (options.json) printJson(primary, comparison, sun);
  else printText(primary, comparison, sun);
  if (!options.output.empty()) {
    const HistoryComparisonPlace first{primary.place.name, primary.history};
    const std::optional<HistoryComparisonPlace> second =
        comparison ? std::optional(HistoryComparisonPlace{comparison->place.name, comparison->history}) : std::nullopt;
    const HistoryChart chart{
        .temperature = monthlyComparisonSeries(HistoryComparisonMode::temperature, first, second),
        .precipitation = monthlyComparisonSeries(HistoryComparisonMode::precipitation, first, second),
        .sun = sun,
        .primaryName = primary.place.name,
        .comparisonName = comparison ? std::optional(comparison->place.name) : std::nullopt};
    writeHistoryChart(chart, options.output);
    logf("ombrine history: chart written to {}", options.output);
  }
  return 0;
}

}  // namespace

void addHistoryCommand(CLI::App& app) {
  auto options = std::make_shared<HistoryOptions>();
  CLI::App* command = app.add_subcommand("history", "Monthly climate normals and the sun through the year at a place");
  command->add_option("place", options->place, "A place name (\"Munich\") or a coordinate LAT,LON");
  command->add_option("--compare", options->compare, "A second place to set beside the first");
  command->add_flag("--json", options->json, "Print the normals, series and sun days as JSON");
  command->add_option("-o,--output", options->output, "Also draw the charts into FILE.png or FILE.svg");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine history: {}", error.what());
      setExitCode(2);
    } catch (const NetworkError& error) {
      if (error.which() == NetworkError::exceededApiLimit) {
        logf("ombrine history: the climate service's request limit is reached; try again later");
      } else {
        logf("ombrine history: {}", failureText(std::current_exception(), "the climate service"));
      }
      setExitCode(1);
    } catch (const HttpError& error) {
      logf("ombrine history: could not reach the climate services: {}", error.what());
      setExitCode(1);
    } catch (const std::exception& error) {
      logf("ombrine history: {}", failureText(std::current_exception(), "the climate service"));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
