#include "trips/trip_rules.hpp"

#include <unicode/dtitvfmt.h>
#include <unicode/dtptngen.h>
#include <unicode/measunit.h>
#include <unicode/numberformatter.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace ombrine {

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

UDate toUDate(Date date) { return date.unixSeconds() * kMillisecondsPerSecond; }

icu::Locale icuLocale(const std::string& locale) {
  return locale.empty() ? icu::Locale::getDefault() : icu::Locale(locale.c_str());
}

std::string toUtf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

icu::TimeZone* icuZone(const TimeZone& zone) {
  return icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier()));
}

// The destination's day of `date` rebuilt in the calendar; the platform's fall-back when the
// components cannot be rebuilt never applies to Gregorian fields ICU produced itself.
Date destinationDayStart(Date date, const TripLocation& destination, const TripCalendar& calendar) {
  return calendar.date(calendar.day(date, destination.timeZone));
}

bool isTimed(const Trip& trip) { return trip.dates.hasTimes; }

}  // namespace

Date calendarDay(Date date, const TripLocation& destination, const TripCalendar& calendar) {
  return destinationDayStart(date, destination, calendar);
}

Date shifted(Date date, const TripLocation& destination, const TripCalendar& calendar) {
  const int difference = destination.timeZone.secondsFromGMT(date) - calendar.timeZone().secondsFromGMT(date);
  return date + static_cast<double>(difference);
}

Date endBase(const TripDates& dates) {
  return dates.infersEndTime && dates.returnHomeAt ? *dates.returnHomeAt : dates.to;
}

Date endMoment(const Trip& trip) {
  const Date base = endBase(trip.dates);
  return trip.dates.hasTimes && trip.dates.hasExclusiveEnd ? base - kTripExclusiveEndOffset : base;
}

Date localStartDay(const Trip& trip, const TripCalendar& calendar) {
  if (isTimed(trip)) return calendar.startOfDay(calendarDay(trip.dates.from, trip.destination, calendar));
  // An offset difference that changes between the two zones' daylight-saving dates can leave
  // the shifted start an hour off midnight: the nearer day boundary is the intended one.
  const Date start = shifted(trip.dates.from, trip.destination, calendar);
  const Date dayStart = calendar.startOfDay(start);
  const Date dayEnd = calendar.endOfDay(start);
  return (start - dayStart) <= (dayEnd - start) ? dayStart : dayEnd;
}

Date localEndDay(const Trip& trip, const TripCalendar& calendar) {
  if (!isTimed(trip)) return shifted(trip.dates.to, trip.destination, calendar);
  const Date lastDay = calendarDay(endMoment(trip), trip.destination, calendar);
  const Date next = calendar.addingDays(lastDay, 1);
  return next == lastDay ? lastDay : next - 1.0;
}

std::optional<TripInterval> occupiedInterval(const Trip& trip, const TripCalendar& calendar) {
  std::optional<TripInterval> interval;
  if (isTimed(trip)) {
    const Date end = endBase(trip.dates);
    if (trip.dates.from < end) {
      // A trip ending at midnight does not occupy the day that begins then.
      const Date lastDay = calendarDay(end - kTripExclusiveEndOffset, trip.destination, calendar);
      interval = TripInterval{localStartDay(trip, calendar), calendar.startOfDay(lastDay)};
    }
  } else if (trip.dates.from <= trip.dates.to) {
    interval = TripInterval{localStartDay(trip, calendar), calendar.startOfDay(localEndDay(trip, calendar))};
  }
  if (interval && interval->end < interval->start) return std::nullopt;
  return interval;
}

bool conflicts(const Trip& a, const Trip& b, const TripCalendar& calendar) {
  const std::optional<TripInterval> first = occupiedInterval(a, calendar);
  const std::optional<TripInterval> second = occupiedInterval(b, calendar);
  if (!first || !second) return false;
  if (isTimed(a) && isTimed(b)) {
    return a.dates.from < endBase(b.dates) && b.dates.from < endBase(a.dates);
  }
  return !(first->end < second->start || second->end < first->start);
}

