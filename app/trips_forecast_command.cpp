#include "app/trips_forecast_command.hpp"

#include <fmt/format.h>
#include <unicode/datefmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/fetch_retry.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/record/one_call_weather_json.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_format.hpp"
#include "core/values/value_json.hpp"
#include "persistence/trip_cache_store.hpp"
#include "persistence/weather_cache.hpp"
#include "platform/linux/file_cloud_key_value_store.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "trips/trip_calendar.hpp"
#include "trips/trip_forecast.hpp"
#include "trips/trip_lookup.hpp"
#include "trips/trip_rules.hpp"
#include "trips/trip_store.hpp"

namespace ombrine::app {

namespace {

struct TripsForecastOptions {
  std::string trip;
  std::string provider;  // empty: the stored preference
  bool noFetch = false;
  bool json = false;
  bool verbose = false;
};

std::string_view providerLabel(WeatherDataSource source) {
  switch (source) {
    case WeatherDataSource::dynamic: return "unknown service";
    case WeatherDataSource::apple: return "system weather";
    case WeatherDataSource::foreca: return "Foreca";
    case WeatherDataSource::ow: return "OpenWeather";
  }
  return "unknown service";
}

std::string_view providerKey(WeatherDataSource source) {
  switch (source) {
    case WeatherDataSource::dynamic: return "dynamic";
    case WeatherDataSource::apple: return "apple";
    case WeatherDataSource::foreca: return "foreca";
    case WeatherDataSource::ow: return "ow";
  }
  return "dynamic";
}

// Dates in the reader's locale, on the wall clock of one zone.
class DayFormatter {
 public:
  DayFormatter(const icu::Locale& locale, const TimeZone& zone, const char* skeleton) {
    UErrorCode status = U_ZERO_ERROR;
    format_.reset(icu::DateFormat::createInstanceForSkeleton(icu::UnicodeString(skeleton), locale, status));
    if (U_FAILURE(status) || !format_) throw std::runtime_error("cannot format dates in this locale");
    format_->adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier())));
  }
  std::string operator()(Date date) const {
    icu::UnicodeString text;
    format_->format(date.unixSeconds() * 1000.0, text);
    std::string result;
    return text.toUTF8String(result);
  }

 private:
  std::unique_ptr<icu::DateFormat> format_;
};

std::string isoDay(const CivilDay& day) { return fmt::format("{:04}-{:02}-{:02}", day.year, day.month, day.day); }

struct DayLine {
  CivilDay day;
  Date noon;
  const OneCallWeather::Daily* weather = nullptr;
};

// Every calendar day of the trip in the destination's zone, each with its forecast row if any.
std::vector<DayLine> tripDays(const LoadedTripForecast& loaded) {
  const Trip& trip = loaded.forecast.trip;
  const TripCalendar calendar(trip.destination.timeZone);
  std::vector<DayLine> days;
  const CivilDay last = calendar.day(endMoment(trip));
  Date noon = calendar.date(calendar.day(trip.dates.from), WallTime{12, 0, 0});
  // A trip is days, not months; the bound only guards against a corrupt record.
  for (int guard = 0; calendar.day(noon) <= last && guard < 3660; ++guard) {
    DayLine line{calendar.day(noon), noon, nullptr};
    for (const OneCallWeather::Daily& row : loaded.forecast.weather) {
      if (calendar.day(row.dt) == line.day) line.weather = &row;
    }
    days.push_back(line);
    noon = calendar.addingDays(noon, 1);
  }
  return days;
}

