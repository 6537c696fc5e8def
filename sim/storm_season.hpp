#pragma once
// A deterministic tropical storm season for the simulated NHC and JTWC feeds.
//
// The season repeats every 240 hours (from the Unix epoch). Within a cycle, by hours since its
// start:
//   - "Ernesto", Atlantic (NHC "al05<yyyy>" only), from hour 6: a depression that intensifies
//     to a major hurricane while it recurves north;
//   - "Lanlan", West Pacific (JTWC "wp06<yy>" only), from hour 0: peaks at 145 kt, a super typhoon;
//   - "Iona", Central Pacific, from hour 18: JTWC lists invest "cp91<yy>" until hour 48 and
//     "cp01<yy>" after; NHC names it "cp01<yyyy>" from hour 42, so for six hours the two feeds
//     give the same system different numbers. It moves west and crosses the date line near
//     hour 66;
//   - "Kiko", East Pacific, from hour 60: in both feeds ("ep09<yyyy>" and "ep09<yy>");
//   - "Freddy", Southern Hemisphere (JTWC "sh04<yy>"), from hour 120;
//   - from hour 222 to the end of the cycle nothing is active.
// Positions advance hour by hour along a heading that turns slowly; winds rise and fall over a
// storm's life; forecasts are the same model run ahead (12 to 120 hours). Fixes fall on whole
// 6-hour synoptic times; the latest one at or before `now` is the current advisory.
//
// Pure functions of the instant; thread-safe.

#include <optional>
#include <string>
#include <vector>

#include "sim/sim_time.hpp"

namespace ombrine::sim {

struct SimStormFix {
  Instant time;
  double latitude = 0.0;
  double longitude = 0.0;  // -180..180
  int windKt = 0;
  int gustKt = 0;
  int pressureMb = 0;
  double heading = 0.0;  // degrees the storm moves towards
  double speedKt = 0.0;
};

struct SimStorm {
  std::string name;
  std::string basin;              // "AL", "EP", "CP", "WP", "SH"
  int year = 0;                   // of genesis
  std::optional<int> nhcNumber;   // set while NHC lists it
  std::optional<int> jtwcNumber;  // set while JTWC lists it (90-99 for an invest)
  int advisoryNumber = 0;
  SimStormFix current;
  std::vector<SimStormFix> history;                   // every 6 hours from genesis, current last
  std::vector<std::pair<int, SimStormFix>> forecast;  // (hours ahead, fix), 12 to 120

  std::string nhcID() const;     // "al052026"
  std::string jtwcSlug() const;  // "wp0626"
  // "HU", "TS", "TD" from the current wind (NHC's codes).
  std::string classification() const;
};

// The storms active at `now`, in a stable order.
std::vector<SimStorm> simulatedStorms(Instant now);

}  // namespace ombrine::sim