TripState tripState(const Trip& trip, Date today, const TripCalendar& calendar) {
  const Date todayStart = calendar.startOfDay(today);
  const Date start =
      isTimed(trip) ? localStartDay(trip, calendar) : shifted(trip.dates.from, trip.destination, calendar);
  if (const int days = calendar.wholeDays(todayStart, start); days >= 1) return {TripStateValue::upcoming, days};
  const Date end = localEndDay(trip, calendar);
  if (const int days = calendar.wholeDays(end, todayStart); days >= 1) return {TripStateValue::past, days};
  return {TripStateValue::active, calendar.wholeDays(todayStart, end)};
}

bool tripContainsDay(const Trip& trip, Date day, const TripCalendar& calendar) {
  if (!isTimed(trip)) {
    const std::optional<TripInterval> interval = occupiedInterval(trip, calendar);
    return interval && interval->contains(calendar.startOfDay(day));
  }
  const TripCalendar destination(trip.destination.timeZone);
  const Date dayStart = destination.date(calendar.day(day));
  const Date dayEnd = destination.endOfDay(dayStart);
  return trip.dates.from < dayEnd && endMoment(trip) > dayStart;
}

std::optional<Trip> nextConnectedTrip(const Trip& trip, const std::vector<Trip>& trips,
                                      const std::optional<Location>& home) {
  if (trip.dates.returnsHomeBetweenTrips) return std::nullopt;
  const Trip* next = nullptr;
  for (const Trip& other : trips) {
    if (other.id == trip.id || !(trip.dates.from < other.dates.from)) continue;
    if (next == nullptr || other.dates.from < next->dates.from) next = &other;
  }
  if (next == nullptr) return std::nullopt;
  const Date end = endBase(trip.dates);
  if (next->dates.hasTimes && next->dates.hasArrivalTime && next->dates.from <= end) return *next;
  if (next->dates.from - end > kTripConnectionGap || !home) return std::nullopt;
  const double fromHomeA = home->distance(trip.destination.location);
  const double fromHomeB = home->distance(next->destination.location);
  const double apart = trip.destination.location.distance(next->destination.location);
  const double nearer = std::min(fromHomeA, fromHomeB);
  if (nearer >= kTripConnectionDistanceFromHome && 2.0 * apart < nearer) return *next;
  return std::nullopt;
}

std::string continuationLabel(const Trip& next) { return "Continues to " + next.destination.shownName(); }

std::vector<Trip> normalizedTrips(const std::vector<Trip>& trips, const std::optional<Location>& home,
                                  const TripCalendar& calendar) {
  std::vector<Trip> result;
  result.reserve(trips.size());
  for (const Trip& trip : trips) {
    const TripDates& dates = trip.dates;
    if (!dates.hasTimes || (!dates.infersEndTime && !dates.returnHomeAt)) {
      result.push_back(trip);
      continue;
    }
    const Date ownLimit = dates.returnHomeAt.value_or(dates.to);
    Date to = ownLimit;
    if (const std::optional<Trip> next = nextConnectedTrip(trip, trips, home)) {
      to = next->dates.hasTimes ? next->dates.from : std::min(localStartDay(*next, calendar), ownLimit);
    }
    Trip normalized = trip;
    normalized.dates = TripDates{.from = dates.from,
                                 .to = to,
                                 .hasTimes = true,
                                 .hasArrivalTime = dates.hasArrivalTime,
                                 .infersEndTime = false,
                                 .returnHomeAt = std::nullopt,
                                 .returnHomeTimeZone = std::nullopt,
                                 .returnsHomeBetweenTrips = false,
                                 .hasExclusiveEnd = dates.hasExclusiveEnd};
    result.push_back(std::move(normalized));
  }
  return result;
}

// -- Validation ------------------------------------------------------------------------------

std::string tooCloseToHomeMessage(const std::string& distanceText) {
  return "Trips must be at least " + distanceText + " away from home.";
}

