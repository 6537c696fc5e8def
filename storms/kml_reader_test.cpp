#include "storms/kml_reader.hpp"

#include <gtest/gtest.h>

#include "platform/errors.hpp"
#include "storms/storm_time.hpp"

namespace ombrine {
namespace {

const Date kReference = *utcDate(2026, 9, 10, 12, 0);

const char* kTrack = R"(<?xml version="1.0" encoding="UTF-8"?>
<kml xmlns="http://www.opengis.net/kml/2.2" xmlns:gx="http://www.google.com/kml/ext/2.2">
<Document><name>AL052026 forecast</name>
  <Placemark><name>Cone of Uncertainty</name>
    <Polygon><outerBoundaryIs><LinearRing><coordinates>-60,20 -61,21,0 -62,20 -60,20</coordinates></LinearRing></outerBoundaryIs>
    <innerBoundaryIs><LinearRing><coordinates>-60.5,20.2 -60.6,20.3 -60.7,20.2</coordinates></LinearRing></innerBoundaryIs></Polygon>
  </Placemark>
  <Placemark><name>Storm Track</name><LineString><coordinates>-60,20 -62,22</coordinates></LineString></Placemark>
  <Placemark><name>Current Position</name><styleUrl>#hu_point</styleUrl>
    <description><![CDATA[Valid at: 11:00 AM AST September 10, 2026<br>Maximum Wind: 100 knots (115 mph)<br>
      Wind Gusts: 120 knots (140 mph)<br>Minimum Pressure: 958 mb<br>MOVING NORTH-NORTHWEST AT 12 KNOTS]]></description>
    <Point><coordinates>-60.0,20.0,0</coordinates></Point></Placemark>
  <Placemark><name>24 hr Forecast</name>
    <ExtendedData><Data name="stormType"><value>HU2</value></Data></ExtendedData>
    <description>1200 UTC SEP 11 INTENSITY 85 KT</description>
    <Point><coordinates>181.5,21.0</coordinates></Point></Placemark>
  <Placemark><name>path</name><gx:Track><gx:coord>179.5 10 0</gx:coord><gx:coord>-179.5 10.5 0</gx:coord><gx:coord>180 11 0</gx:coord><gx:coord>-540 11.5 0</gx:coord></gx:Track></Placemark>
</Document></kml>)";

TEST(KMLReaderTest, FeaturesAndPointAttributes) {
  const auto features = kmlFeatures(kTrack, kReference);
  ASSERT_EQ(features.size(), 4u);
  const auto& cone = std::get<KMLPolygon>(features[0]);
  EXPECT_EQ(cone.coordinates.size(), 4u);  // the hole is not part of the cone
  EXPECT_EQ(cone.coordinates[1], (KMLCoordinate{21, -61}));

  const auto& now = std::get<KMLCircleFeature>(features[1]);
  EXPECT_EQ(now.forecastHour, "current");
  EXPECT_EQ(now.intensityTag, "HU");
  EXPECT_EQ(now.windKt, 100);
  EXPECT_EQ(now.windMph, 115);
  EXPECT_EQ(now.gustKt, 120);
  EXPECT_EQ(now.gustMph, 140);
  EXPECT_EQ(now.pressureMb, 958);
  EXPECT_EQ(now.movementDir, 337.5);
  EXPECT_EQ(now.movementSpeed, 12.0);
  EXPECT_EQ(now.time, utcDate(2026, 9, 10, 15, 0));  // 11 AM AST is 15 UTC

  const auto& next = std::get<KMLCircleFeature>(features[2]);
  EXPECT_EQ(next.coordinate, (KMLCoordinate{21, -178.5}));  // 181.5 wraps past the date line
  EXPECT_EQ(next.forecastHour, "24");
  EXPECT_EQ(next.intensityTag, "HU2");
  EXPECT_EQ(next.windKt, 85);
  EXPECT_EQ(next.time, utcDate(2026, 9, 11, 12, 0));  // the year comes from the document

  const auto& track = std::get<KMLPolyline>(features[3]);
  EXPECT_EQ(track.coordinates, (std::vector<KMLCoordinate>{{10, 179.5}, {10.5, -179.5}, {11, 180}, {11.5, -180}}));
}

TEST(KMLReaderTest, PointTimesAndMotion) {
  struct Row {
    const char* description;
    std::optional<Date> time;
    std::optional<double> direction;
  };
  const Row rows[] = {
      {"valid 2026091018Z", utcDate(2026, 9, 10, 18, 0), std::nullopt},
      {"12/06Z position", utcDate(2026, 9, 12, 6, 0), std::nullopt},     // day/hour in the reference month
      {"310600Z NEAR 22.8N", utcDate(2026, 8, 31, 6, 0), std::nullopt},  // no 31 September: August
      {"0900 UTC AUG 30 MOVING WEST", utcDate(2026, 8, 30, 9, 0), 270.0},
      {"MOVING SOUTH-SOUTHWEST", std::nullopt, 202.5},
      {"MOVING NOWHERE", std::nullopt, std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.description);
    const auto a = kmlPointAttributes("", row.description, {}, "", 2026, kReference);
    EXPECT_EQ(a.time, row.time);
    EXPECT_EQ(a.movementDir, row.direction);
  }
}

TEST(KMLReaderTest, AgencyShapesAreDroppedButTheirPointsKept) {
  const char* kml = R"(<kml><Document>
    <Placemark><name>RADIUS OF 034 KT WINDS</name><Polygon><outerBoundaryIs><LinearRing><coordinates>1,1 2,2 3,1</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>
    <Placemark><name>TCFA Area</name><Point><coordinates>5,5</coordinates></Point></Placemark>
    <Placemark><name>Best Track</name><LineString><coordinates>1,1 2,2</coordinates></LineString><Point><coordinates>2,2</coordinates></Point></Placemark>
  </Document></kml>)";
  const auto features = kmlFeatures(kml, kReference);
  // A point-only placemark stays whatever its name; a line or radius shape goes with its points.
  ASSERT_EQ(features.size(), 1u);
  EXPECT_EQ(std::get<KMLCircleFeature>(features[0]).coordinate, (KMLCoordinate{5, 5}));
}

TEST(KMLReaderTest, HostileDocumentsFail) {
  std::string deep;
  for (int i = 0; i < 100; ++i) deep += "<a>";
  for (int i = 0; i < 100; ++i) deep += "</a>";
  std::string wordy = "<kml>";
  const std::string placemark = "<Placemark><name>x</name><description>" + std::string(2000, 'w') +
                                "</description><Point><coordinates>1,2</coordinates></Point></Placemark>";
  for (int i = 0; i < 600; ++i) wordy += placemark;
  wordy += "</kml>";
  const std::string rows[] = {
      wordy,                                                                              // over 1 MiB of point texts
      "<kml><Document>",                                                                  // truncated
      "<kml><Placemark></kml>",                                                           // mismatched tags
      deep,                                                                               // deep nesting
      R"(<!DOCTYPE kml [<!ENTITY a "aaaaaaaa"><!ENTITY b "&a;&a;&a;">]><kml>&b;</kml>)",  // entity expansion
      "",
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.substr(0, 40));
    EXPECT_THROW(kmlFeatures(row, kReference), KMLParseError);
  }
}

TEST(KMLReaderTest, CancellationAbortsAtTheNextCallback) {
  int calls = 0;
  auto cancelled = [&] { return ++calls > 3; };
  EXPECT_THROW(kmlFeatures(kTrack, kReference, cancelled), CancellationError);
  EXPECT_EQ(calls, 4);
}

}  // namespace
}  // namespace ombrine
