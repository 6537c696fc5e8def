#include "places/coordinate_text.hpp"

#include <gtest/gtest.h>

#include <cmath>

#include <string>

#include "core/fetch/geocoder.hpp"

namespace ombrine {
namespace {

TEST(CoordinateTextTest, ReadsDecimalDegreesSeparatedByCommaOrSpace) {
  struct Row {
    const char* text;
    double latitude;
    double longitude;
  };
  const Row rows[] = {
      {"48.137,11.575", 48.137, 11.575},
      {" -33.87 , 151.21 ", -33.87, 151.21},
      {"0 0", 0, 0},
      {"+90,-180", 90, -180},
      {"-90, 180", -90, 180},
      {".5,-.25", 0.5, -0.25},
      {"47.,8", 47, 8},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const Location location = parseCoordinate(row.text);
    EXPECT_EQ(location.latitude(), row.latitude);
    EXPECT_EQ(location.longitude(), row.longitude);
  }
}

TEST(CoordinateTextTest, MalformedOrOutOfRangeTextSaysWhatIsWrong) {
  struct Row {
    const char* text;
    const char* message;
  };
  const Row rows[] = {
      {"91,200",
       "\"91,200\" is not a coordinate: latitude 91 is outside -90 to 90 and longitude 200 is outside "
       "-180 to 180"},
      {"45,-180.5", "longitude -180.5 is outside -180 to 180"},
      {"-90.0001,0", "latitude -90.0001 is outside -90 to 90"},
      {"48.1,", "\"48.1,\" is not a coordinate: write latitude,longitude in decimal degrees"},
      {"", "is not a coordinate"},
      {"abc", "\"abc\" is not a coordinate"},
      {"1,2,3", "is not a coordinate"},
      {"1e3,5", "is not a coordinate"},
      {"nan,inf", "is not a coordinate"},
      {"--5,5", "is not a coordinate"},
      {"48.1 11.5 3", "is not a coordinate"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    try {
      parseCoordinate(row.text);
      ADD_FAILURE() << "accepted";
    } catch (const InvalidPlaceQuery& e) {
      EXPECT_NE(std::string(e.what()).find(row.message), std::string::npos) << e.what();
    }
  }
  EXPECT_THROW(checkCoordinate(std::nan(""), 0), InvalidPlaceQuery);
  EXPECT_THROW(checkCoordinate(0, 180.01), InvalidPlaceQuery);
  EXPECT_NO_THROW(checkCoordinate(-90, -180));
}

TEST(CoordinateTextTest, OnlyNumberLikeTextIsTakenForACoordinate) {
  EXPECT_TRUE(looksLikeCoordinate("48.1,"));
  EXPECT_TRUE(looksLikeCoordinate("91,200"));
  EXPECT_TRUE(looksLikeCoordinate("-1 -2"));
  EXPECT_FALSE(looksLikeCoordinate("abc"));
  EXPECT_FALSE(looksLikeCoordinate("Springfield, IL"));
  EXPECT_FALSE(looksLikeCoordinate("10th of Ramadan"));
  EXPECT_FALSE(looksLikeCoordinate(",.- "));
}

TEST(CoordinateTextTest, NamesACoordinateWithHemispheres) {
  EXPECT_EQ(coordinateName(48.137, 11.575), "48.14°N 11.58°E");
  EXPECT_EQ(coordinateName(-33.87, -151.2), "33.87°S 151.20°W");
  EXPECT_EQ(coordinateName(-0.001, -0.004), "0.00°N 0.00°E");
  EXPECT_EQ(coordinateName(90, -180), "90.00°N 180.00°W");
}

}  // namespace
}  // namespace ombrine
