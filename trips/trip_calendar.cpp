#include "trips/trip_calendar.hpp"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <stdexcept>

namespace ombrine {

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

Date fromUDate(UDate milliseconds) { return Date::fromUnix(milliseconds / kMillisecondsPerSecond); }
UDate toUDate(Date date) { return date.unixSeconds() * kMillisecondsPerSecond; }

std::unique_ptr<icu::Calendar> makeCalendar(const TimeZone& zone) {
  UErrorCode status = U_ZERO_ERROR;
  // Rebuilt from the identifier: ICU reads named zones and the "GMT+0300" form alike.
  icu::TimeZone* icuZone = icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier()));
  auto calendar = std::make_unique<icu::GregorianCalendar>(icuZone, status);
  if (U_FAILURE(status)) throw std::runtime_error("cannot build a Gregorian calendar");
  // Proleptic: dates before 1582 keep Gregorian rules instead of switching to Julian ones.
  calendar->setGregorianChange(-8.64e15, status);
  calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
  calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
  return calendar;
}

CivilDay readDay(icu::Calendar& calendar, Date instant) {
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(toUDate(instant), status);
  CivilDay result;
  result.year = calendar.get(UCAL_EXTENDED_YEAR, status);
  result.month = calendar.get(UCAL_MONTH, status) + 1;
  result.day = calendar.get(UCAL_DATE, status);
  return result;
}

void setFields(icu::Calendar& calendar, CivilDay day, WallTime time) {
  calendar.clear();
  calendar.set(UCAL_EXTENDED_YEAR, day.year);
  calendar.set(UCAL_MONTH, day.month - 1);
  calendar.set(UCAL_DATE, day.day);
  calendar.set(UCAL_HOUR_OF_DAY, time.hour);
  calendar.set(UCAL_MINUTE, time.minute);
  calendar.set(UCAL_SECOND, time.second);
}

}  // namespace

TripCalendar::TripCalendar(const TimeZone& zone) : zone_(zone), calendar_(makeCalendar(zone)) {}

TripCalendar TripCalendar::current() { return TripCalendar(TimeZone::current()); }

TripCalendar::TripCalendar(const TripCalendar& other) : zone_(other.zone_), calendar_(other.calendar_->clone()) {}

TripCalendar& TripCalendar::operator=(const TripCalendar& other) {
  if (this != &other) {
    zone_ = other.zone_;
    calendar_.reset(other.calendar_->clone());
  }
  return *this;
}

TripCalendar::TripCalendar(TripCalendar&&) noexcept = default;
TripCalendar& TripCalendar::operator=(TripCalendar&&) noexcept = default;
TripCalendar::~TripCalendar() = default;

CivilDay TripCalendar::day(Date instant) const { return readDay(*calendar_, instant); }

CivilDay TripCalendar::day(Date instant, const TimeZone& zone) const {
  if (zone == zone_) return day(instant);
  // Whole-second offsets make this exact: the wall clock of `zone` read as if it were GMT.
  const Date wallClock = instant + zone.secondsFromGMT(instant);
  static const TripCalendar gmt(TimeZone::gmt());
  // A fresh copy: the shared GMT calendar must not be mutated from several threads.
  TripCalendar reader(gmt);
  return reader.day(wallClock);
}

WallTime TripCalendar::timeOfDay(Date instant) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(instant), status);
  return WallTime{calendar_->get(UCAL_HOUR_OF_DAY, status), calendar_->get(UCAL_MINUTE, status),
                  calendar_->get(UCAL_SECOND, status)};
}

Date TripCalendar::date(CivilDay day, WallTime time) const {
  setFields(*calendar_, day, time);
  UErrorCode status = U_ZERO_ERROR;
  const UDate result = calendar_->getTime(status);
  return U_FAILURE(status) ? Date{} : fromUDate(result);
}

bool TripCalendar::exists(CivilDay day, WallTime time) const {
  const Date resolved = date(day, time);
  return this->day(resolved) == day && timeOfDay(resolved) == time;
}

Date TripCalendar::endOfDay(Date instant) const {
  // From noon, so that a skipped or repeated midnight cannot move the step onto the wrong day.
  const Date noon = date(day(instant), WallTime{12, 0, 0});
  return date(day(addingDays(noon, 1)));
}

Date TripCalendar::addingDays(Date instant, int days) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(instant), status);
  calendar_->add(UCAL_DATE, days, status);
  const UDate result = calendar_->getTime(status);
  return U_FAILURE(status) ? instant : fromUDate(result);
}

int TripCalendar::wholeDays(Date from, Date to) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(from), status);
  const int32_t days = calendar_->fieldDifference(toUDate(to), UCAL_DATE, status);
  return U_FAILURE(status) ? 0 : days;
}

}  // namespace ombrine
