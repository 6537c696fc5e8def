#include "fires/fire_features.hpp"

#include <charconv>
#include <cmath>

#include "core/values/errors.hpp"

namespace ombrine {

std::string FireFeatureID::text() const {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, FireFeatureID& out) {
  if (value.kind == boost::json::kind::string) {
    out.value = std::string(value.string);
  } else {
    out.value = jsonInteger(value, path);
  }
}

std::optional<std::int64_t> FlexibleFireFeatureCount::integer() const {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  const std::string& text = std::get<std::string>(value);
  std::int64_t result = 0;
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, result);
  if (ec != std::errc() || ptr != end) return std::nullopt;
  return result;
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, FlexibleFireFeatureCount& out) {
  if (value.kind == boost::json::kind::string) {
    out.value = std::string(value.string);
  } else {
    out.value = jsonInteger(value, path);
  }
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, FireLooseText& out) {
  switch (value.kind) {
    case boost::json::kind::string: out.text = std::string(value.string); return;
    case boost::json::kind::bool_: out.text = value.boolean ? "true" : "false"; return;
    case boost::json::kind::int64: out.text = std::to_string(value.int64); return;
    case boost::json::kind::uint64: out.text = std::to_string(value.uint64); return;
    case boost::json::kind::double_: {
      char buffer[32];
      const auto result = std::to_chars(buffer, buffer + sizeof buffer, value.number);
      out.text.assign(buffer, result.ptr);
      return;
    }
    default: failExpected(value.kind, path, "a string, number or boolean");
  }
}

namespace {

// Drops a whole value it is handed: every key is refused, nested containers get another of it.
class FireSkipFrame final : public JsonStreamFrame {
 public:
  void scalar(JsonStream&, const JsonScalar&) override {}
  void beginObject(JsonStream& stream) override { stream.push<FireSkipFrame>(); }
  void beginArray(JsonStream& stream) override { stream.push<FireSkipFrame>(); }
};

// The coordinates of one geometry as they arrive, whatever their nesting: positions in order,
// with the ends of the rings and polygons that group them. The depth of the innermost arrays
// (where the numbers are) decides what the levels above them are.
struct FireCoordinateNest {
  int leafDepth = 0;  // 0 until the first number
  bool broken = false;
  std::vector<double> numbers;  // of the position being read (of the point at depth 1)
  std::vector<FireCoordinate> positions;
  std::vector<size_t> ringEnds;     // into positions
  std::vector<size_t> polygonEnds;  // into ringEnds

  void number(int depth, double value) {
    if (leafDepth == 0) leafDepth = depth;
    if (depth != leafDepth || !std::isfinite(value)) {
      broken = true;
      return;
    }
    numbers.push_back(value);
  }

  void close(int depth) {
    if (leafDepth == 0) return;
    if (depth == leafDepth) {
      if (leafDepth == 1) return;  // a point keeps its numbers
      if (numbers.size() < 2)
        broken = true;
      else
        positions.push_back(FireCoordinate{numbers[1], numbers[0]});
      numbers.clear();
    } else if (depth == leafDepth - 1) {
      ringEnds.push_back(positions.size());
    } else if (depth == leafDepth - 2) {
      polygonEnds.push_back(ringEnds.size());
    }
  }

  FireGeoJSONGeometry::Polygon polygon(size_t firstRing, size_t endRing) const {
    FireGeoJSONGeometry::Polygon polygon;
    polygon.rings.reserve(endRing - firstRing);
    for (size_t ring = firstRing; ring < endRing; ++ring) {
      const size_t begin = ring == 0 ? 0 : ringEnds[ring - 1];
      polygon.rings.emplace_back(positions.begin() + static_cast<std::ptrdiff_t>(begin),
                                 positions.begin() + static_cast<std::ptrdiff_t>(ringEnds[ring]));
    }
    return polygon;
  }
};

class FireCoordinateFrame final : public JsonStreamFrame {
 public:
  FireCoordinateFrame(FireCoordinateNest& nest, int depth) : nest_(nest), depth_(depth) {}

