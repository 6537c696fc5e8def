#include "core/fetch/provider_dispatch.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ombrine {
namespace {

TEST(ProviderDispatchTest, SourceAndRegionChooseThePath) {
  struct Row {
    WeatherDataSource source;
    const char* region;
    ProviderPath expected;
  };
  const Row rows[] = {
      {WeatherDataSource::dynamic, "CN", ProviderPath::systemWeatherFallingBackToForeca},
      {WeatherDataSource::dynamic, "BH", ProviderPath::systemWeatherFallingBackToForeca},
      {WeatherDataSource::dynamic, "AE", ProviderPath::systemWeatherFallingBackToForeca},
      {WeatherDataSource::dynamic, "AU", ProviderPath::bureauOfMeteorologyMerged},
      {WeatherDataSource::dynamic, "NZ", ProviderPath::foreca},  // AU's neighbour is no special case
      {WeatherDataSource::dynamic, "DE", ProviderPath::foreca},
      {WeatherDataSource::dynamic, "XX", ProviderPath::foreca},  // unknown region
      {WeatherDataSource::dynamic, "cn", ProviderPath::foreca},  // codes are upper case by contract
      {WeatherDataSource::apple, "DE", ProviderPath::systemWeather},
      {WeatherDataSource::apple, "AU", ProviderPath::systemWeather},
      {WeatherDataSource::foreca, "CN", ProviderPath::foreca},  // an explicit choice beats the region
      {WeatherDataSource::foreca, "AU", ProviderPath::foreca},
      {WeatherDataSource::ow, "CN", ProviderPath::openWeather},
      {WeatherDataSource::ow, "US", ProviderPath::openWeather},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << weatherDataSourceName(row.source) << " in " << row.region);
    EXPECT_EQ(providerPath(row.source, Region{row.region}), row.expected);
  }
}

TEST(ProviderDispatchTest, NamesRoundTripAndUnknownNamesAreRefused) {
  for (auto source :
       {WeatherDataSource::dynamic, WeatherDataSource::apple, WeatherDataSource::foreca, WeatherDataSource::ow}) {
    EXPECT_EQ(weatherDataSourceNamed(weatherDataSourceName(source)), source);
  }
  EXPECT_THROW(weatherDataSourceNamed("Foreca"), std::invalid_argument);
  EXPECT_THROW(weatherDataSourceNamed(""), std::invalid_argument);
}

}  // namespace
}  // namespace ombrine
