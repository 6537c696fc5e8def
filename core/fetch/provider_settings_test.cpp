#include "core/fetch/provider_settings.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"

namespace ombrine {
namespace {

TEST(UuidTest, TextRoundTripsAndRejectsMalformedText) {
  const auto id = Uuid::random();
  EXPECT_EQ(id.text().size(), 36u);
  EXPECT_EQ(Uuid::parse(id.text()), id);
  EXPECT_EQ(id.text()[14], '4') << "version 4";
  EXPECT_NE(Uuid::random(), id);

  struct Row {
    const char* text;
    bool valid;
  };
  const Row rows[] = {
      {"E621E1F8-C36C-495A-93FC-0C247A3E6E5F", true},
      {"e621e1f8-c36c-495a-93fc-0c247a3e6e5f", true},    // lower case is read too
      {"E621E1F8C36C495A93FC0C247A3E6E5F", false},       // no dashes
      {"E621E1F8-C36C-495A-93FC-0C247A3E6E5", false},    // one digit short
      {"E621E1F8-C36C-495A-93FC-0C247A3E6E5FF", false},  // one digit long
      {"E621E1F8-C36C-495A-93FC0-C247A3E6E5F", false},   // dash in the wrong place
      {"G621E1F8-C36C-495A-93FC-0C247A3E6E5F", false},   // not hex
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Uuid::parse(row.text).has_value(), row.valid);
  }
  EXPECT_EQ(Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f")->text(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
}

TEST(ImmediateWeatherProviderFetchRequestTest, JsonKeysAndRejectedDocuments) {
  const ImmediateWeatherProviderFetchRequest request{*Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
                                                     WeatherDataSource::ow};
  const auto json = encodeImmediateWeatherProviderFetchRequest(request);
  EXPECT_EQ(json, R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":3})");
  EXPECT_EQ(decodeImmediateWeatherProviderFetchRequest(json), request);

  const char* rejected[] = {
      R"({"provider":1})",                                 // no id
      R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"})",  // no provider
      R"({"id":"not-a-uuid","provider":1})",
      R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":4})",  // past ow
      R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":-1})",
      R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":"ow"})",  // names are not stored
      R"([1,2])",
      R"({"id":)",
  };
  for (const char* text : rejected) {
    SCOPED_TRACE(text);
    EXPECT_THROW(decodeImmediateWeatherProviderFetchRequest(text), DecodingError);
  }
}

TEST(SessionProviderSettingsTest, CompletingOnlyClearsTheMatchingRequestAndKeepsThePreference) {
  SessionProviderSettings settings(WeatherDataSource::foreca);
  std::vector<ProviderSettingsChange> heard;
  auto token = settings.observeProviderChanges([&](ProviderSettingsChange change) { heard.push_back(change); });

  const auto first = settings.requestImmediateFetch(WeatherDataSource::ow);
  const auto second = settings.requestImmediateFetch(WeatherDataSource::apple);
  settings.completeImmediateFetch(first.id);  // replaced already: nothing happens
  EXPECT_EQ(settings.pendingImmediateWeatherProviderFetchRequest(), second);
  settings.completeImmediateFetch(second.id);
  EXPECT_FALSE(settings.pendingImmediateWeatherProviderFetchRequest());
  EXPECT_EQ(settings.dataSource(), WeatherDataSource::foreca);

  settings.setDataSource(WeatherDataSource::foreca);  // unchanged: not told
  settings.setDataSource(WeatherDataSource::ow);
  const std::vector<ProviderSettingsChange> expected{
      ProviderSettingsChange::immediateRequest, ProviderSettingsChange::immediateRequest,
      ProviderSettingsChange::immediateRequest, ProviderSettingsChange::dataSource};
  EXPECT_EQ(heard, expected);

  token.cancel();
  settings.setDataSource(WeatherDataSource::apple);
  EXPECT_EQ(heard.size(), expected.size()) << "a dropped token unregisters";
}

}  // namespace
}  // namespace ombrine
