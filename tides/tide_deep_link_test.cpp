#include <gtest/gtest.h>

#include <string>
#include <variant>

#include "tides/tide_deep_link.hpp"

namespace ombrine {
namespace {

TEST(TideDeepLinkTest, RecognisesOnlyCompleteLinks) {
  const std::string good =
      "weather://tide/station?source=noaa&stationID=8557380&name=Lewes&latitude=38.78&longitude=-75.12";
  struct Row {
    std::string url;
    bool recognised;
  };
  const Row rows[] = {
      {"weather://tide/current", true},
      {"WEATHER://TIDE/current", true},  // scheme and host without regard to case
      {"weather://tide/current/", true},
      {"weather://tide/Current", false},
      {"weather://tide/", false},
      {"weather://tide/current/extra", false},
      {"weather://storm/current", false},
      {"https://tide/current", false},
      {good, true},
      {good + "&state=DE&stationType=S&referenceStationID=8557380", true},
      {"weather://tide/station?source=ncei&stationID=1&name=A&latitude=1&longitude=1", false},
      {"weather://tide/station?source=chs&stationID=&name=A&latitude=1&longitude=1", false},
      {"weather://tide/station?source=chs&stationID=1&latitude=1&longitude=1", false},
      {"weather://tide/station?source=chs&stationID=1&name=A&latitude=north&longitude=1", false},
      {"weather://tide/station?source=chs&stationID=1&name=A&latitude=91&longitude=1", false},
      {"weather://tide/station?source=chs&stationID=1&name=A&latitude=1&longitude=-180.5", false},
      {"weather://tide/station?source=chs&stationID=1&name=A&latitude=1", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.url);
    EXPECT_EQ(parseTideDeepLink(row.url).has_value(), row.recognised);
  }
  const auto request = parseTideDeepLink(good + "&state=DE");
  ASSERT_TRUE(request);
  const auto& selection = std::get<TideStationSelection>(request->target);
  EXPECT_EQ(selection.station.state, "DE");
  EXPECT_EQ(selection.station.type, std::nullopt);
  EXPECT_EQ(selection.station.latitude, 38.78);
  // Names with spaces and accents survive the round trip through a link.
  const TideDetailLaunchRequest chs =
      TideDetailLaunchRequest::station({TideStationSource::chs, TideStation{.id = "5cebf1",
                                                                            .name = "Pointe-au-Père & Rimouski",
                                                                            .latitude = 48.5,
                                                                            .longitude = -68.466667,
                                                                            .state = "QC",
                                                                            .type = "PERMANENT"}});
  EXPECT_EQ(parseTideDeepLink(tideDeepLink(chs)), chs);
  EXPECT_EQ(parseTideDeepLink(tideDeepLink(TideDetailLaunchRequest::currentLocation())),
            TideDetailLaunchRequest::currentLocation());
}

}  // namespace
}  // namespace ombrine
