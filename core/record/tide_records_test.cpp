#include <gtest/gtest.h>

#include <cmath>

#include "core/record/tide_records.hpp"
#include "core/record/tide_records_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {
namespace {

using Kind = TideExtreme::Kind;

constexpr Date kT0{800'000'000.0};

TideExtreme extreme(double offset, double meters, Kind kind) { return {kT0 + offset, Length::meters(meters), kind}; }

TEST(TideStationTest, SubordinateAndDisplayName) {
  struct Row {
    const char* why;
    std::optional<std::string> type;
    std::optional<std::string> reference;
    bool subordinate;
  };
  const Row rows[] = {
      {"upper-case S", "S", std::nullopt, true},
      {"lower-case s", "s", std::nullopt, true},
      {"reference station with a reference id", "R", "9414290", true},
      {"reference station with an empty reference id", "R", "", false},
      {"no type: the reference id alone decides", std::nullopt, "9414290", true},
      {"no type and no reference", std::nullopt, std::nullopt, false},
      {"a longer type that starts with S", "SUB", std::nullopt, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const TideStation station{.id = "1", .name = "A", .type = row.type, .referenceStationID = row.reference};
    EXPECT_EQ(station.isSubordinate(), row.subordinate);
  }
  EXPECT_EQ((TideStation{.name = "Dover", .state = "DE"}).displayName(), "Dover, DE");
  EXPECT_EQ((TideStation{.name = "Dover", .state = ""}).displayName(), "Dover");
  EXPECT_EQ((TideStation{.name = "Dover"}).displayName(), "Dover");
  EXPECT_EQ(stationKey(TideStationSource::chs, "5cebf1de3d0f4a073c4bb94c"), "chs:5cebf1de3d0f4a073c4bb94c");
  EXPECT_EQ(TideDetailLaunchRequest::currentLocation().identity(), "current-location");
  EXPECT_EQ(TideDetailLaunchRequest::station({TideStationSource::noaa, TideStation{.id = "8557380"}}).identity(),
            "noaa:8557380");
}

TEST(TideDataTest, NextExtremeChartWindowAndOrdering) {
  TideData data;
  EXPECT_EQ(data.nextExtreme(kT0), std::nullopt);
  data.extremes = {extreme(0, 1.0, Kind::high), extreme(6 * 3600, 0.1, Kind::low)};
  EXPECT_EQ(data.nextExtreme(kT0 - 1), data.extremes[0]);
  EXPECT_EQ(data.nextExtreme(kT0), data.extremes[0]);  // at the date still counts as next
  EXPECT_EQ(data.nextExtreme(kT0 + 1), data.extremes[1]);
  EXPECT_EQ(data.nextExtreme(kT0 + 86400), data.extremes[1]);    // all past: the last, not nothing
  EXPECT_EQ(data.extremesIn({kT0, kT0 + 6 * 3600}).size(), 2u);  // closed interval
  EXPECT_EQ(data.extremesIn({kT0 + 1, kT0 + 6 * 3600 - 1}).size(), 0u);

  struct Row {
    const char* why;
    double first;  // offset of the first chart point from now
    double last;
    bool covers;
  };
  const Row rows[] = {
      {"exactly 4 h back and 52 h ahead", -14400, 187200, true},
      {"one second short at the start", -14399, 187200, false},
      {"one second short at the end", -14400, 187199, false},
      {"ends 51 h ahead", -28800, 51 * 3600, false},
      {"wider on both sides", -28800, 201600, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    data.chartPoints = {{kT0 + row.first, Length::meters(1)}, {kT0 + row.last, Length::meters(1)}};
    EXPECT_EQ(data.coversChartWindow(kT0), row.covers);
  }
  data.chartPoints.clear();
  EXPECT_FALSE(data.coversChartWindow(kT0));

  // At one date a high sorts before a low; otherwise by date.
  EXPECT_TRUE(tideExtremeLess(extreme(0, 0, Kind::high), extreme(0, 0, Kind::low)));
  EXPECT_FALSE(tideExtremeLess(extreme(0, 0, Kind::low), extreme(0, 0, Kind::high)));
  EXPECT_TRUE(tideExtremeLess(extreme(0, 0, Kind::low), extreme(1, 0, Kind::high)));
  EXPECT_FALSE(tideExtremeLess(extreme(0, 0, Kind::high), extreme(0, 5, Kind::high)));
}

TEST(TideChartPointsTest, CosineInterpolationBetweenExtremes) {
  const std::vector<TideExtreme> tide = {extreme(0, 2.0, Kind::high), extreme(3600, 0.0, Kind::low),
                                         extreme(7200, 2.0, Kind::high)};
  const auto points = chartPoints(tide, 900);
  ASSERT_EQ(points.size(), 9u);  // 0, 15, ..., 120 minutes, each date once
  const double expected[] = {2.0, 2.0 - 2.0 * (1 - std::cos(M_PI / 4)) / 2, 1.0,
                             2.0 - 2.0 * (1 - std::cos(3 * M_PI / 4)) / 2, 0.0};
  for (size_t i = 0; i < 5; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(points[i].date, kT0 + 900.0 * static_cast<double>(i));
    EXPECT_NEAR(points[i].height.inMeters(), expected[i], 1e-12);
    EXPECT_NEAR(points[8 - i].height.inMeters(), expected[i], 1e-12);  // the rise mirrors the fall
  }
  EXPECT_EQ(points[4].height, Length::meters(0.0));  // the extreme itself is exact

  // A step that does not divide the span: the last point of a span is the next extreme.
  const auto uneven = chartPoints({extreme(0, 1.0, Kind::high), extreme(1000, 0.0, Kind::low)}, 900);
  ASSERT_EQ(uneven.size(), 3u);
  EXPECT_EQ(uneven[2].date, kT0 + 1000.0);
  EXPECT_EQ(uneven[2].height, Length::meters(0.0));

  struct Row {
    const char* why;
    std::vector<TideExtreme> extremes;
    double step;
    std::optional<DateInterval> window;
    size_t count;
  };
  const Row rows[] = {
      {"no step", tide, 0, std::nullopt, 0},
      {"negative step", tide, -900, std::nullopt, 0},
      {"one extreme", {extreme(0, 1, Kind::high)}, 900, std::nullopt, 0},
      {"two extremes at one date: the low is dropped",
       {extreme(0, 0, Kind::low), extreme(0, 1, Kind::high)},
       900,
       std::nullopt,
       0},
      {"unsorted input is sorted first", {tide[2], tide[0], tide[1]}, 900, std::nullopt, 9},
      {"window starting before the first extreme", tide, 900, DateInterval{kT0 - 1, kT0 + 3600}, 0},
      {"window ending after the last extreme", tide, 900, DateInterval{kT0 + 1, kT0 + 7201}, 0},
      {"window on extremes exactly", tide, 900, DateInterval{kT0, kT0 + 7200}, 9},
      {"window between steps adds both ends", tide, 900, DateInterval{kT0 + 100, kT0 + 1900}, 4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(chartPoints(row.extremes, row.step, row.window).size(), row.count);
  }
  // The duplicate high wins over the low at the same date, so the high's height is kept.
  const auto kept =
      chartPoints({extreme(0, 0, Kind::low), extreme(0, 1, Kind::high), extreme(600, 0.5, Kind::low)}, 900);
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_EQ(kept[0].height, Length::meters(1.0));

  const auto windowed = chartPoints(tide, 900, DateInterval{kT0 + 100, kT0 + 1900});
  EXPECT_EQ(windowed.front().date, kT0 + 100.0);
  EXPECT_NEAR(windowed.front().height.inMeters(), 1.0 + std::cos(M_PI * 100 / 3600), 1e-12);
  EXPECT_EQ(windowed.back().date, kT0 + 1900.0);
  EXPECT_EQ(interpolatedPoint(tide, kT0 + 3600)->height, Length::meters(0.0));
  EXPECT_EQ(interpolatedPoint(tide, kT0 - 1), std::nullopt);
  EXPECT_EQ(interpolatedPoint(tide, kT0 + 7201), std::nullopt);
}

TEST(TideRecordsJsonTest, RoundTripsAndRejectsBadStations) {
  TideData data;
  data.station = TideStation{.id = "8557380",
                             .name = "Lewes",
                             .latitude = 38.7828,
                             .longitude = -75.1192,
                             .state = "DE",
                             .type = "S",
                             .referenceStationID = "8557380"};
  data.distance = 12'345.678;
  data.extremes = {extreme(0, 1.5, Kind::high), extreme(22'350.5, -0.0, Kind::low)};
  data.chartPoints = {{kT0, Length::meters(1.5)}, {kT0 + 900, Length::meters(1e-7)}};
  data.fetchedAt = kT0 - 0.125;
  const std::string text = serializeJson(tideDataToJson(data));
  EXPECT_EQ(decodeTideData(parseJson(text), ""), data);
  EXPECT_NE(text.find(R"("lat":38.7828,"lng":-75.1192,"state":"DE","type":"S","reference_id":"8557380")"),
            std::string::npos);
  EXPECT_NE(text.find(R"("date":800000000,"height":1.5,"kind":"H")"), std::string::npos);

  // Optional keys are left out when absent.
  EXPECT_EQ(serializeJson(tideStationToJson(TideStation{.id = "a", .name = "b", .latitude = 1.5, .longitude = 2})),
            R"({"id":"a","name":"b","lat":1.5,"lng":2})");

  struct Row {
    const char* json;
    const char* message;
  };
  const Row rows[] = {
      {R"({"name":"b","lat":1,"lng":2})", "station.id: missing key"},
      {R"({"id":7,"name":"b","lat":1,"lng":2})", "station.id: expected a string, found a number"},
      {R"({"id":"a","name":"b","lat":"1","lng":2})", "station.lat: expected a number, found a string"},
      {R"({"id":"a","name":"b","lat":1})", "station.lng: missing key"},
      {R"({"id":"a","name":"b","lat":null,"lng":2})", "station.lat: expected a number, found null"},
      {R"({"id":"a","name":"b","lat":1,"lng":2,"state":5})", "station.state: expected a string, found a number"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.json);
    try {
      decodeTideStation(parseJson(row.json), "station");
      ADD_FAILURE() << "decoded";
    } catch (const DecodingError& error) {
      EXPECT_STREQ(error.what(), row.message);
    }
  }
  const auto station = decodeTideStation(parseJson(R"({"id":"a","name":"b","lat":1,"lng":2,"state":null,"x":[]})"), "");
  EXPECT_EQ(station.state, std::nullopt);
  EXPECT_THROW(decodeTideData(parseJson(R"({"station":{"id":"a","name":"b","lat":1,"lng":2},"distance":0,
      "extremes":[{"date":1,"height":1,"kind":"X"}],"chartPoints":[],"fetchedAt":0})"),
                              "tideData"),
               DecodingError);
}

}  // namespace
}  // namespace ombrine
