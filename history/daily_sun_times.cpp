#include "history/daily_sun_times.hpp"

#include "history/zoned_calendar.hpp"

namespace ombrine {

namespace {

std::int64_t daysBetween(CivilDate from, CivilDate to) { return daysFromCivil(to) - daysFromCivil(from); }

std::optional<double> clockSeconds(ZonedCalendar& calendar, CivilDate day, std::optional<Date> event) {
  if (!event) return std::nullopt;
  const auto local = calendar.localTime(*event);
  if (!local) return std::nullopt;
  return local->hour * 3600.0 + local->minute * 60.0 + local->second + local->millisecond / 1000.0 +
         86400.0 * static_cast<double>(daysBetween(day, local->date));
}

// The local day that starts at `start`, with every event moved onto it.
std::optional<LocalSolarDay> solarDayStarting(ZonedCalendar& calendar, Date start, const Location& coordinate) {
  const auto startTime = calendar.localTime(start);
  if (!startTime) return std::nullopt;
  const CivilDate day = startTime->date;
  LocalSolarDay result{.day = {}, .events = Solar(utcMidnight(daysFromCivil(day)), coordinate)};
  Solar& solar = result.events;

  if (const auto anchor = solar.sunrise ? solar.sunrise : solar.sunset) {
    if (const auto local = calendar.localTime(*anchor)) {
      const auto shift = static_cast<int>(daysBetween(day, local->date));
      if (shift != 0) {
        auto move = [&](std::optional<Date>& event) {
          if (!event) return;
          if (const auto moved = calendar.addingDays(*event, -shift)) event = moved;
        };
        for (auto* event :
             {&solar.sunrise, &solar.sunset, &solar.civilSunrise, &solar.civilSunset, &solar.nauticalSunrise,
              &solar.nauticalSunset, &solar.astronomicalSunrise, &solar.astronomicalSunset}) {
          move(*event);
        }
      }
    }
  }
  DailySunTimes& times = result.day;
  times.date = start;
  times.sunrise = solar.sunrise;
  times.sunset = solar.sunset;
  times.daylightState = solar.daylightState;
  times.sunriseClockSeconds = clockSeconds(calendar, day, times.sunrise);
  times.sunsetClockSeconds = clockSeconds(calendar, day, times.sunset);
  times.daylightDuration = daylightDuration(times.daylightState, times.sunrise, times.sunset);
  return result;
}

}  // namespace

std::optional<double> daylightDuration(SunDaylightState state, std::optional<Date> sunrise,
                                       std::optional<Date> sunset) {
  switch (state) {
    case SunDaylightState::polarDay: return 86400.0;
    case SunDaylightState::polarNight: return 0.0;
    case SunDaylightState::unavailable: return std::nullopt;
    case SunDaylightState::normal: break;
  }
  if (!sunrise || !sunset) return std::nullopt;
  double seconds = *sunset - *sunrise;
  while (seconds < 0) seconds += 86400.0;
  while (seconds > 86400.0) seconds -= 86400.0;
  return seconds;
}

std::vector<DailySunTimes> dailySunTimes(int year, const Location& coordinate, const TimeZone& timeZone) {
  auto calendar = ZonedCalendar::make(timeZone);
  if (!calendar) return {};
  std::vector<DailySunTimes> days;
  days.reserve(366);
  auto day = calendar->startOfDay(CivilDate{year, 1, 1});
  const auto end = calendar->startOfDay(CivilDate{year + 1, 1, 1});
  if (!end) return days;
  // Stepping by calendar days, as the list is defined: a local date a zone skipped entirely
  // (Samoa's 30 December 2011) has no entry.
  while (day && *day < *end) {
    auto solarDay = solarDayStarting(*calendar, *day, coordinate);
    if (!solarDay) break;
    days.push_back(std::move(solarDay->day));
    day = calendar->addingDays(*day, 1);
  }
  return days;
}

std::optional<LocalSolarDay> localSolarDay(CivilDate day, const Location& coordinate, const TimeZone& timeZone) {
  auto calendar = ZonedCalendar::make(timeZone);
  if (!calendar) return std::nullopt;
  const auto start = calendar->startOfDay(day);
  if (!start) return std::nullopt;
  auto solarDay = solarDayStarting(*calendar, *start, coordinate);
  // A date the zone skipped resolves to the next day; it has no entry of its own.
  if (solarDay && calendar->localTime(solarDay->day.date)->date != day) return std::nullopt;
  return solarDay;
}

std::optional<DailySunTimes> dailySunTimes(CivilDate day, const Location& coordinate, const TimeZone& timeZone) {
  auto solarDay = localSolarDay(day, coordinate, timeZone);
  if (!solarDay) return std::nullopt;
  return solarDay->day;
}

std::optional<DailySunTimes> dailySunTimesContaining(Date instant, const Location& coordinate,
                                                     const TimeZone& timeZone) {
  auto calendar = ZonedCalendar::make(timeZone);
  if (!calendar) return std::nullopt;
  const auto local = calendar->localTime(instant);
  if (!local) return std::nullopt;
  return dailySunTimes(local->date, coordinate, timeZone);
}

}  // namespace ombrine
