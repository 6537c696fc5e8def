#include "app/sun_command.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/place_query.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "history/daily_sun_times.hpp"
#include "history/sun_labels.hpp"
#include "history/zoned_calendar.hpp"
#include "platform/log.hpp"
#include "wiring/services.hpp"

namespace ombrine::app {

namespace {

struct SunOptions {
  std::string place;
  std::string at;
  std::string date;
  int year = 0;
  bool json = false;
};

using SunPlace = NamedPlace;

SunPlace resolvePlace(const SunOptions& options, Services& services) {
  const std::string query = !options.at.empty() ? options.at : options.place;
  if (query.empty()) throw InvalidPlaceQuery("name a place (e.g. Tromsø) or give --at LAT,LON");
  return resolveNamedPlace(services, query, !options.at.empty());
}

CivilDate parseDate(const std::string& text) {
  int year = 0, month = 0, day = 0;
  char tail = 0;
  if (text.size() != 10 || std::sscanf(text.c_str(), "%4d-%2d-%2d%c", &year, &month, &day, &tail) != 3) {
    throw InvalidPlaceQuery("--date takes YYYY-MM-DD, e.g. 2026-06-21");
  }
  const CivilDate date{year, month, day};
  if (month < 1 || month > 12 || civilFromDays(daysFromCivil(date)) != date) {
    throw InvalidPlaceQuery("--date names no day of the calendar: " + text);
  }
  return date;
}

std::string dateText(CivilDate date) { return fmt::format("{:04}-{:02}-{:02}", date.year, date.month, date.day); }

// HH:MM:SS on the place's clock; "+1"/"-1" marks an event on a neighbouring local day.
std::string clockText(const ScreenText& text, ZonedCalendar& calendar, CivilDate day, std::optional<Date> event) {
  if (!event) return "--";
  const auto local = calendar.localTime(*event);
  if (!local) return "--";
  std::string shown = text.clock(local->hour, local->minute, local->second);
  if (const auto days = daysFromCivil(local->date) - daysFromCivil(day); days != 0) {
    shown += " " + text.number(static_cast<double>(days), {.sign = true});
  }
  return shown;
}

std::string durationText(const ScreenText& text, std::optional<double> seconds) {
  if (!seconds) return "--";
  const auto whole = static_cast<long>(*seconds);
  return text.format("{} h {} min", text.number(static_cast<double>(whole / 3600)),
                     text.number(static_cast<double>(whole % 3600 / 60), {.integerDigits = 2}));
}

std::string shownDay(const ScreenText& text, CivilDate date) { return text.day(date.year, date.month, date.day); }

void writeOptionalInstant(JsonWriter& json, std::string_view key, std::optional<Date> instant) {
  if (!instant) return;
  json.key(key);
  json.string(iso8601String(*instant));
}

void writeDay(JsonWriter& json, CivilDate day, const DailySunTimes& times, const Solar* events) {
  json.beginObject();
  writeKey(json, "date", dateText(day));
  writeKey(json, "daylightState", sunDaylightStateName(times.daylightState));
  writeOptionalInstant(json, "sunrise", times.sunrise);
  writeOptionalInstant(json, "sunset", times.sunset);
  writeOptionalKey(json, "sunriseClockSeconds", times.sunriseClockSeconds);
  writeOptionalKey(json, "sunsetClockSeconds", times.sunsetClockSeconds);
  writeOptionalKey(json, "daylightDuration", times.daylightDuration);
  if (events) {
    writeOptionalInstant(json, "civilSunrise", events->civilSunrise);
    writeOptionalInstant(json, "civilSunset", events->civilSunset);
    writeOptionalInstant(json, "nauticalSunrise", events->nauticalSunrise);
    writeOptionalInstant(json, "nauticalSunset", events->nauticalSunset);
    writeOptionalInstant(json, "astronomicalSunrise", events->astronomicalSunrise);
    writeOptionalInstant(json, "astronomicalSunset", events->astronomicalSunset);
  }
  json.endObject();
}

void beginDocument(JsonWriter& json, const SunPlace& place) {
  json.beginObject();
  writeKey(json, "place", place.name);
  writeKey(json, "latitude", place.location.latitude());
  writeKey(json, "longitude", place.location.longitude());
  writeKey(json, "timeZone", place.zone.identifier());
  json.key("days");
  json.beginArray();
}

void printHeading(const ScreenText& text, const SunPlace& place) {
  std::cout << text.format("Sun in {}", place.name) << "  "
            << text.coordinate(place.location.latitude(), place.location.longitude(), 3) << "  "
            << place.zone.identifier() << "\n";
}

int showDay(const SunPlace& place, CivilDate day, bool asJson) {
  const auto solarDay = localSolarDay(day, place.location, place.zone);
  auto calendar = ZonedCalendar::make(place.zone);
  if (!solarDay || !calendar) {
    logf("ombrine sun: {} has no day {} in {}", place.name, dateText(day), place.zone.identifier());
    return 1;
  }
  const DailySunTimes& times = solarDay->day;
  const Solar& events = solarDay->events;
  if (asJson) {
    std::string out;
    JsonWriter json(out);
    beginDocument(json, place);
    writeDay(json, day, times, &events);
    json.endArray();
    json.endObject();
    std::cout << out << "\n";
    return 0;
  }
  const ScreenText text(currentLocale());
  printHeading(text, place);
  const std::string_view label = text(sunDaylightStateLabel(times.daylightState));
  std::cout << shownDay(text, day) << (label.empty() ? "" : "  ") << label << "\n";
  const struct {
    const char* name;
    std::optional<Date> event;
  } lines[] = {
      {"Astronomical dawn", events.astronomicalSunrise},
      {"Nautical dawn", events.nauticalSunrise},
      {"Civil dawn", events.civilSunrise},
      {"Sunrise", times.sunrise},
      {"Sunset", times.sunset},
      {"Civil dusk", events.civilSunset},
      {"Nautical dusk", events.nauticalSunset},
      {"Astronomical dusk", events.astronomicalSunset},
  };
  // The widest name in the reader's language and two spaces (19 columns in English).
  std::size_t width = displayWidth(text("Daylight"));
  for (const auto& line : lines) width = std::max(width, displayWidth(text(line.name)));
  width += 2;
  for (const auto& line : lines) {
    std::cout << "  " << padRight(text(line.name), width) << clockText(text, *calendar, day, line.event) << "\n";
  }
  std::cout << "  " << padRight(text("Daylight"), width) << durationText(text, times.daylightDuration) << "\n";
  return 0;
}

int showYear(const SunPlace& place, int year, bool asJson) {
  const auto days = dailySunTimes(year, place.location, place.zone);
  auto calendar = ZonedCalendar::make(place.zone);
  if (days.empty() || !calendar) {
    logf("ombrine sun: no calendar for {}", place.zone.identifier());
    return 1;
  }
  std::string out;
  JsonWriter json(out);
  const ScreenText text(currentLocale());
  // Each column as wide as its heading or its widest value, and one space; at least 12.
  const auto column = [&](std::string_view heading, std::string_view value) {
    return std::max<std::size_t>(12, std::max(displayWidth(text(heading)), displayWidth(value)) + 1);
  };
  const std::size_t dayWidth = column("Date", shownDay(text, {year, 12, 31}));
  const std::size_t timeWidth = column("Sunrise", text.clock(23, 59, 59) + " +1");
  const std::size_t setWidth = column("Sunset", text.clock(23, 59, 59) + " +1");
  if (asJson)
    beginDocument(json, place);
  else {
    printHeading(text, place);
    std::cout << padRight(text("Date"), dayWidth) << padRight(text("Sunrise"), timeWidth)
              << padRight(text("Sunset"), setWidth) << text("Daylight") << "\n";
  }
  for (const auto& times : days) {
    const CivilDate day = calendar->localTime(times.date)->date;
    if (asJson) {
      writeDay(json, day, times, nullptr);
      continue;
    }
    const std::string_view label = text(sunDaylightStateLabel(times.daylightState));
    std::string events = label.empty() || times.sunrise || times.sunset
                             ? padRight(clockText(text, *calendar, day, times.sunrise), timeWidth) +
                                   padRight(clockText(text, *calendar, day, times.sunset), setWidth)
                             : padRight(cutToWidth(label, timeWidth + setWidth - 1), timeWidth + setWidth);
    std::cout << padRight(shownDay(text, day), dayWidth) << events << durationText(text, times.daylightDuration)
              << "\n";
  }
  if (asJson) {
    json.endArray();
    json.endObject();
    std::cout << out << "\n";
  }
  return 0;
}

int run(const SunOptions& options) {
  // The date is checked before any service starts: a usage error costs nothing.
  std::optional<CivilDate> day;
  if (!options.date.empty()) day = parseDate(options.date);
  ProgramServices program;
  Services& services = *program;
  const SunPlace place = resolvePlace(options, services);
  if (options.year != 0) return showYear(place, options.year, options.json);
  if (!day) {
    auto calendar = ZonedCalendar::make(place.zone);
    const auto local = calendar ? calendar->localTime(Date::fromSystem(services.clock().now())) : std::nullopt;
    if (!local) {
      logf("ombrine sun: no calendar for {}", place.zone.identifier());
      return 1;
    }
    day = local->date;
  }
  return showDay(place, *day, options.json);
}

}  // namespace

void addSunCommand(CLI::App& app) {
  auto options = std::make_shared<SunOptions>();
  CLI::App* command = app.add_subcommand("sun", "Sunrise, sunset, twilights and daylight at a place");
  auto* place = command->add_option("place", options->place, "A place name (\"Tromsø\", \"Paris, FR\")");
  command->add_option("--at", options->at, "A coordinate, LAT,LON (e.g. 69.65,18.96)")->excludes(place);
  auto* date =
      command->add_option("--date", options->date, "A day on the place's calendar, YYYY-MM-DD (default: today there)");
  command->add_option("--year", options->year, "Every day of a year, e.g. 2026")
      ->check(CLI::Range(1, 9999))
      ->excludes(date);
  command->add_flag("--json", options->json, "Print the days as JSON");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine sun: {}", error.what());
      setExitCode(2);
    } catch (const std::exception& error) {
      logf("ombrine sun: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
