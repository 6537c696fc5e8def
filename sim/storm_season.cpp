#include "sim/storm_season.hpp"

#include <fmt/format.h>

#include <cmath>
#include <numbers>

namespace ombrine::sim {

namespace {

using std::chrono::hours;

constexpr int kCycleHours = 240;
constexpr int kFixHours = 6;

struct SeasonEntry {
  const char* name;
  const char* basin;
  int genesisHour;  // since the cycle began
  int lifeHours;
  double latitude, longitude, heading, speedKt, turnPerHour;
  int peakKt;
  std::optional<int> nhcNumber;
  int nhcFromHour;  // since genesis
  std::optional<int> jtwcNumber;
  std::optional<int> jtwcInvestNumber;  // before `jtwcRenumberHour`
  int jtwcRenumberHour;
};

const SeasonEntry kSeason[] = {
    {"Lanlan", "WP", 0, 222, 11.0, 145.0, 300.0, 9.0, 0.08, 145, std::nullopt, 0, 6, std::nullopt, 0},
    {"Ernesto", "AL", 6, 216, 13.0, -40.0, 285.0, 13.0, 0.12, 125, 5, 0, std::nullopt, std::nullopt, 0},
    {"Iona", "CP", 18, 180, 14.5, -171.0, 272.0, 11.0, -0.02, 105, 1, 24, 1, 91, 30},
    {"Kiko", "EP", 60, 120, 12.0, -100.0, 290.0, 10.0, 0.0, 80, 9, 0, 9, std::nullopt, 0},
    {"Freddy", "SH", 120, 100, -12.0, 95.0, 240.0, 8.0, -0.05, 90, std::nullopt, 0, 4, std::nullopt, 0},
};

double wrapLongitude(double longitude) {
  double reduced = std::fmod(longitude + 180.0, 360.0);
  if (reduced < 0) reduced += 360.0;
  return reduced - 180.0;
}

int roundTo5(double value) { return static_cast<int>(std::lround(value / 5.0)) * 5; }

// The storm `entry` at `hour` hours after genesis (0 <= hour <= life).
SimStormFix fixAt(const SeasonEntry& entry, Instant genesis, int hour) {
  double latitude = entry.latitude;
  double longitude = entry.longitude;
  double heading = entry.heading;
  for (int h = 0; h < hour; ++h) {
    const double rad = heading * std::numbers::pi / 180.0;
    latitude += entry.speedKt * std::cos(rad) / 60.0;
    longitude += entry.speedKt * std::sin(rad) / (60.0 * std::cos(latitude * std::numbers::pi / 180.0));
    heading += entry.turnPerHour;
  }
  const double phase = std::sin(std::numbers::pi * hour / entry.lifeHours);
  const int wind = roundTo5(25.0 + (entry.peakKt - 25.0) * std::pow(std::max(phase, 0.0), 1.3));
  return SimStormFix{
      .time = genesis + hours(hour),
      .latitude = std::round(latitude * 10.0) / 10.0,
      .longitude = std::round(wrapLongitude(longitude) * 10.0) / 10.0,
      .windKt = wind,
      .gustKt = roundTo5(wind * 1.22),
      .pressureMb = static_cast<int>(std::lround(1016.0 - 0.8 * wind)),
      .heading = std::fmod(std::fmod(heading, 360.0) + 360.0, 360.0),
      .speedKt = entry.speedKt,
  };
}

int yearOf(Instant instant) {
  return static_cast<int>(std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(instant)).year());
}

}  // namespace

std::string SimStorm::nhcID() const {
  return fmt::format("{}{:02}{:04}",
                     basin == "AL"   ? "al"
                     : basin == "EP" ? "ep"
                     : basin == "CP" ? "cp"
                                     : "xx",
                     nhcNumber.value_or(0), year);
}

std::string SimStorm::jtwcSlug() const {
  std::string prefix = basin;
  for (char& c : prefix) c = static_cast<char>(c - 'A' + 'a');
  return fmt::format("{}{:02}{:02}", prefix, jtwcNumber.value_or(0), year % 100);
}

std::string SimStorm::classification() const {
  if (current.windKt >= 64) return "HU";
  if (current.windKt >= 34) return "TS";
  return "TD";
}

std::vector<SimStorm> simulatedStorms(Instant now) {
  const long long seconds = now.time_since_epoch().count();
  const long long cycleSeconds = kCycleHours * 3600LL;
  const Instant cycleStart{std::chrono::seconds(seconds - (((seconds % cycleSeconds) + cycleSeconds) % cycleSeconds))};
  const long long sinceFix = ((seconds % (kFixHours * 3600)) + kFixHours * 3600) % (kFixHours * 3600);
  const Instant advisory = now - std::chrono::seconds(sinceFix);
  std::vector<SimStorm> storms;
  for (const auto& entry : kSeason) {
    const Instant genesis = cycleStart + hours(entry.genesisHour);
    const auto age = std::chrono::duration_cast<hours>(advisory - genesis).count();
    if (age < 0 || age >= entry.lifeHours) continue;
    const int hour = static_cast<int>(age);
    SimStorm storm;
    storm.name = entry.name;
    storm.basin = entry.basin;
    storm.year = yearOf(genesis);
    if (entry.nhcNumber && hour >= entry.nhcFromHour) storm.nhcNumber = entry.nhcNumber;
    if (entry.jtwcNumber)
      storm.jtwcNumber =
          entry.jtwcInvestNumber && hour < entry.jtwcRenumberHour ? entry.jtwcInvestNumber : entry.jtwcNumber;
    storm.advisoryNumber = hour / kFixHours + 1;
    storm.current = fixAt(entry, genesis, hour);
    for (int h = 0; h <= hour; h += kFixHours) storm.history.push_back(fixAt(entry, genesis, h));
    for (int ahead : {12, 24, 36, 48, 72, 96, 120}) {
      if (hour + ahead > entry.lifeHours) break;
      storm.forecast.emplace_back(ahead, fixAt(entry, genesis, hour + ahead));
    }
    storms.push_back(std::move(storm));
  }
  return storms;
}

}  // namespace ombrine::sim
