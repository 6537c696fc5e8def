#include "fires/fire_features.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "core/values/errors.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine {
namespace {

std::string readTestFile(const std::string& name) {
  return readFileIfExists(std::string(OMBRINE_TESTDATA_DIR) + "/" + name).value_or("");
}

TEST(FireFeatures, RealCalFireListsInEveryForm) {
  struct Case {
    const char* file;
    size_t count;
    const char* firstName;
    std::optional<double> firstAcres;
    const char* firstUrl;
  };
  const Case cases[] = {
      {"incidents-list-2024-06-19.json", 12, "Post Fire", 15690, "/incidents/2024/6/15/post-fire/"},
      {"geojsonlist-inactive-2022.json", 0, "Colorado Fire", 687,
       "https://www.fire.ca.gov/incidents/2022/1/21/colorado-fire/"},
      {"getincidents-legacy-2021-08-15.json", 0, "Dixie Fire", 554816, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const auto list = decodeCalFireIncidentList(readTestFile(c.file));
    ASSERT_FALSE(list.empty());
    if (c.count) EXPECT_EQ(list.size(), c.count);
    EXPECT_EQ(list.front().name, c.firstName);
    EXPECT_EQ(list.front().acresBurned, c.firstAcres);
    if (c.firstUrl) EXPECT_EQ(list.front().detailsPath, c.firstUrl);
    EXPECT_TRUE(list.front().latitude.has_value());
  }
  // A float among integers, a null type and a multi-county text, as the service sends them.
  const auto list = decodeCalFireIncidentList(readTestFile("incidents-list-2024-06-19.json"));
  EXPECT_EQ(list[2].acresBurned, 17.7);
  EXPECT_FALSE(list[0].type.has_value());
  EXPECT_EQ(list[0].county, "Los Angeles,Ventura");
  EXPECT_EQ(list[0].updatedDate, "2024-06-18");
}

TEST(FireFeatures, GeometriesAndEdgeCases) {
  using Kind = FireGeoJSONGeometry::Kind;
  struct Case {
    const char* name;
    const char* geometry;
    Kind kind;
    size_t polygons;   // usable perimeter polygons
    size_t interiors;  // holes of the first polygon
  };
  const Case cases[] = {
      {"null geometry", "null", Kind::none, 0, 0},
      {"point", R"({"type":"Point","coordinates":[-121.5,39.5]})", Kind::point, 0, 0},
      {"point with one number", R"({"type":"Point","coordinates":[-121.5]})", Kind::none, 0, 0},
      {"polygon with a hole",
       R"({"type":"Polygon","coordinates":[[[-121,39],[-120,39],[-120,40],[-121,39]],[[-120.8,39.2],[-120.6,39.2],[-120.6,39.4],[-120.8,39.2]]]})",
       Kind::polygon, 1, 1},
      {"type matched in lower case",
       R"({"coordinates":[[[[0,0],[1,0],[1,1],[0,0]]],[[[5,5],[6,5],[6,6],[5,5]]]],"type":"MULTIPOLYGON"})",
       Kind::multiPolygon, 2, 0},
      {"multipolygon", R"({"type":"MultiPolygon","coordinates":[[[[0,0],[1,0],[1,1],[0,0]]]]})", Kind::multiPolygon, 1,
       0},
      {"ring across the antimeridian",
       R"({"type":"Polygon","coordinates":[[[179.9,-17],[-179.9,-17],[-179.9,-16.9],[179.9,-16.9],[179.9,-17]]]})",
       Kind::polygon, 1, 0},
      {"polygon nested like a multipolygon", R"({"type":"Polygon","coordinates":[[[[0,0],[1,0],[1,1],[0,0]]]]})",
       Kind::none, 0, 0},
      {"degenerate exterior", R"({"type":"Polygon","coordinates":[[[0,0],[1,1]]]})", Kind::polygon, 0, 0},
      {"empty coordinates", R"({"type":"Polygon","coordinates":[]})", Kind::polygon, 0, 0},
      {"line string", R"({"type":"LineString","coordinates":[[0,0],[1,1]]})", Kind::none, 0, 0},
      {"text in a position", R"({"type":"Polygon","coordinates":[[[0,"a"],[1,0],[1,1],[0,0]]]})", Kind::none, 0, 0},
      {"collection of geometries",
       R"({"type":"GeometryCollection","geometries":[{"type":"Point","coordinates":[1,2]}]})", Kind::none, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string text = std::string(R"({"features":[{"id":1,"geometry":)") + c.geometry + R"(,"properties":{}}]})";
    const auto collection = decodeFireFeatureCollection<NIFCFirePerimeterProperties>(text);
    ASSERT_EQ(collection.features.size(), 1u);
    const auto& feature = collection.features.front();
    const Kind kind = feature.geometry ? feature.geometry->kind() : Kind::none;
    EXPECT_EQ(kind, c.kind);
    const auto polygons = feature.geometry ? firePolygons(*feature.geometry) : std::vector<FirePerimeter::Polygon>{};
    EXPECT_EQ(polygons.size(), c.polygons);
    if (!polygons.empty()) EXPECT_EQ(polygons.front().interiors.size(), c.interiors);
  }
}

TEST(FireFeatures, PositionsAreLongitudeFirst) {
  const auto collection = decodeFireFeatureCollection<NIFCFirePerimeterProperties>(
      R"({"features":[{"geometry":{"type":"Polygon","coordinates":[[[179.9,-17,12],[-179.9,-17],[-179.9,-16.9],[179.9,-17]]]}}]})");
  const auto polygons = firePolygons(*collection.features[0].geometry);
  ASSERT_EQ(polygons.size(), 1u);
  EXPECT_EQ(polygons[0].exterior[0], (FireCoordinate{-17, 179.9}));
  EXPECT_EQ(polygons[0].exterior[1], (FireCoordinate{-17, -179.9}));
}

TEST(FireFeatures, IdentifiersCountsAndPaging) {
  const auto collection = decodeFireFeatureCollection<CWFISActiveFireProperties>(R"({
    "type":"FeatureCollection","totalFeatures":120,"numberMatched":"120","properties":{"exceededTransferLimit":true},
    "features":[
      {"id":7,"geometry":null,"properties":{"agency_code":"CA-BC","agency_fire_id":"K71234","fire_size":12.5,
       "fire_was_prescribed":false,"fire_year":2026,"unknown":{"deep":[1,2,{"x":null}]}}},
      {"id":"7","properties":{"agency_fire_id":445,"fire_was_prescribed":"N"}}]})");
  ASSERT_EQ(collection.features.size(), 2u);
  EXPECT_EQ(collection.features[0].id, (FireFeatureID{std::int64_t{7}}));
  EXPECT_EQ(collection.features[1].id, (FireFeatureID{std::string("7")}));
  EXPECT_NE(collection.features[0].id, collection.features[1].id);
  EXPECT_EQ(collection.numberMatched->integer(), 120);
  EXPECT_EQ(collection.totalFeatures->integer(), 120);
  EXPECT_TRUE(collection.exceededTransferLimit());
  EXPECT_EQ(collection.features[0].properties->agencyFireID->text, "K71234");
  EXPECT_EQ(collection.features[1].properties->agencyFireID->text, "445");
  EXPECT_EQ(collection.features[0].properties->fireWasPrescribed->text, "false");
  EXPECT_FALSE(FlexibleFireFeatureCount{std::string("many")}.integer().has_value());
}

TEST(FireFeatures, MalformedInputRaises) {
  const char* cases[] = {
      R"({"type":"FeatureCollection"})",                        // "features" is required
      R"({"features":[{"properties":{"OBJECTID":"seven"}}]})",  // wrong kind for a known key
      R"({"features":[{"id":1.5}]})",                           // an id that is no integer
      R"({"features":[)",                                       // cut short
      R"([])",
  };
  for (const char* text : cases) {
    SCOPED_TRACE(text);
    EXPECT_THROW(decodeFireFeatureCollection<NIFCFirePerimeterProperties>(text), DecodingError);
  }
  EXPECT_THROW(decodeCalFireIncidentList(R"({"Fires":[]})"), DecodingError);
  EXPECT_THROW(decodeCalFireIncidentList("42"), DecodingError);
}

TEST(FireFeatures, ErrorPayloadSummary) {
  struct Case {
    FireFeatureServiceErrorPayload payload;
    const char* summary;
  };
  const Case cases[] = {
      {{400, "  Invalid query ", std::vector<std::string>{"a", "b"}}, "code 400: Invalid query: a: b"},
      {{std::nullopt, "busy", std::nullopt}, "busy"},
      {{503, " ", std::nullopt}, "code 503"},
      {{}, "unknown feature service error"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.payload.summary(), c.summary);
}

}  // namespace
}  // namespace ombrine
