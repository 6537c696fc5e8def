#pragma once
// Monthly climate normals: the blended record the history screens chart, and the wire records
// of the two services it is made from (Meteostat's normals through the RapidAPI gateway, and
// NASA POWER's climatology).
//
// Plain values. `HistoryData` is also the form kept in the historical weather cache, as JSON
// {"data": [{"month", "tmin"?, "tmax"?, "tsun"?, "prcp"?}, ...]} with temperatures in Celsius
// and precipitation in millimetres; absent values are left out.

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "core/values/measurements.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

struct HistoryData {
  struct History {
    int month = 1;  // 1 to 12
    std::optional<Temperature> tmin;
    std::optional<Temperature> tmax;
    std::optional<int> tsun;  // minutes of sunshine in the month
    std::optional<Precipitation> prcp;
    bool operator==(const History&) const = default;
  };
  std::vector<History> data;
  bool operator==(const HistoryData&) const = default;
};

constexpr auto jsonMembers(const HistoryData::History*) {
  using H = HistoryData::History;
  return std::make_tuple(jsonMember("month", &H::month), jsonMember("tmin", &H::tmin), jsonMember("tmax", &H::tmax),
                         jsonMember("tsun", &H::tsun), jsonMember("prcp", &H::prcp));
}
constexpr auto jsonMembers(const HistoryData*) { return std::make_tuple(jsonMember("data", &HistoryData::data)); }

// Meteostat's normals, as sent: Celsius, millimetres, sunshine in minutes.
struct RawHistoryData {
  struct History {
    int month = 1;
    std::optional<Temperature> tmin;
    std::optional<Temperature> tmax;
    std::optional<double> tsun;
    std::optional<Precipitation> prcp;
    bool operator==(const History&) const = default;
  };
  std::vector<History> data;
  bool operator==(const RawHistoryData&) const = default;
};

struct Station {
  std::string id;
  bool operator==(const Station&) const = default;
};

struct StationData {
  std::vector<Station> data;
  bool operator==(const StationData&) const = default;
};

struct NASAPowerHistoryData {
  struct Header {
    double fillValue = 0.0;
    bool operator==(const Header&) const = default;
  };
  // Values by NASA POWER's month names ("JAN" ... "DEC", and "ANN" for the year).
  using MonthValues = std::map<std::string, double, std::less<>>;
  struct Parameter {
    MonthValues tmin;  // "T2M_MIN_AVG"
    MonthValues tmax;  // "T2M_MAX_AVG"
    MonthValues prcp;  // "PRECTOTCORR_SUM"
    bool operator==(const Parameter&) const = default;
  };
  struct Properties {
    Parameter parameter;
    bool operator==(const Properties&) const = default;
  };
  Header header;
  Properties properties;
  bool operator==(const NASAPowerHistoryData&) const = default;
};

// One month while the merge assembles it.
struct PartialHistoryMonth {
  int month = 1;
  std::optional<Temperature> tmin;
  std::optional<Temperature> tmax;
  std::optional<int> tsun;
  std::optional<Precipitation> prcp;
  bool operator==(const PartialHistoryMonth&) const = default;
};

}  // namespace ombrine
