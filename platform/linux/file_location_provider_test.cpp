#include "platform/linux/file_location_provider.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/atomic_file.hpp"

namespace ombrine {
namespace {

TEST(FileLocationProvider, ParsesWhatToolsWrite) {
  struct Row {
    std::string text;
    std::optional<DeviceLocation> expected;
  };
  const auto located = [](double latitude, double longitude, std::optional<std::string> name = std::nullopt,
                          std::optional<std::string> zone = std::nullopt,
                          std::optional<std::string> region = std::nullopt) {
    DeviceLocation location;
    location.latitude = latitude;
    location.longitude = longitude;
    location.name = std::move(name);
    location.timeZone = std::move(zone);
    location.region = std::move(region);
    return location;
  };
  const Row rows[] = {
      {"59.91,10.75", located(59.91, 10.75)},
      {" -33.87 , 151.21 , Sydney Harbour \n", located(-33.87, 151.21, "Sydney Harbour")},
      {R"({"latitude": 48.8566, "longitude": 2.3522, "name": "Paris", "timeZone": "Europe/Paris", "region": "FR"})",
       located(48.8566, 2.3522, "Paris", "Europe/Paris", "FR")},
      {R"({"latitude": -16.5, "longitude": 179.99})", located(-16.5, 179.99)},
      {"90.5,0", std::nullopt},
      {"10,180.01", std::nullopt},
      {"10;20", std::nullopt},
      {"10,abc", std::nullopt},
      {"nan,1", std::nullopt},
      {R"({"latitude": "48", "longitude": 2})", std::nullopt},
      {R"({"latitude": 48})", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(parseLocationFile(row.text), row.expected);
  }
}

TEST(FileLocationProvider, ConfiguredPlaceBeforeTheFile) {
  char pattern[] = "/tmp/ombrine-location-XXXXXX";
  const std::filesystem::path folder = ::mkdtemp(pattern);
  const auto file = folder / "here.json";
  ::setenv("OMBRINE_LOCATION_FILE", file.c_str(), 1);
  ::unsetenv("OMBRINE_LOCATION");
  FileLocationProvider provider;
  EXPECT_FALSE(provider.currentLocation());
  writeFileAtomically(file, R"({"latitude": 1.5, "longitude": 2.5})");
  EXPECT_EQ(provider.currentLocation(), (DeviceLocation{1.5, 2.5, {}, {}, {}, file.string()}));
  ::setenv("OMBRINE_LOCATION", "3,4,Somewhere", 1);
  EXPECT_EQ(provider.currentLocation(), (DeviceLocation{3, 4, "Somewhere", {}, {}, "OMBRINE_LOCATION"}));
  // A malformed configured place falls through to the file.
  ::setenv("OMBRINE_LOCATION", "north", 1);
  EXPECT_EQ(provider.currentLocation()->source, file.string());
  ::unsetenv("OMBRINE_LOCATION");
  ::unsetenv("OMBRINE_LOCATION_FILE");
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace ombrine
