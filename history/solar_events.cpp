#include "history/solar_events.hpp"

#include <cmath>
#include <numbers>

#include "history/civil_date.hpp"

namespace ombrine {

namespace {

constexpr double kToRadians = 0.017453292519943295;
constexpr double kToDegrees = 180.0 / std::numbers::pi;

double sinDeg(double degrees) { return std::sin(degrees * kToRadians); }
double cosDeg(double degrees) { return std::cos(degrees * kToRadians); }
double tanDeg(double degrees) { return std::tan(degrees * kToRadians); }
double asinDeg(double value) { return std::asin(value) * kToDegrees; }
double acosDeg(double value) { return std::acos(value) * kToDegrees; }
double atanDeg(double value) { return std::atan(value) * kToDegrees; }

// One correction each way, as the method prescribes; a value further out stays out.
double wrapOnce(double value, double period) {
  if (value < 0) value += period;
  if (value > period) value -= period;
  return value;
}

}  // namespace

std::optional<Date> SolarEventCalculationResult::instant() const {
  if (const auto* event = std::get_if<Event>(&value)) return event->instant;
  return std::nullopt;
}

std::variant<SolarEventTime, SolarEventCalculationResult> solarEventTime(SolarEventKind kind, Date date, double zenith,
                                                                         const Location& coordinate) {
  const double unixSeconds = date.unixSeconds();
  if (!std::isfinite(unixSeconds)) return SolarEventCalculationResult::unavailable();
  const double latitude = coordinate.latitude();
  const bool rise = kind == SolarEventKind::rise;

  const double n = dayOfYear(civilFromDays(utcDayNumber(date)));
  const double lngHour = coordinate.longitude() / 15.0;
  const double t = n + ((rise ? 6.0 : 18.0) - lngHour) / 24.0;

  const double m = 0.9856 * t - 3.289;
  const double l = wrapOnce(m + 1.916 * sinDeg(m) + 0.020 * sinDeg(2 * m) + 282.634, 360.0);

  double ra = wrapOnce(atanDeg(0.91764 * tanDeg(l)), 360.0);
  ra = ra + 90.0 * std::floor(l / 90.0) - 90.0 * std::floor(ra / 90.0);
  ra = ra / 15.0;

  const double sinDec = 0.39782 * sinDeg(l);
  const double cosDec = cosDeg(asinDeg(sinDec));

  const double cosH = (std::cos(zenith) - sinDec * sinDeg(latitude)) / (cosDec * cosDeg(latitude));
  if (cosH >= 1) return SolarEventCalculationResult::sunAlwaysBelowHorizon();
  if (cosH <= -1) return SolarEventCalculationResult::sunAlwaysAboveHorizon();
  if (!std::isfinite(cosH)) return SolarEventCalculationResult::unavailable();

  double h = acosDeg(cosH);
  if (rise) h = 360.0 - h;
  h = h / 15.0;

  const double localMeanTime = h + ra - 0.06571 * t - 6.622;
  const double ut = wrapOnce(localMeanTime - lngHour, 24.0);

  int dayOffset = 0;
  if (lngHour > 0 && ut > 12 && rise) dayOffset = -1;
  if (lngHour < 0 && ut < 12 && !rise) dayOffset = 1;
  return SolarEventTime{.hours = ut, .dayOffset = dayOffset};
}

SolarEventCalculationResult calculate(SolarEventKind kind, Date date, double zenith, const Location& coordinate) {
  const auto time = solarEventTime(kind, date, zenith, coordinate);
  if (const auto* result = std::get_if<SolarEventCalculationResult>(&time)) return *result;
  const auto& event = std::get<SolarEventTime>(time);
  const double hour = std::floor(event.hours);
  const double minutes = (event.hours - hour) * 60.0;
  const double minute = std::floor(minutes);
  const double second = std::trunc((minutes - minute) * 60.0);
  // The base day is `date` shifted by whole days, so its UTC calendar day moves by the same count.
  const Date base = date + event.dayOffset * 86400.0;
  const Date midnight = utcMidnight(utcDayNumber(base));
  return SolarEventCalculationResult::event(midnight + (hour * 3600.0 + minute * 60.0 + second));
}

SunDaylightState daylightStateOf(const SolarEventCalculationResult& rise, const SolarEventCalculationResult& set) {
  using R = SolarEventCalculationResult;
  if (std::holds_alternative<R::Event>(rise.value) || std::holds_alternative<R::Event>(set.value)) {
    return SunDaylightState::normal;
  }
  if (std::holds_alternative<R::SunAlwaysAboveHorizon>(rise.value) &&
      std::holds_alternative<R::SunAlwaysAboveHorizon>(set.value)) {
    return SunDaylightState::polarDay;
  }
  if (std::holds_alternative<R::SunAlwaysBelowHorizon>(rise.value) &&
      std::holds_alternative<R::SunAlwaysBelowHorizon>(set.value)) {
    return SunDaylightState::polarNight;
  }
  return SunDaylightState::unavailable;
}

Solar::Solar(Date date, Location coordinate) : coordinate(coordinate), date(date) {
  const auto officialRise = calculate(SolarEventKind::rise, date, SolarZenith::official, coordinate);
  const auto officialSet = calculate(SolarEventKind::set, date, SolarZenith::official, coordinate);
  sunrise = officialRise.instant();
  sunset = officialSet.instant();
  civilSunrise = calculate(SolarEventKind::rise, date, SolarZenith::civil, coordinate).instant();
  civilSunset = calculate(SolarEventKind::set, date, SolarZenith::civil, coordinate).instant();
  nauticalSunrise = calculate(SolarEventKind::rise, date, SolarZenith::nautical, coordinate).instant();
  nauticalSunset = calculate(SolarEventKind::set, date, SolarZenith::nautical, coordinate).instant();
  astronomicalSunrise = calculate(SolarEventKind::rise, date, SolarZenith::astronomical, coordinate).instant();
  astronomicalSunset = calculate(SolarEventKind::set, date, SolarZenith::astronomical, coordinate).instant();
  daylightState = daylightStateOf(officialRise, officialSet);
}

}  // namespace ombrine