  void scalar(JsonStream&, const JsonScalar& value) override {
    switch (value.kind) {
      case boost::json::kind::double_: nest_.number(depth_, value.number); break;
      case boost::json::kind::int64: nest_.number(depth_, static_cast<double>(value.int64)); break;
      case boost::json::kind::uint64: nest_.number(depth_, static_cast<double>(value.uint64)); break;
      default: nest_.broken = true; break;
    }
  }
  void beginObject(JsonStream& stream) override {
    nest_.broken = true;
    stream.push<FireSkipFrame>();
  }
  void beginArray(JsonStream& stream) override {
    if (depth_ >= 4) {  // deeper than a multipolygon's positions
      nest_.broken = true;
      stream.push<FireSkipFrame>();
      return;
    }
    stream.push<FireCoordinateFrame>(nest_, depth_ + 1);
  }
  void end(JsonStream&) override { nest_.close(depth_); }

 private:
  FireCoordinateNest& nest_;
  int depth_;
};

class FireGeometryFrame final : public JsonStreamFrame {
 public:
  FireGeometryFrame(const JsonPath&, FireGeoJSONGeometry& target) : target_(target) {}

  bool key(JsonStream&, std::string_view key) override {
    if (key == "type") {
      pending_ = Pending::type;
      return true;
    }
    if (key == "coordinates") {
      pending_ = Pending::coordinates;
      return true;
    }
    return false;
  }
  void scalar(JsonStream&, const JsonScalar& value) override {
    if (pending_ == Pending::type && value.kind == boost::json::kind::string) {
      type_.clear();
      for (char c : value.string) type_.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c));
    }
  }
  void beginObject(JsonStream& stream) override { stream.push<FireSkipFrame>(); }
  void beginArray(JsonStream& stream) override {
    if (pending_ == Pending::coordinates) {
      nest_ = FireCoordinateNest{};
      stream.push<FireCoordinateFrame>(nest_, 1);
    } else {
      stream.push<FireSkipFrame>();
    }
  }
  void end(JsonStream&) override {
    target_.value = std::monostate{};
    if (nest_.broken) return;
    if (type_ == "point" && nest_.leafDepth == 1 && nest_.numbers.size() >= 2) {
      target_.value = FireGeoJSONGeometry::Point{std::move(nest_.numbers)};
    } else if (type_ == "polygon" && (nest_.leafDepth == 3 || nest_.leafDepth == 0)) {
      target_.value = nest_.polygon(0, nest_.ringEnds.size());
    } else if (type_ == "multipolygon" && (nest_.leafDepth == 4 || nest_.leafDepth == 0)) {
      FireGeoJSONGeometry::MultiPolygon multi;
      size_t first = 0;
      for (size_t end : nest_.polygonEnds) {
        multi.polygons.push_back(nest_.polygon(first, end));
        first = end;
      }
      target_.value = std::move(multi);
    }
  }

 private:
  enum class Pending { none, type, coordinates };
  FireGeoJSONGeometry& target_;
  Pending pending_ = Pending::none;
  std::string type_;
  FireCoordinateNest nest_;
};

}  // namespace

void streamScalar(JsonStream&, const JsonScalar&, const JsonPath&, FireGeoJSONGeometry& out) {
  out.value = std::monostate{};
}

void streamObject(JsonStream& stream, const JsonPath& path, FireGeoJSONGeometry& out) {
  out.value = std::monostate{};
  stream.push<FireGeometryFrame>(path, out);
}

void streamArray(JsonStream& stream, const JsonPath& path, FireGeoJSONGeometry& out) {
  out.value = std::monostate{};
  stream.push<FireSkipFrame>();
}

namespace {

FirePerimeter::Polygon perimeterPolygon(const FireGeoJSONGeometry::Polygon& polygon) {
  FirePerimeter::Polygon result;
  for (const auto& ring : polygon.rings) {
    if (ring.size() < 3) continue;
    if (result.exterior.empty()) {
      result.exterior = ring;
    } else {
      result.interiors.push_back(ring);
    }
  }
  return result;
}

}  // namespace

