#include "providers/foreca/foreca_calendar.hpp"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <cmath>
#include <stdexcept>

namespace ombrine {

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

Date fromUDate(UDate milliseconds) { return Date::fromUnix(milliseconds / kMillisecondsPerSecond); }
UDate toUDate(Date date) { return date.unixSeconds() * kMillisecondsPerSecond; }

}  // namespace

PlaceCalendar::PlaceCalendar(const TimeZone& zone) : zone_(zone) {
  UErrorCode status = U_ZERO_ERROR;
  // The zone is rebuilt from its identifier: ICU reads named zones and the "GMT+0300" form
  // of fixed offsets alike. An identifier ICU does not know leaves GMT, as TimeZone does.
  icu::TimeZone* icuZone = icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone.identifier()));
  calendar_ = std::make_unique<icu::GregorianCalendar>(icuZone, status);
  if (U_FAILURE(status)) throw std::runtime_error("cannot build a Gregorian calendar");
}

PlaceCalendar::~PlaceCalendar() = default;

Date PlaceCalendar::date(CivilDay day, int hour, int minute) const {
  calendar_->clear();
  calendar_->set(day.year, day.month - 1, day.day, hour, minute, 0);
  UErrorCode status = U_ZERO_ERROR;
  UDate result = calendar_->getTime(status);
  return U_FAILURE(status) ? Date{} : fromUDate(result);
}

CivilDay PlaceCalendar::day(Date instant) const {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(toUDate(instant), status);
  CivilDay result;
  result.year = calendar_->get(UCAL_EXTENDED_YEAR, status);
  result.month = calendar_->get(UCAL_MONTH, status) + 1;
  result.day = calendar_->get(UCAL_DATE, status);
  return result;
}

Date PlaceCalendar::startOfDay(Date instant) const { return date(day(instant)); }

Date PlaceCalendar::endOfDay(Date instant) const {
  CivilDay next = day(instant);
  ++next.day;
  return date(next);
}

Date PlaceCalendar::startOfHour(Date instant) const {
  // By offset rather than by calendar fields: in the hour repeated when clocks fall back the
  // fields are ambiguous, the offset at the instant is not.
  double local = std::floor(instant.unixSeconds()) + zone_.secondsFromGMT(instant);
  double intoHour = local - std::floor(local / 3600.0) * 3600.0;
  return Date::fromUnix(std::floor(instant.unixSeconds()) - intoHour);
}

}  // namespace ombrine