void printJson(const LoadedTripForecast& loaded, Date now) {
  const Trip& trip = loaded.forecast.trip;
  boost::json::object document;
  document["trip"] = parseJson(encodeTrip(trip));
  boost::json::value daily = nullptr;
  if (loaded.entry) {
    const CachedWeather& cached = loaded.entry->cachedWeather;
    boost::json::object source;
    source["place"] = cached.name;
    source["provider"] = providerKey(weatherDataSource(cached.weather));
    if (loaded.entry->requestedProvider) source["requestedProvider"] = providerKey(*loaded.entry->requestedProvider);
    source["observedAt"] = cached.weather.current.dt.timeIntervalSinceReferenceDate;
    source["fetched"] = loaded.fetched;
    document["source"] = std::move(source);
    daily = oneCallWeatherToJson(cached.weather, now).as_object().at("daily");
  } else {
    document["source"] = nullptr;
  }
  if (loaded.fetchError) {
    document["fetchError"] = loaded.fetchFailure ? failureText(loaded.fetchFailure) : *loaded.fetchError;
  }
  if (loaded.storeError) document["storeError"] = *loaded.storeError;
  boost::json::array days;
  for (const DayLine& line : tripDays(loaded)) {
    boost::json::object day;
    day["date"] = isoDay(line.day);
    day["place"] = trip.destination.name;
    day["weather"] = nullptr;
    if (line.weather && loaded.entry) {
      const auto& rows = loaded.entry->cachedWeather.weather.daily;
      const auto index = static_cast<std::size_t>(line.weather - loaded.forecast.weather.data());
      // The cut rows keep the record's order: find the same row in the record's JSON.
      for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i] == loaded.forecast.weather[index]) day["weather"] = daily.as_array().at(i);
      }
    }
    days.push_back(std::move(day));
  }
  document["days"] = std::move(days);
  std::cout << serializeJson(document) << "\n";
}

void printReadable(const LoadedTripForecast& loaded, Date now) {
  const Trip& trip = loaded.forecast.trip;
  const icu::Locale locale = currentLocale();
  const ScreenText words(locale);
  const DayFormatter dayText(locale, trip.destination.timeZone, "EEEdMMMy");
  const DayFormatter timeText(locale, trip.destination.timeZone, "EEEdMMMjmm");
  // The user's own name for the trip is a label; the place is always named as the place.
  const std::string place = neutralised(trip.destination.name);
  const std::string title = trip.destination.shownName() == trip.destination.name
                                ? words.format("Trip to {}", place)
                                : words.format("{} — trip to {}", neutralised(trip.destination.shownName()), place);
  std::cout << fmt::format("{} · {} – {} ({})\n", title, dayText(trip.dates.from), dayText(endMoment(trip)),
                           trip.destination.timeZone.identifier());
  std::string source;
  if (loaded.entry) {
    const CachedWeather& cached = loaded.entry->cachedWeather;
    const double ageMinutes = (now - cached.weather.current.dt) / 60.0;
    source = words.format(
        "{} forecast for {}, observed {} ({})", words(providerLabel(weatherDataSource(cached.weather))), place,
        timeText(cached.weather.current.dt),
        loaded.fetched
            ? std::string(words("fetched now"))
            : words.format("from the trip cache, {} min old", words.number(std::round(std::max(0.0, ageMinutes)))));
  } else {
    source = words("no forecast stored for this trip");
  }
  std::cout << words.format("Source: {}", source) << "\n";
  if (loaded.storeError) std::cout << words.format("Not saved to the trip cache ({}).", *loaded.storeError) << "\n";
  std::optional<Date> lastForecastDay;
  if (loaded.entry && !loaded.entry->cachedWeather.weather.daily.empty()) {
    lastForecastDay = loaded.entry->cachedWeather.weather.daily.back().dt;
  }
  std::cout << "\n";
  // Every rain chance as wide as the widest, so the conditions start in one column; the
  // condition gives up what a longer word for "rain" takes (9 columns in English).
  const std::size_t percentWidth = displayWidth(words.percent(1.0));
  const std::size_t rainWidth = displayWidth(words.format("{} rain", words.percent(1.0)));
  const std::size_t conditionWidth = rainWidth > 9 ? std::max<std::size_t>(12, 24 - (rainWidth - 9)) : 24;
  for (const DayLine& line : tripDays(loaded)) {
    std::string text;
    if (line.weather) {
      const OneCallWeather::Daily& row = *line.weather;
      const std::string condition = row.weather.empty() ? std::string() : row.weather.front().description;
      // The rain chance before the condition, so a long condition never runs into it.
      text = fmt::format("{} / {}  {}  {}  {}",
                         padLeft(formattedTemperature(row.temp.min, TemperatureWidth::narrow, locale), 5),
                         padRight(formattedTemperature(row.temp.max, TemperatureWidth::narrow, locale), 5),
                         padRight(words.format("{} rain", padLeft(words.percent(row.pop), percentWidth)), rainWidth),
                         padRight(cutToWidth(condition, conditionWidth), conditionWidth), place);
    } else if (line.noon < now - 86400.0) {
      text = words("no forecast kept for this past day");
    } else if (lastForecastDay && line.noon > *lastForecastDay) {
      text = words.format("no forecast yet (the forecast reaches {})", dayText(*lastForecastDay));
    } else {
      text = words("no forecast");
    }
    std::cout << "  " << padRight(cutToWidth(dayText(line.noon), 18), 18) << " " << text << "\n";
  }
}