std::string conflictMessage(TripConflictKind kind, const std::string& name, const std::string& when) {
  const std::string isolated = "\u2068" + name + "\u2069";
  switch (kind) {
    case TripConflictKind::times: return "These times overlap with your trip to " + isolated + " from " + when + ".";
    case TripConflictKind::dates: return "These dates overlap with your trip to " + isolated + " from " + when + ".";
    case TripConflictKind::startDate:
      return "This start date clashes with your trip to " + isolated + " from " + when + ".";
    case TripConflictKind::endDate:
      return "This end date clashes with your trip to " + isolated + " from " + when + ".";
  }
  return {};
}

std::string formatMinimumTripDistance(const std::string& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted = icu::number::NumberFormatter::withLocale(icuLocale(locale))
                                                     .unit(icu::MeasureUnit::getMeter())
                                                     .usage("road")
                                                     .unitWidth(UNUM_UNIT_WIDTH_FULL_NAME)
                                                     .formatDouble(kTripMinimumDistanceFromHome, status);
  icu::UnicodeString text = formatted.toString(status);
  if (U_FAILURE(status)) return "50 kilometers";
  return toUtf8(text);
}

std::string formatConflictDates(const Trip& existing, TripConflictKind kind, const std::string& locale) {
  const bool withTimes =
      kind == TripConflictKind::times && existing.dates.hasTimes && !(existing.dates.to < existing.dates.from);
  const icu::UnicodeString skeleton = withTimes ? u"EEEEdMMMjmm" : u"yMMMd";
  const Date from = existing.dates.from;
  const Date to = existing.dates.hasTimes ? endMoment(existing) : existing.dates.to;
  const TripCalendar destination(existing.destination.timeZone);
  const bool oneDay = destination.day(from) == destination.day(to) || to < from;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale place = icuLocale(locale);
  std::unique_ptr<icu::TimeZone> zone(icuZone(existing.destination.timeZone));
  icu::UnicodeString text;
  if (oneDay) {
    std::unique_ptr<icu::DateTimePatternGenerator> generator(
        icu::DateTimePatternGenerator::createInstance(place, status));
    if (U_FAILURE(status)) return {};
    const icu::UnicodeString pattern = generator->getBestPattern(skeleton, status);
    icu::SimpleDateFormat format(pattern, place, status);
    if (U_FAILURE(status)) return {};
    format.setTimeZone(*zone);
    format.format(toUDate(from), text);
  } else {
    std::unique_ptr<icu::DateIntervalFormat> format(icu::DateIntervalFormat::createInstance(skeleton, place, status));
    if (U_FAILURE(status)) return {};
    format->setTimeZone(*zone);
    const icu::DateInterval interval(toUDate(from), toUDate(to));
    icu::FieldPosition position;
    format->format(&interval, text, position, status);
    if (U_FAILURE(status)) return {};
  }
  return toUtf8(text);
}

TripConflictKind conflictKind(const Trip& candidate, const Trip& existing, const TripCalendar& calendar) {
  if (candidate.dates.hasTimes && existing.dates.hasTimes) return TripConflictKind::times;
  const std::optional<TripInterval> mine = occupiedInterval(candidate, calendar);
  const std::optional<TripInterval> theirs = occupiedInterval(existing, calendar);
  if (!mine || !theirs) return TripConflictKind::dates;
  const bool startInside = theirs->contains(mine->start);
  const bool endInside = theirs->contains(mine->end);
  if (startInside && !endInside) return TripConflictKind::startDate;
  if (endInside && !startInside) return TripConflictKind::endDate;
  return TripConflictKind::dates;
}

std::optional<TripShortcutsError> findConflict(const Trip& candidate, const std::vector<Trip>& existing,
                                               const TripCalendar& calendar, const std::string& locale) {
  for (const Trip& other : existing) {
    if (other.id == candidate.id || !conflicts(candidate, other, calendar)) continue;
    const TripConflictKind kind = conflictKind(candidate, other, calendar);
    std::string message =
        conflictMessage(kind, other.destination.shownName(), formatConflictDates(other, kind, locale));
    return TripShortcutsError{TripShortcutsError::Conflict{kind, other}, std::move(message)};
  }
  return std::nullopt;
}