std::vector<FirePerimeter::Polygon> firePolygons(const FireGeoJSONGeometry& geometry) {
  std::vector<FirePerimeter::Polygon> polygons;
  auto add = [&](const FireGeoJSONGeometry::Polygon& polygon) {
    // Only the first ring is the exterior: a degenerate first ring makes the polygon unusable
    // rather than promoting a hole.
    if (polygon.rings.empty() || polygon.rings.front().size() < 3) return;
    polygons.push_back(perimeterPolygon(polygon));
  };
  if (const auto* polygon = std::get_if<FireGeoJSONGeometry::Polygon>(&geometry.value)) add(*polygon);
  if (const auto* multi = std::get_if<FireGeoJSONGeometry::MultiPolygon>(&geometry.value)) {
    for (const auto& polygon : multi->polygons) add(polygon);
  }
  return polygons;
}

namespace {

struct CalFireIncidentListObject {
  std::optional<std::vector<FireFeature<CalFireActiveIncidentProperties>>> features;
  std::optional<std::vector<CalFireActiveIncidentProperties>> incidents;
};
inline constexpr auto kCalFireIncidentListObjectJsonMembers =
    std::tuple{jsonMember("features", &CalFireIncidentListObject::features),
               jsonMember("Incidents", &CalFireIncidentListObject::incidents)};
constexpr const auto& jsonMembers(const CalFireIncidentListObject*) { return kCalFireIncidentListObjectJsonMembers; }

class CalFireListFrame final : public JsonStreamFrame {
 public:
  CalFireListFrame(const JsonPath& path, std::vector<CalFireActiveIncidentProperties>& list,
                   CalFireIncidentListObject& object, bool& isObject)
      : path_(path), list_(list), object_(object), isObject_(isObject) {}
  void scalar(JsonStream&, const JsonScalar& value) override {
    failExpected(value.kind, path_, "an array or an object");
  }
  void beginObject(JsonStream& stream) override {
    isObject_ = true;
    streamObject(stream, path_, object_);
  }
  void beginArray(JsonStream& stream) override { streamArray(stream, path_, list_); }

 private:
  const JsonPath& path_;
  std::vector<CalFireActiveIncidentProperties>& list_;
  CalFireIncidentListObject& object_;
  bool& isObject_;
};

}  // namespace

std::vector<CalFireActiveIncidentProperties> decodeCalFireIncidentList(std::string_view text) {
  std::vector<CalFireActiveIncidentProperties> list;
  CalFireIncidentListObject object;
  bool isObject = false;
  JsonStream stream;
  stream.push<CalFireListFrame>(stream.rootPath(), list, object, isObject);
  stream.read(text);
  if (object.features) {
    for (auto& feature : *object.features) {
      if (!feature.properties) continue;
      auto& properties = *feature.properties;
      // The point's position stands in for missing coordinates in the properties.
      if (feature.geometry) {
        if (const auto* point = std::get_if<FireGeoJSONGeometry::Point>(&feature.geometry->value)) {
          if (!properties.longitude) properties.longitude = point->coordinates[0];
          if (!properties.latitude) properties.latitude = point->coordinates[1];
        }
      }
      list.push_back(std::move(properties));
    }
  } else if (object.incidents) {
    list = std::move(*object.incidents);
  } else if (isObject) {
    throw DecodingError("expected a list of incidents, found an object without \"features\" or \"Incidents\"");
  }
  return list;
}

std::string FireFeatureServiceErrorPayload::summary() const {
  std::vector<std::string> parts;
  if (code) parts.push_back("code " + std::to_string(*code));
  if (message) {
    std::string_view trimmed = *message;
    while (!trimmed.empty() && std::isspace(static_cast<unsigned char>(trimmed.front()))) trimmed.remove_prefix(1);
    while (!trimmed.empty() && std::isspace(static_cast<unsigned char>(trimmed.back()))) trimmed.remove_suffix(1);
    if (!trimmed.empty()) parts.emplace_back(trimmed);
  }
  if (details) {
    for (const auto& detail : *details) parts.push_back(detail);
  }
  if (parts.empty()) return "unknown feature service error";
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += ": ";
    text += parts[i];
  }
  return text;
}

}  // namespace ombrine
