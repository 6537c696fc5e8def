#include "app/history_command.hpp"

#include <fmt/format.h>

#include <unicode/dtfmtsym.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/history_chart.hpp"
#include "app/place_query.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "history/climate_normals_service.hpp"
#include "history/history_comparison.hpp"
#include "history/sun_labels.hpp"
#include "history/zoned_calendar.hpp"
#include "platform/async/coroutines.hpp"
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

// Query text that is a coordinate ("69.65,18.96") is named by reverse geocoding.
bool looksLikeCoordinate(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789.,-+ ") == std::string::npos;
}

// The widths of the month table's four value columns: each at least the English one, and one
// space wider than its heading in the reader's language.
struct MonthColumns {
  std::size_t month = 7;
  std::size_t values[4] = {6, 7, 9, 7};
  std::size_t block() const { return values[0] + values[1] + values[2] + values[3] + 2; }
};

constexpr const char* kMonthHeadings[] = {"Low°C", "High°C", "Rain mm", "Sun h"};

// The short month names of the locale's Gregorian calendar ("Jan", "janv.", "1月").
std::vector<std::string> monthNames(const icu::Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::DateFormatSymbols symbols(locale, "gregorian", status);
  int32_t count = 0;
  const icu::UnicodeString* names = U_SUCCESS(status) ? symbols.getShortMonths(count) : nullptr;
  std::vector<std::string> out;
  for (int32_t i = 0; i < 12; ++i) {
    std::string name;
    if (names && i < count) names[i].toUTF8String(name);
    out.push_back(name.empty() ? std::to_string(i + 1) : name);
  }
  return out;
}

std::string cell(const ScreenText& text, std::optional<double> value, int decimals) {
  return value ? text.number(*value, {.fractionDigits = decimals}) : std::string("--");
}

// Low, high, precipitation and sunshine of one month.
std::string monthCells(const ScreenText& text, const MonthColumns& columns,
                       const std::vector<std::vector<std::optional<double>>>& series, size_t month) {
  const auto sunshine = series[3][month] ? std::optional(*series[3][month] / 60.0) : std::nullopt;
  const std::string cells[] = {cell(text, series[0][month], 1), cell(text, series[1][month], 1),
                               cell(text, series[2][month], 0), cell(text, sunshine, 0)};
  std::string out;
  for (int i = 0; i < 4; ++i) out += padLeft(cells[i], columns.values[i]);
  return out + "  ";
}

std::vector<std::vector<std::optional<double>>> placeSeries(const HistoryData& history) {
  return {monthlyValues(history, HistoryComparisonMode::temperature, HistoryComparisonMonthlySeriesKind::minimum),
          monthlyValues(history, HistoryComparisonMode::temperature, HistoryComparisonMonthlySeriesKind::maximum),
          monthlyValues(history, HistoryComparisonMode::precipitation, HistoryComparisonMonthlySeriesKind::value),
          monthlyValues(history, HistoryComparisonMode::sunshine, HistoryComparisonMonthlySeriesKind::value)};
}

std::string clock(const ScreenText& text, ZonedCalendar& calendar, std::optional<Date> event) {
  if (!event) return "--";
  const auto local = calendar.localTime(*event);
  return local ? text.clock(local->hour, local->minute) : std::string("--");
}

// The sun table's columns: rise, set and day length, each fitting its heading in the reader's
// language and its values, at least the English 7, then a gap before the next place.
struct SunColumns {
  std::size_t rise = 7, set = 7, length = 7, gap = 7;
  std::size_t block() const { return rise + set + length + gap; }
};

// Sunrise, sunset and day length of one day.
std::string sunCells(const ScreenText& text, const SunColumns& columns, const std::optional<DailySunTimes>& day,
                     ZonedCalendar& calendar) {
  if (!day) return padRight("--", columns.block());
  const std::string_view label = text(sunDaylightStateLabel(day->daylightState));
  std::string length = "--";
  if (day->daylightDuration) {
    const auto seconds = static_cast<long>(*day->daylightDuration);
    length = text.number(static_cast<double>(seconds / 3600)) + ":" +
             text.number(static_cast<double>(seconds % 3600 / 60), {.integerDigits = 2});
  }
  std::string times;
  if (!label.empty() && !day->sunrise && !day->sunset) {
    // "Midnight sun" where the times would be.
    times = padRight(cutToWidth(label, columns.rise + columns.set - 1), columns.rise + columns.set);
  } else {
    times = padRight(clock(text, calendar, day->sunrise), columns.rise) +
            padRight(clock(text, calendar, day->sunset), columns.set);
  }
  return times + padRight(length, columns.length + columns.gap);
}

// The 21st of each month: both solstices and days near the equinoxes.
bool isSampleDay(const SunHistoryComparisonDay& day) { return day.key.day == 21; }