namespace {

// The rules every new trip passes first, timed or not: a home, then a destination.
const TripLocation& requireHomeAndDestination(const std::optional<Location>& home,
                                              const std::optional<TripLocation>& destination) {
  if (!home) throw TripRejectedError({TripShortcutsError::NoHomeLocation{}, kNoHomeLocationMessage});
  if (!destination) {
    throw TripRejectedError({TripShortcutsError::NoDestinationLocation{}, kNoDestinationLocationMessage});
  }
  return *destination;
}

void requireDistanceFromHome(const Location& home, const TripLocation& destination, const std::string& locale) {
  const double distance = home.distance(destination.location);
  if (distance < kTripMinimumDistanceFromHome) {
    throw TripRejectedError(
        {TripShortcutsError::TooCloseToHome{distance}, tooCloseToHomeMessage(formatMinimumTripDistance(locale))});
  }
}

}  // namespace

Trip validateNewTrip(const NewTripRequest& request, const std::optional<Location>& home,
                     const std::vector<Trip>& existing, Date now, const TripCalendar& calendar, Uuid id,
                     const std::string& locale) {
  const TripLocation& destination = requireHomeAndDestination(home, request.destination);
  const Date start = calendar.startOfDay(request.startDate);
  const Date end = calendar.settingTime(request.endDate.value_or(request.startDate), WallTime{23, 59, 59});
  if (!request.keepsStart && start < calendar.startOfDay(now)) {
    throw TripRejectedError({TripShortcutsError::StartsInPast{}, kStartsInPastMessage});
  }
  if (end < start) throw TripRejectedError({TripShortcutsError::EndBeforeStart{}, kEndBeforeStartMessage});
  requireDistanceFromHome(*home, destination, locale);
  // Stored in the destination's zone: the same wall-clock day there, whatever zone the device
  // that reads it is in.
  auto toDestination = [&](Date date) {
    return date +
           static_cast<double>(calendar.timeZone().secondsFromGMT(date) - destination.timeZone.secondsFromGMT(date));
  };
  Trip trip{id, destination, TripDates{.from = toDestination(start), .to = toDestination(end)}};
  if (std::optional<TripShortcutsError> conflict = findConflict(trip, existing, calendar, locale)) {
    throw TripRejectedError(std::move(*conflict));
  }
  return trip;
}

Trip validateNewTimedTrip(const NewTimedTripRequest& request, const std::optional<Location>& home,
                          const std::vector<Trip>& existing, Date now, const TripCalendar& calendar, Uuid id,
                          const std::string& locale) {
  const TripLocation& destination = requireHomeAndDestination(home, request.destination);
  const TripCalendar local(destination.timeZone);
  auto exists = [&](CivilDay day, WallTime time) {
    if (!local.exists(day, time)) {
      throw TripRejectedError(
          {TripShortcutsError::TimeUnavailableAtDestination{}, kTimeUnavailableAtDestinationMessage});
    }
    return local.date(day, time);
  };
  const Date from = exists(request.arrivalDay, request.arrivalTime);
  std::optional<Date> to;
  if (request.departure) to = exists(request.departure->first, request.departure->second);
  // Only the day counts, and it is the destination's day: arriving there this evening is today.
  if (!request.keepsStart && local.day(from) < local.day(now)) {
    throw TripRejectedError({TripShortcutsError::StartsInPast{}, kStartsInPastMessage});
  }
  if (to && *to <= from) {
    throw TripRejectedError({TripShortcutsError::ReturnBeforeArrival{}, kReturnBeforeArrivalMessage});
  }
  requireDistanceFromHome(*home, destination, locale);
  TripDates dates{.from = from, .to = to ? *to : local.endOfDay(from), .hasTimes = true, .hasArrivalTime = true};
  if (!to) {
    dates.infersEndTime = true;
    dates.hasExclusiveEnd = true;
  }
  Trip trip{id, destination, dates};
  if (std::optional<TripShortcutsError> conflict = findConflict(trip, existing, calendar, locale)) {
    throw TripRejectedError(std::move(*conflict));
  }
  return trip;
}

}  // namespace ombrine
