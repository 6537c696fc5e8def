#pragma once
// What a trip's dates mean, and the rules a new or edited trip must pass.
//
// Every calendar computation converts through the destination's zone and a caller's calendar
// (normally TripCalendar::current()):
// - `calendarDay(date)`: the day `date` falls on in the destination's zone, as the start of that
//   same-numbered day in the calendar's zone.
// - `shifted(date)`: `date` plus (destination offset - calendar offset), both at `date`: an
//   all-day date stored in the destination's zone read as the same wall-clock day in the
//   calendar's zone. An all-day trip thereby has the same dates on every device.
//
// All functions are pure apart from the calendar they are given (see TripCalendar for its
// thread rule) and raise nothing unless stated.

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "core/values/date.hpp"
#include "core/values/location.hpp"
#include "trips/trip.hpp"
#include "trips/trip_calendar.hpp"

namespace ombrine {

// Trips nearer home than this (metres) are refused; exactly this far passes.
inline constexpr double kTripMinimumDistanceFromHome = 50'000.0;
// A trip with an exclusive end ends this many seconds before its end moment.
inline constexpr double kTripExclusiveEndOffset = 0.001;
// Largest gap (seconds) between a trip's end and the next one's start for an automatic connection.
inline constexpr double kTripConnectionGap = 86'400.0;
// Both destinations of a connection must be at least this far (metres) from home.
inline constexpr double kTripConnectionDistanceFromHome = 500'000.0;

// A closed interval of instants: the days a trip occupies.
struct TripInterval {
  Date start;
  Date end;
  bool contains(Date date) const noexcept { return start <= date && date <= end; }
  bool operator==(const TripInterval&) const = default;
};

struct TripState {
  TripStateValue value = TripStateValue::upcoming;
  // upcoming: days to go; past: days since; active: days left.
  int days = 0;
  bool operator==(const TripState&) const = default;
};

Date calendarDay(Date date, const TripLocation& destination, const TripCalendar& calendar);
Date shifted(Date date, const TripLocation& destination, const TripCalendar& calendar);

// The end before the exclusive-end offset: `returnHomeAt` when the end is inferred and a return
// is known, else `to`.
Date endBase(const TripDates& dates);
// The last instant of the trip: `endBase`, less 0.001 s for a timed trip with an exclusive end.
Date endMoment(const Trip& trip);

// The trip's first and last day in the calendar (start of the first day; for a timed trip the
// last second of the last day, for an all-day trip the shifted `to`).
Date localStartDay(const Trip& trip, const TripCalendar& calendar);
Date localEndDay(const Trip& trip, const TripCalendar& calendar);
// From the start of the first to the start of the last occupied day; nothing for a trip that
// ends before it starts.
std::optional<TripInterval> occupiedInterval(const Trip& trip, const TripCalendar& calendar);

// Whether two trips claim the same time. Two timed trips compare as half-open intervals (one
// may arrive at the moment the other ends); otherwise their occupied days compare as closed
// intervals (two all-day trips sharing a day conflict).
bool conflicts(const Trip& a, const Trip& b, const TripCalendar& calendar);

// Upcoming with days to go, past with days since, or active with days left, seen from `today`.
TripState tripState(const Trip& trip, Date today, const TripCalendar& calendar);

// Whether the calendar day that holds `day` lies in the trip. All-day: the start of that day
// falls in `occupiedInterval`. Timed: the trip starts before that day ends in the destination's
// zone and ends after it begins.
bool tripContainsDay(const Trip& trip, Date day, const TripCalendar& calendar);

// The next trip in date order (earliest `from` after this trip's `from`) when the user goes
// straight on to it: it arrives (with an arrival time) no later than this trip's end; or it
// starts within 86,400 s of this trip's end, a home is known, both places are at least
// 500,000 m from home and twice their distance apart is less than the nearer one's distance
// from home. A trip whose user said they return home in between (`returnsHomeBetweenTrips`)
// connects to nothing.
std::optional<Trip> nextConnectedTrip(const Trip& trip, const std::vector<Trip>& trips,
                                      const std::optional<Location>& home);
// "Continues to " and the next trip's shown name.
std::string continuationLabel(const Trip& next);

// The trips as they are stored after a change: a timed trip whose end is inferred or given by a
// return time gets a fixed end (the connected next trip's start, else the return time, else
// `to`) and loses its inference flags. Other trips stay as they are. Order is kept.
std::vector<Trip> normalizedTrips(const std::vector<Trip>& trips, const std::optional<Location>& home,
                                  const TripCalendar& calendar);

// -- Validation ------------------------------------------------------------------------------

enum class TripConflictKind { startDate, endDate, dates, times };

struct TripShortcutsError {
  struct NoHomeLocation {
    bool operator==(const NoHomeLocation&) const = default;
  };
  struct NoDestinationLocation {
    bool operator==(const NoDestinationLocation&) const = default;
  };
  struct StartsInPast {
    bool operator==(const StartsInPast&) const = default;
  };
  struct EndBeforeStart {
    bool operator==(const EndBeforeStart&) const = default;
  };
  struct TooCloseToHome {
    double distance = 0.0;  // metres
    bool operator==(const TooCloseToHome&) const = default;
  };
  struct Conflict {
    TripConflictKind kind = TripConflictKind::dates;
    Trip existing;
    bool operator==(const Conflict&) const = default;
  };
  // The editor's rules for trips with times.
  struct TimeUnavailableAtDestination {
    bool operator==(const TimeUnavailableAtDestination&) const = default;
  };
  struct ReturnBeforeArrival {
    bool operator==(const ReturnBeforeArrival&) const = default;
  };
  using Case = std::variant<NoHomeLocation, NoDestinationLocation, StartsInPast, EndBeforeStart, TooCloseToHome,
                            Conflict, TimeUnavailableAtDestination, ReturnBeforeArrival>;