int run(const TripsForecastOptions& options) {
  setDetailLogging(options.verbose);
  ProgramServices program;
  Services& services = *program;
  const Date now = Date::fromSystem(services.clock().now());
  const Trip trip = findTrip(services.trips().trips(), options.trip, now, TripCalendar::current());

  const WeatherDataSource provider =
      options.provider.empty() ? services.providerSettings().dataSource() : weatherDataSourceNamed(options.provider);
  TripForecastRefreshID key{!options.noFetch, provider};
  auto loadOnce = [&] {
    std::vector<Trip> trips{trip};
    auto load = loadTripForecasts(std::move(trips), services.weatherCache(), services.tripWeatherFetcher(), key,
                                  services.clock());
    return services.runtime().runBlocking(std::move(load));
  };
  std::vector<LoadedTripForecast> loaded = loadOnce();
  // One more attempt when the service asked for a wait (no --timeout here: the usual cap).
  if (const auto wait = retryWaitAfter(loaded.front().fetchFailure, std::nullopt)) {
    waitBeforeRetry(loaded.front().fetchFailure, *wait, options.verbose);
    loaded = loadOnce();
  }
  const LoadedTripForecast& result = loaded.front();
  if (options.json) {
    printJson(result, now);
  } else {
    printReadable(result, now);
  }
  if (result.fetchError) {
    const std::string why = result.fetchFailure ? failureText(result.fetchFailure) : *result.fetchError;
    if (!result.entry) {
      logf("ombrine trips forecast: no forecast for the trip: {}", why);
      return 1;
    }
    logf("ombrine trips forecast: {}; showing what the trip cache holds", why);
    return kExitShownFromLastGood;
  }
  return 0;
}

}  // namespace

void addTripsForecastCommand(CLI::App& trips) {
  auto options = std::make_shared<TripsForecastOptions>();
  CLI::App* command = trips.add_subcommand("forecast", "The forecast of a trip, day by day");
  command->add_option("trip", options->trip, "The trip's id or name (default: the current trip, else the next)");
  command
      ->add_option("--provider", options->provider,
                   "dynamic (by region), apple, foreca or ow (default: the preferredWeatherProvider setting)")
      ->check(CLI::IsMember({"dynamic", "apple", "foreca", "ow"}));
  command->add_flag("--no-fetch", options->noFetch, "Show only what the trip cache holds");
  command->add_flag("--json", options->json, "Print the trip, the source and the days as JSON");
  command->add_flag("--verbose,-v", options->verbose, "Print each failed request with its address to stderr");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const NoSuchTrip& error) {
      logf("ombrine trips forecast: {}", neutralised(error.what(), kMaxTripMessage));
      setExitCode(1);
    } catch (const AmbiguousTrip& error) {
      logf("ombrine trips forecast: {}", neutralised(error.what(), kMaxTripMessage));
      setExitCode(2);
    } catch (const std::exception&) {
      logf("ombrine trips forecast: {}", failureText(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
