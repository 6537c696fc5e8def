#include "history/climate_decoding.hpp"

#include <boost/json/monotonic_resource.hpp>

#include <array>
#include <cmath>

namespace ombrine {

namespace {

constexpr std::array<std::string_view, 12> kNASAMonthNames = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                              "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};

// A "data" member that may be missing or null (no months) or a list of records.
template <class T>
std::vector<T> dataList(const boost::json::value& document) {
  const JsonPath root;
  JsonObjectReader reader(document, root);
  std::vector<T> out;
  const boost::json::value* data = reader.find("data");
  if (data == nullptr || data->is_null()) return out;
  const JsonPath path = root.key("data");
  decodeJson(*data, path, out);
  return out;
}

NASAPowerHistoryData::MonthValues monthValues(JsonObjectReader& parameters, std::string_view name) {
  NASAPowerHistoryData::MonthValues values;
  const boost::json::value* found = parameters.find(name);
  if (found == nullptr || found->is_null()) return values;
  const JsonPath path = parameters.path().key(name);
  for (const auto& member : jsonObject(*found, path)) {
    if (member.value().is_null()) continue;
    const JsonPath month = path.key(member.key());
    values.emplace(std::string(member.key()), jsonNumber(member.value(), month));
  }
  return values;
}

}  // namespace

constexpr auto jsonMembers(const RawHistoryData::History*) {
  using H = RawHistoryData::History;
  return std::make_tuple(jsonMember("month", &H::month), jsonMember("tmin", &H::tmin), jsonMember("tmax", &H::tmax),
                         jsonMember("tsun", &H::tsun), jsonMember("prcp", &H::prcp));
}
constexpr auto jsonMembers(const Station*) { return std::make_tuple(jsonMember("id", &Station::id)); }

RawHistoryData decodeMeteostatNormals(std::string_view body) {
  boost::json::monotonic_resource arena;
  const auto document = parseJson(body, &arena);
  return RawHistoryData{dataList<RawHistoryData::History>(document)};
}

StationData decodeMeteostatStations(std::string_view body) {
  boost::json::monotonic_resource arena;
  const auto document = parseJson(body, &arena);
  return StationData{dataList<Station>(document)};
}

NASAPowerHistoryData decodeNASAPowerClimatology(std::string_view body) {
  boost::json::monotonic_resource arena;
  const auto document = parseJson(body, &arena);
  const JsonPath root;
  JsonObjectReader reader(document, root);
  NASAPowerHistoryData out;

  const boost::json::value* header = reader.find("header");
  const JsonPath headerPath = root.key("header");
  if (header == nullptr) headerPath.fail("missing key");
  JsonObjectReader headerReader(*header, headerPath);
  headerReader.read("fill_value", out.header.fillValue);

  const boost::json::value* properties = reader.find("properties");
  const JsonPath propertiesPath = root.key("properties");
  if (properties == nullptr) propertiesPath.fail("missing key");
  JsonObjectReader propertiesReader(*properties, propertiesPath);
  const boost::json::value* parameter = propertiesReader.find("parameter");
  const JsonPath parameterPath = propertiesPath.key("parameter");
  if (parameter == nullptr) parameterPath.fail("missing key");
  JsonObjectReader parameters(*parameter, parameterPath);
  out.properties.parameter.tmin = monthValues(parameters, "T2M_MIN_AVG");
  out.properties.parameter.tmax = monthValues(parameters, "T2M_MAX_AVG");
  out.properties.parameter.prcp = monthValues(parameters, "PRECTOTCORR_SUM");
  return out;
}

std::vector<HistoryData::History> historyMonths(const RawHistoryData& raw) {
  std::vector<HistoryData::History> months;
  months.reserve(raw.data.size());
  for (const auto& month : raw.data) {
    HistoryData::History history{
        .month = month.month, .tmin = month.tmin, .tmax = month.tmax, .tsun = {}, .prcp = month.prcp};
    // Far beyond any month's minutes counts as nothing rather than overflowing.
    if (month.tsun && std::isfinite(*month.tsun) && std::abs(*month.tsun) < 1e9) {
      history.tsun = static_cast<int>(std::lround(*month.tsun));
    }
    months.push_back(history);
  }
  return months;
}

std::vector<HistoryData::History> historyMonths(const NASAPowerHistoryData& nasa) {
  const double fill = nasa.header.fillValue;
  auto valueOf = [fill](const NASAPowerHistoryData::MonthValues& values,
                        std::string_view name) -> std::optional<double> {
    const auto found = values.find(name);
    if (found == values.end() || !std::isfinite(found->second) || found->second == fill) return std::nullopt;
    return found->second;
  };
  std::vector<HistoryData::History> months;
  const auto& parameter = nasa.properties.parameter;
  for (size_t i = 0; i < kNASAMonthNames.size(); ++i) {
    const auto tmin = valueOf(parameter.tmin, kNASAMonthNames[i]);
    const auto tmax = valueOf(parameter.tmax, kNASAMonthNames[i]);
    const auto prcp = valueOf(parameter.prcp, kNASAMonthNames[i]);
    if (!tmin && !tmax && !prcp) continue;
    HistoryData::History month{.month = static_cast<int>(i + 1)};
    if (tmin) month.tmin = Temperature::celsius(*tmin);
    if (tmax) month.tmax = Temperature::celsius(*tmax);
    if (prcp) month.prcp = Precipitation::millimeters(*prcp);
    months.push_back(month);
  }
  return months;
}

std::string encodeHistoryData(const HistoryData& history) { return encodeJson(history); }

HistoryData decodeHistoryData(std::string_view text) {
  boost::json::monotonic_resource arena;
  const auto document = parseJson(text, &arena);
  HistoryData history;
  const JsonPath root;
  decodeJson(document, root, history);
  return history;
}

}  // namespace ombrine