  Case which;
  // The text shown to the user.
  std::string message;

  bool operator==(const TripShortcutsError&) const = default;
};

// A trip refused by the rules; `what()` is the message.
class TripRejectedError : public std::runtime_error {
 public:
  explicit TripRejectedError(TripShortcutsError error) : std::runtime_error(error.message), error_(std::move(error)) {}
  const TripShortcutsError& error() const noexcept { return error_; }

 private:
  TripShortcutsError error_;
};

// The exact texts. `distanceText` is the formatted minimum distance; `name` the conflicting
// trip's shown name (set between U+2068 and U+2069 here); `when` its formatted dates.
inline constexpr const char* kNoHomeLocationMessage = "Before adding a trip, set a home location in Ombrine.";
inline constexpr const char* kNoDestinationLocationMessage = "Couldn't read a location for the destination.";
inline constexpr const char* kStartsInPastMessage = "Trips must start today or later.";
inline constexpr const char* kEndBeforeStartMessage = "The end date must be on or after the start date.";
inline constexpr const char* kTimeUnavailableAtDestinationMessage =
    "This time is unavailable at your destination. Choose another time.";
inline constexpr const char* kTimeUnavailableAtHomeMessage = "This time is unavailable at home. Choose another time.";
inline constexpr const char* kReturnBeforeArrivalMessage = "The return time must be after your arrival.";
inline constexpr const char* kFindingHomeTimeZoneMessage = "Finding your home time zone…";
inline constexpr const char* kHomeTimeZoneFailedMessage = "Couldn't find your home time zone. Try again.";
std::string tooCloseToHomeMessage(const std::string& distanceText);
std::string conflictMessage(TripConflictKind kind, const std::string& name, const std::string& when);

// The minimum distance as a measurement for road use, wide style, in `locale` (an ICU locale
// id; empty = the process default): "50 kilometers", "31 miles".
std::string formatMinimumTripDistance(const std::string& locale = {});
// A conflicting trip's dates for a message: one date when it lies in one calendar day of its
// destination, else an interval; with weekday, hour and minute for the times kind of a timed
// trip. Formatted in the destination's zone.
std::string formatConflictDates(const Trip& existing, TripConflictKind kind, const std::string& locale = {});

// The kind of conflict between a new trip and an existing one it conflicts with: times when both
// are timed; start date when only the new trip's first day falls in the existing trip; end date
// when only its last day does; dates otherwise.
TripConflictKind conflictKind(const Trip& candidate, const Trip& existing, const TripCalendar& calendar);

// The first trip of `existing` (other than one with the candidate's id) that conflicts with
// `candidate`, and the error to show; nothing when it is free.
std::optional<TripShortcutsError> findConflict(const Trip& candidate, const std::vector<Trip>& existing,
                                               const TripCalendar& calendar, const std::string& locale = {});

// What the user asks for when adding a trip by date.
struct NewTripRequest {
  std::optional<TripLocation> destination;  // nothing: no place could be read
  Date startDate;                           // any instant of the first day, in the calendar
  std::optional<Date> endDate;              // any instant of the last day; nothing: one day
  // An edit that keeps the trip's start: a trip under way may keep a start before today.
  bool keepsStart = false;
};

// Applies the rules of adding a trip in order (home, destination, start today or later, end not
// before start, distance from home, zone shift to the destination, conflicts) and returns the
// all-day trip to store, with id `id`. Raises TripRejectedError with the first rule that fails.
Trip validateNewTrip(const NewTripRequest& request, const std::optional<Location>& home,
                     const std::vector<Trip>& existing, Date now, const TripCalendar& calendar, Uuid id,
                     const std::string& locale = {});

// What the user asks for when adding a trip with times: wall-clock times at the destination.
struct NewTimedTripRequest {
  std::optional<TripLocation> destination;  // nothing: no place could be read
  CivilDay arrivalDay;
  WallTime arrivalTime;
  // The departure; nothing: the user gave none, and the trip lasts to the end of its arrival day
  // unless it goes straight on to a next trip (the end is inferred, see normalizedTrips).
  std::optional<std::pair<CivilDay, WallTime>> departure;
  // An edit that keeps the trip's start: a trip under way may keep an arrival before today.
  bool keepsStart = false;
};

// The rules of adding a trip with times, in order: home; destination; both times exist at the
// destination (a time its clocks skip is refused with "This time is unavailable at your
// destination. Choose another time."; a time that happens twice is its first occurrence); the
// arrival's day at the destination is today or later there; the departure is after the arrival
// ("The return time must be after your arrival."); distance from home; conflicts. Returns the
// timed trip to store (hasTimes and hasArrivalTime true; without a departure, infersEndTime and
// hasExclusiveEnd true with `to` at the start of the day after the arrival's). Raises
// TripRejectedError with the first rule that fails.
Trip validateNewTimedTrip(const NewTimedTripRequest& request, const std::optional<Location>& home,
                          const std::vector<Trip>& existing, Date now, const TripCalendar& calendar, Uuid id,
                          const std::string& locale = {});

}  // namespace ombrine