void printText(const PlaceHistory& primary, const std::optional<PlaceHistory>& comparison,
               const SunHistoryComparisonData& sun) {
  const ScreenText text(currentLocale());
  const std::vector<std::string> months = monthNames(text.locale());
  const auto first = placeSeries(primary.history);
  const auto second = comparison ? placeSeries(comparison->history) : decltype(first){};
  const std::string period = text.number(1991, {.grouping = false}) + "-" + text.number(2020, {.grouping = false});
  std::cout << (comparison ? text.format("Climate normals for {} and {} ({} where available)", primary.place.name,
                                         comparison->place.name, period)
                           : text.format("Climate normals for {} ({} where available)", primary.place.name, period))
            << "\n\n";

  MonthColumns columns;
  for (const std::string& name : months) columns.month = std::max(columns.month, displayWidth(name) + 1);
  columns.month = std::max(columns.month, displayWidth(text("Month")) + 1);
  std::string header;
  for (int i = 0; i < 4; ++i) {
    columns.values[i] = std::max(columns.values[i], displayWidth(text(kMonthHeadings[i])) + 1);
    header += padLeft(text(kMonthHeadings[i]), columns.values[i]);
  }
  header += "  ";
  const std::string blank(columns.month, ' ');
  std::cout << blank << padRight(cutToWidth(primary.place.name, columns.block() - 1), columns.block())
            << (comparison ? comparison->place.name : "") << "\n";
  std::cout << padRight(text("Month"), columns.month) << header << (comparison ? header : "") << "\n";
  for (size_t month = 0; month < 12; ++month) {
    std::cout << padRight(months[month], columns.month) << monthCells(text, columns, first, month)
              << (comparison ? monthCells(text, columns, second, month) : "") << "\n";
  }

  std::cout << "\n"
            << text.format("Sun through {}.", text.number(sun.referenceYear, {.grouping = false})) << " "
            << text(kSunComparisonCaption) << "\n\n";
  // Each sun column fits its heading and its values; the date column a month name and day.
  const std::size_t clockWidth = displayWidth(text.clock(23, 59)) + 1;
  SunColumns sunColumns;
  sunColumns.rise = std::max({sunColumns.rise, clockWidth, displayWidth(text("Rise")) + 1});
  sunColumns.set = std::max({sunColumns.set, clockWidth, displayWidth(text("Set")) + 1});
  sunColumns.length = std::max({sunColumns.length, clockWidth, displayWidth(text("Day")) + 1});
  std::size_t dayWidth = std::max<std::size_t>(8, displayWidth(text("Date")) + 1);
  for (const std::string& name : months)
    dayWidth = std::max(dayWidth, displayWidth(name) + displayWidth(text.number(28)) + 2);
  std::cout << std::string(dayWidth, ' ')
            << padRight(cutToWidth(primary.place.name, sunColumns.block() - 1), sunColumns.block())
            << (comparison ? comparison->place.name : "") << "\n";
  const std::string sunHeader = padRight(text("Rise"), sunColumns.rise) + padRight(text("Set"), sunColumns.set) +
                                padRight(text("Day"), sunColumns.length + sunColumns.gap);
  std::cout << padRight(text("Date"), dayWidth) << sunHeader << (comparison ? sunHeader : "") << "\n";
  auto primaryCalendar = ZonedCalendar::make(primary.place.zone);
  auto comparisonCalendar = ZonedCalendar::make(comparison ? comparison->place.zone : primary.place.zone);
  for (const auto& day : sun.days) {
    if (!isSampleDay(day) || !primaryCalendar || !comparisonCalendar) continue;
    std::cout << padRight(months[day.key.month - 1] + " " + text.number(day.key.day), dayWidth)
              << sunCells(text, sunColumns, day.primary, *primaryCalendar)
              << (comparison ? sunCells(text, sunColumns, day.comparison, *comparisonCalendar) : "") << "\n";
  }
}

void writeOptionalValues(JsonWriter& json, const std::vector<std::optional<double>>& values) {
  json.beginArray();
  for (const auto& value : values) {
    if (value)
      json.number(*value);
    else
      json.null();
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
    case HistoryComparisonMonthlySeriesKind::maximum: return "maximum";
    case HistoryComparisonMonthlySeriesKind::minimum: return "minimum";
    case HistoryComparisonMonthlySeriesKind::value: return "value";
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
  const std::pair<const char*, HistoryComparisonMode> modes[] = {
      {"temperature", HistoryComparisonMode::temperature},
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
      comparison ? std::optional(
                       SunComparisonPlace{comparison->place.name, comparison->place.location, comparison->place.zone})
                 : std::nullopt;
  const SunHistoryComparisonData sun = sunHistoryComparison(referenceYear, primarySun, comparisonSun);

  if (options.json)
    printJson(primary, comparison, sun);
  else
    printText(primary, comparison, sun);
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
