#include "core/fetch/service_endpoints.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace ombrine {
namespace {

TEST(ServiceEndpointsTest, SimulatorReplacesEveryServiceAndRejectsNonHttp) {
  const auto sim = ServiceEndpoints::simulator("http://127.0.0.1:8123");
  const auto production = ServiceEndpoints::production();
  const boost::urls::url ServiceEndpoints::*all[] = {&ServiceEndpoints::forecaPrimary,
                                                     &ServiceEndpoints::forecaSecondary,
                                                     &ServiceEndpoints::openWeather,
                                                     &ServiceEndpoints::bureauOfMeteorology,
                                                     &ServiceEndpoints::systemWeather,
                                                     &ServiceEndpoints::noaaMetadata,
                                                     &ServiceEndpoints::noaaData,
                                                     &ServiceEndpoints::chsIwls,
                                                     &ServiceEndpoints::nationalHurricaneCenter,
                                                     &ServiceEndpoints::jointTyphoonWarningCenter,
                                                     &ServiceEndpoints::rainViewer,
                                                     &ServiceEndpoints::meteostat,
                                                     &ServiceEndpoints::nasaPower,
                                                     &ServiceEndpoints::rainViewerTiles,
                                                     &ServiceEndpoints::tileProxy,
                                                     &ServiceEndpoints::nifcFeatureServices,
                                                     &ServiceEndpoints::calFireSite,
                                                     &ServiceEndpoints::calFireFeatureServices,
                                                     &ServiceEndpoints::cwfifGeoServer,
                                                     &ServiceEndpoints::cwfisGeoServer,
                                                     &ServiceEndpoints::bcMapServices};
  for (auto member : all) {
    // No service may escape to the outside world when the simulator is chosen.
    EXPECT_EQ((sim.*member).host(), "127.0.0.1");
    EXPECT_EQ((sim.*member).port(), "8123");
    EXPECT_EQ((production.*member).scheme(), "https");
  }
  EXPECT_EQ(sim.forecaPrimary.path(), "/foreca/api/v1");
  EXPECT_NE(sim.forecaPrimary, sim.forecaSecondary);
  EXPECT_THROW(ServiceEndpoints::simulator("ftp://127.0.0.1"), std::invalid_argument);
  EXPECT_THROW(ServiceEndpoints::simulator("not a url"), std::invalid_argument);

  ::setenv("OMBRINE_SERVICES", "http://127.0.0.1:9", 1);
  EXPECT_EQ(ServiceEndpoints::fromEnvironment().forecaPrimary.port(), "9");
  ::unsetenv("OMBRINE_SERVICES");
  EXPECT_EQ(ServiceEndpoints::fromEnvironment(), production);
}

}  // namespace
}  // namespace ombrine
