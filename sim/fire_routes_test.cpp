#include "sim/fire_routes.hpp"

#include <gtest/gtest.h>

#include <httplib.h>
#include <boost/json/parse.hpp>

#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine::sim {
namespace {

using namespace std::chrono_literals;

const Clock::WallTime kNow{std::chrono::seconds(1784894400)};  // 2026-07-24T12:00:00Z

boost::json::value answerAt(Clock::WallTime now, std::string_view target) {
  PinnedClock clock(now);
  SimServer::Options options;
  options.clock = &clock;
  SimServer server(options);
  const SimResponse response = server.answer(target);
  EXPECT_EQ(response.status, 200) << target;
  return boost::json::parse(response.body);
}

constexpr const char* kNIFCPerimeters =
    "/nifc/T4QMspbfLg3qTGWY/arcgis/rest/services/WFIGS_Interagency_Perimeters_Current/FeatureServer/0/query";

TEST(FireRoutes, PagesEnvelopesAndGrowth) {
  struct Case {
    std::string target;
    size_t features;
    bool more;  // exceededTransferLimit, or numberMatched beyond this page
  };
  const std::string all = std::string(kNIFCPerimeters) + "?resultRecordCount=2000";
  const Case cases[] = {
      {all, 3, true},                                            // the layer's own limit of three
      {all + "&resultOffset=3", 2, false},                       // Pine Ridge in Oregon and Peavine
      {all + "&geometry=-123,38,-120,41", 3, true},              // northern California
      {all + "&geometry=-118.5,43,-117,44", 1, false},           // only Pine Ridge
      {all + "&where=(x) AND OBJECTID IN (501,503)", 2, false},  // chosen members
      {"/cwfis/geoserver/public/ows?count=2000&startIndex=0", 3, true},
      {"/cwfis/geoserver/public/ows?count=2000&startIndex=3", 1, false},
      {"/cwfif/geoserver/ows?count=10&CQL_FILTER=longitude >= -121.5 AND longitude <= -119.5 AND latitude >= 49.5 AND "
       "latitude <= 51.5",
       4, false},  // K71234 twice, K62011, V80345 (K50077 is out)
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    const auto page = answerAt(kNow, c.target).as_object();
    EXPECT_EQ(page.at("features").as_array().size(), c.features);
    bool more = page.contains("properties") && page.at("properties").at("exceededTransferLimit").as_bool();
    if (page.contains("numberMatched")) {
      const auto start = c.target.find("startIndex=3") != std::string::npos ? 3 : 0;
      more = static_cast<size_t>(page.at("numberMatched").to_number<std::int64_t>()) > start + c.features;
    }
    EXPECT_EQ(more, c.more);
  }
  // Perimeters grow hour by hour.
  auto dixonAcres = [](Clock::WallTime now) {
    const auto page = answerAt(now, std::string(kNIFCPerimeters) + "?where=OBJECTID IN (501)");
    return page.at("features").at(0).at("properties").at("poly_GISAcres").to_number<double>();
  };
  EXPECT_LT(dixonAcres(kNow), dixonAcres(kNow + 6h));
}

TEST(FireRoutes, ServiceWildcardInFaults) {
  SimServer server;
  server.setFault("nifc.*=status=429,retry-after=none");
  httplib::Client client("127.0.0.1", server.port());
  const auto nifc = client.Get(std::string(kNIFCPerimeters) + "?f=geojson");
  ASSERT_TRUE(nifc);
  EXPECT_EQ(nifc->status, 429);
  EXPECT_FALSE(nifc->has_header("Retry-After"));
  EXPECT_NE(nifc->body.find(R"("error":{"code":429)"), std::string::npos);
  const auto calFire = client.Get("/calfire/api/sitecore/Incident/GetFiresForMap?showFeatured=False");
  ASSERT_TRUE(calFire);
  EXPECT_EQ(calFire->status, 200);
  EXPECT_THROW(server.setFault("nosuch.*=status=503"), std::invalid_argument);
}

}  // namespace
}  // namespace ombrine::sim
