#include "history/zoned_calendar.hpp"

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <unicode/utypes.h>

namespace ombrine {

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;

std::unique_ptr<icu::TimeZone> icuZone(const TimeZone& zone) {
  const std::string& id = zone.identifier();
  std::unique_ptr<icu::TimeZone> made(icu::TimeZone::createTimeZone(
      icu::UnicodeString::fromUTF8(icu::StringPiece(id.data(), static_cast<int32_t>(id.size())))));
  if (!made) return nullptr;
  icu::UnicodeString resolved;
  made->getID(resolved);
  if (resolved == icu::UnicodeString(UCAL_UNKNOWN_ZONE_ID)) return nullptr;
  return made;
}

}  // namespace

ZonedCalendar::ZonedCalendar(std::unique_ptr<icu::Calendar> calendar) : calendar_(std::move(calendar)) {}
ZonedCalendar::~ZonedCalendar() = default;
ZonedCalendar::ZonedCalendar(ZonedCalendar&&) noexcept = default;
ZonedCalendar& ZonedCalendar::operator=(ZonedCalendar&&) noexcept = default;

std::optional<ZonedCalendar> ZonedCalendar::make(const TimeZone& zone) {
  auto icu = icuZone(zone);
  if (!icu) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  auto calendar = std::make_unique<icu::GregorianCalendar>(icu.release(), status);
  if (U_FAILURE(status)) return std::nullopt;
  // Dates before 1582 stay Gregorian, as the solar side's day numbers are.
  calendar->setGregorianChange(U_DATE_MIN, status);
  if (U_FAILURE(status)) return std::nullopt;
  // A local day whose midnight a clock change skips starts at the first instant after the gap.
  calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
  return ZonedCalendar(std::move(calendar));
}

std::optional<Date> ZonedCalendar::startOfDay(CivilDate day) {
  calendar_->clear();
  calendar_->set(day.year, day.month - 1, day.day, 0, 0, 0);
  UErrorCode status = U_ZERO_ERROR;
  const UDate millis = calendar_->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return Date::fromUnix(millis / kMillisecondsPerSecond);
}

std::optional<LocalTime> ZonedCalendar::localTime(Date instant) {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(instant.unixSeconds() * kMillisecondsPerSecond, status);
  LocalTime local;
  local.date.year = calendar_->get(UCAL_EXTENDED_YEAR, status);
  local.date.month = calendar_->get(UCAL_MONTH, status) + 1;
  local.date.day = calendar_->get(UCAL_DATE, status);
  local.hour = calendar_->get(UCAL_HOUR_OF_DAY, status);
  local.minute = calendar_->get(UCAL_MINUTE, status);
  local.second = calendar_->get(UCAL_SECOND, status);
  local.millisecond = calendar_->get(UCAL_MILLISECOND, status);
  if (U_FAILURE(status)) return std::nullopt;
  return local;
}

std::optional<Date> ZonedCalendar::addingDays(Date instant, int days) {
  UErrorCode status = U_ZERO_ERROR;
  calendar_->setTime(instant.unixSeconds() * kMillisecondsPerSecond, status);
  calendar_->add(UCAL_DATE, days, status);
  const UDate millis = calendar_->getTime(status);
  if (U_FAILURE(status)) return std::nullopt;
  return Date::fromUnix(millis / kMillisecondsPerSecond);
}

}  // namespace ombrine
