// The Almanac method against the NOAA general solar position equations (fractional year,
// equation of time, declination, hour angle at the 90.833° zenith), which share no step with it.
// Prints the median and largest difference per latitude for a year of sunrises and sunsets.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <vector>

#include "history/civil_date.hpp"
#include "history/solar_events.hpp"

namespace ombrine {
namespace {

constexpr double kPi = std::numbers::pi;

// Minutes after 00:00 UTC of an event on day-of-year `n` (1-based) of a 365-day year, from the
// NOAA equations evaluated at `utcMinutes` (iterated by the caller). Nothing in polar states.
std::optional<double> noaaEventMinutes(bool rise, int n, double latitude, double longitude, double utcMinutes) {
  const double gamma = 2 * kPi / 365.0 * (n - 1 + (utcMinutes / 60.0 - 12.0) / 24.0);
  const double eqTime = 229.18 * (0.000075 + 0.001868 * std::cos(gamma) - 0.032077 * std::sin(gamma) -
                                  0.014615 * std::cos(2 * gamma) - 0.040849 * std::sin(2 * gamma));
  const double decl = 0.006918 - 0.399912 * std::cos(gamma) + 0.070257 * std::sin(gamma) -
                      0.006758 * std::cos(2 * gamma) + 0.000907 * std::sin(2 * gamma) - 0.002697 * std::cos(3 * gamma) +
                      0.00148 * std::sin(3 * gamma);
  const double phi = latitude * kPi / 180.0;
  const double cosHa =
      std::cos(90.833 * kPi / 180.0) / (std::cos(phi) * std::cos(decl)) - std::tan(phi) * std::tan(decl);
  if (cosHa <= -1 || cosHa >= 1) return std::nullopt;
  const double ha = std::acos(cosHa) * 180.0 / kPi;
  return 720.0 - 4.0 * (longitude + (rise ? ha : -ha)) - eqTime;
}

struct ErrorSummary {
  double median = 0;
  double max = 0;
  size_t samples = 0;
};

ErrorSummary compareYear(double latitude, double longitude) {
  std::vector<double> errors;
  for (int n = 1; n <= 365; ++n) {
    const Date day = utcMidnight(daysFromCivil(CivilDate{2026, 1, 1}) + n - 1);
    for (const bool rise : {true, false}) {
      const auto ours = calculate(rise ? SolarEventKind::rise : SolarEventKind::set, day, SolarZenith::official,
                                  Location(latitude, longitude))
                            .instant();
      std::optional<double> minutes = noaaEventMinutes(rise, n, latitude, longitude, 720.0);
      if (minutes) minutes = noaaEventMinutes(rise, n, latitude, longitude, *minutes);
      if (!ours || !minutes) continue;
      // Both name the event nearest the asked day; compare on the circle of a day.
      double difference = std::fmod(std::abs((*ours - day) - *minutes * 60.0), 86400.0);
      difference = std::min(difference, 86400.0 - difference);
      errors.push_back(difference);
    }
  }
  std::sort(errors.begin(), errors.end());
  if (errors.empty()) return {};
  return ErrorSummary{errors[errors.size() / 2], errors.back(), errors.size()};
}

TEST(SolarAccuracyTest, AgreesWithAnIndependentMethod) {
  // Bounds that catch a wrong constant, quadrant or day shift, not precision claims: the
  // method's fixed constants cost it a minute or two at higher latitudes.
  struct Row {
    double latitude;
    double medianSeconds;
    double maxSeconds;
  };
  const Row rows[] = {{0.0, 40, 90}, {45.0, 90, 180}, {60.0, 180, 300}, {65.0, 240, 420}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.latitude);
    const ErrorSummary summary = compareYear(row.latitude, 10.0);
    std::printf("latitude %4.0f: %zu events, median %5.1f s, max %6.1f s\n", row.latitude, summary.samples,
                summary.median, summary.max);
    EXPECT_GE(summary.samples, 700u);
    EXPECT_LT(summary.median, row.medianSeconds);
    EXPECT_LT(summary.max, row.maxSeconds);
  }
}

}  // namespace
}  // namespace ombrine
