#include "persistence/settings_store.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

StoreValue integer(std::int64_t i) { return StoreValue{i}; }
StoreValue text(const char* s) { return StoreValue{std::string(s)}; }

TEST(SettingsReadRulesTest, EachKeyReadsByItsRule) {
  struct Row {
    const char* why;
    const char* key;
    std::optional<StoreValue> stored;
    Settings expected;  // differs from the defaults in the one field under test
  };
  auto with = [](auto change) {
    Settings s;
    change(s);
    return s;
  };
  const Settings defaults;
  const Row rows[] = {
      // clang-format off
      {"nothing stored: a new user", "hideTides", std::nullopt, defaults},
      {"provider 0", "preferredWeatherProvider", integer(0), defaults},
      {"provider 1", "preferredWeatherProvider", integer(1), with([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::apple; })},
      {"provider 2", "preferredWeatherProvider", integer(2), with([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::foreca; })},
      {"provider 3", "preferredWeatherProvider", integer(3), with([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::ow; })},
      {"provider 4 is no provider", "preferredWeatherProvider", integer(4), defaults},
      {"provider 5 is no provider", "preferredWeatherProvider", integer(5), defaults},
      {"provider -1", "preferredWeatherProvider", integer(-1), defaults},
      {"provider read as a number: 2.0", "preferredWeatherProvider", StoreValue{2.0}, with([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::foreca; })},
      {"provider 2.5 is not 2", "preferredWeatherProvider", StoreValue{2.5}, defaults},
      {"provider as text is no number", "preferredWeatherProvider", text("2"), defaults},
      {"hourly precipitation absent: shown", "showHourlyPrecipitation", std::nullopt, defaults},
      {"hourly precipitation false is told from absent", "showHourlyPrecipitation", StoreValue{false}, with([](Settings& s) { s.showHourlyPrecipitation = false; })},
      {"hourly precipitation 0 is no boolean: shown", "showHourlyPrecipitation", integer(0), defaults},
      {"hourly precipitation as text: shown", "showHourlyPrecipitation", text("false"), defaults},
      {"additional uvi", "preferredAdditionalHourlyData", text("uvi"), with([](Settings& s) { s.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::uvi; })},
      {"additional wind", "preferredAdditionalHourlyData", text("wind"), with([](Settings& s) { s.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::wind; })},
      {"additional windAndGust", "preferredAdditionalHourlyData", text("windAndGust"), with([](Settings& s) { s.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::windAndGust; })},
      {"additional airQuality", "preferredAdditionalHourlyData", text("airQuality"), with([](Settings& s) { s.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::airQuality; })},
      {"additional text is case-sensitive", "preferredAdditionalHourlyData", text("UVI"), defaults},
      {"unknown additional text", "preferredAdditionalHourlyData", text("pollen"), defaults},
      {"additional as a number", "preferredAdditionalHourlyData", integer(1), defaults},
      {"boolean true", "hideTides", StoreValue{true}, with([](Settings& s) { s.hideTides = true; })},
      {"boolean as 1 is no boolean", "hideWeatherAlerts", integer(1), defaults},
      {"boolean as text", "preferFeelsLike", text("true"), defaults},
      {"hidden mode", "isBriskoModeEnabled", StoreValue{true}, with([](Settings& s) { s.isBriskoModeEnabled = true; })},
      // clang-format on
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    InMemoryKeyValueStore cloud;
    if (row.stored) cloud.setValue(row.key, *row.stored);
    EXPECT_EQ(readSettings(cloud), row.expected);
  }
}

TEST(SettingsReadRulesTest, StoredFormsReadBackAsTheSameSettings) {
  Settings all;
  all.hideWeatherAlerts = all.hideTides = all.preferFeelsLike = all.isBriskoModeEnabled = true;
  all.preferredWeatherProvider = WeatherDataSource::ow;
  all.showHourlyPrecipitation = false;
  all.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::windAndGust;
  InMemoryKeyValueStore cloud;
  for (const SettingsField& field : settingsFields()) cloud.setValue(field.key, field.stored(all));
  EXPECT_EQ(readSettings(cloud), all);
  EXPECT_EQ(cloud.value("preferredWeatherProvider"), integer(3));
  EXPECT_EQ(cloud.value("preferredAdditionalHourlyData"), text("windAndGust"));
}

class SettingsStoreTest : public testing::Test {
 protected:
  // The pool stops first, while the clock and stores its tasks refer to still exist: a work item
  // cancelled by a store's destruction may not have run yet when the test body ends.
  void TearDown() override { runtime_.stop(); }

  Runtime runtime_{2};
  FakeClock clock_;
  std::shared_ptr<InMemoryCloudServer> server_ = std::make_shared<InMemoryCloudServer>();
  InMemoryCloudKeyValueStore cloud_{server_};
  InMemoryKeyValueStore shared_;
};

TEST_F(SettingsStoreTest, ChangesInQuickSuccessionCostOneSynchronize) {
  SettingsStore store(cloud_, shared_, clock_, runtime_.makeStrand(), 500ms);
  store.update([](Settings& s) { s.hideTides = true; });
  ASSERT_TRUE(clock_.waitForSleepers(1));
  store.update([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::foreca; });
  store.update([](Settings& s) { s.preferredAdditionalHourlyData = AdditionalHourlyDataPreference::uvi; });
  // The superseded items' cancellations are posted to the serial context; let them land.
  ASSERT_TRUE(eventually([&] { return clock_.pendingSleepers() == 1; }));
  std::this_thread::sleep_for(50ms);
  ASSERT_EQ(clock_.pendingSleepers(), 1u);
  EXPECT_EQ(cloud_.synchronizeCount(), 0u);
  EXPECT_TRUE(server_->values().empty());  // set in the cloud store, not yet synchronised
  clock_.advance(500ms);
  ASSERT_TRUE(eventually([&] { return cloud_.synchronizeCount() == 1; }));
  // Only the changed keys were written, in their stored forms.
  EXPECT_EQ(server_->values(), (StoreDictionary{{"hideTides", StoreValue{true}},
                                                {"preferredAdditionalHourlyData", text("uvi")},
                                                {"preferredWeatherProvider", integer(2)}}));
  // Setting an equal value is no change: nothing written, nothing scheduled.
  store.update([](Settings& s) { s.hideTides = true; });
  EXPECT_EQ(clock_.pendingSleepers(), 0u);
}

TEST_F(SettingsStoreTest, DestructionRunsThePendingSynchronize) {
  {
    SettingsStore store(cloud_, shared_, clock_, runtime_.makeStrand(), 1h);
    store.update([](Settings& s) { s.preferFeelsLike = true; });
  }
  EXPECT_EQ(server_->values().at("preferFeelsLike"), StoreValue{true});
}

TEST_F(SettingsStoreTest, ExternalChangeIsAppliedWithoutWriteBackAndEqualValuesAreSilent) {
  server_->replaceAll({{"hideTides", StoreValue{true}}, {"preferredWeatherProvider", integer(1)}});
  ASSERT_TRUE(cloud_.refresh());
  SettingsStore store(cloud_, shared_, clock_, runtime_.makeStrand());
  std::vector<Settings> heard;
  auto observation = store.observe([&](const Settings& s) { heard.push_back(s); });
  std::vector<ProviderSettingsChange> providerHeard;
  auto token = store.observeProviderChanges([&](ProviderSettingsChange c) { providerHeard.push_back(c); });
  // An observer that writes back what it hears (as a screen binding would) must not reach the
  // cloud store while the change is being applied.
  bool sawApplying = false;
  auto echo = store.observe([&](const Settings& s) {
    sawApplying = store.isApplyingExternalKeyValueStoreUpdate();
    store.setSettings(s);
  });

  // Equal values: no notification at all.
  cloud_.changeExternally("hideTides", StoreValue{true});
  EXPECT_TRUE(heard.empty());

  // Another device moves the provider to a number that is no provider, and shows hourly
  // precipitation explicitly (equal to the default): one notification, dynamic.
  server_->setValue("showHourlyPrecipitation", StoreValue{true});
  cloud_.changeExternally("preferredWeatherProvider", integer(7));
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(heard[0].preferredWeatherProvider, WeatherDataSource::dynamic);
  EXPECT_TRUE(heard[0].hideTides);
  EXPECT_TRUE(sawApplying);
  EXPECT_FALSE(store.isApplyingExternalKeyValueStoreUpdate());
  EXPECT_EQ(providerHeard, std::vector<ProviderSettingsChange>{ProviderSettingsChange::dataSource});
  EXPECT_EQ(store.dataSource(), WeatherDataSource::dynamic);

  // Not written back: the server keeps the other device's 7, and nothing was synchronised.
  store.flush();
  EXPECT_EQ(server_->values().at("preferredWeatherProvider"), integer(7));
  EXPECT_EQ(cloud_.synchronizeCount(), 0u);
}

TEST_F(SettingsStoreTest, ImmediateRequestIsSharedAndCompletedOnlyByItsId) {
  SettingsStore store(cloud_, shared_, clock_, runtime_.makeStrand());
  store.update([](Settings& s) { s.preferredWeatherProvider = WeatherDataSource::apple; });
  int changes = 0;
  auto token = store.observeProviderChanges([&](ProviderSettingsChange) { ++changes; });
  const auto request = store.requestImmediateFetch(WeatherDataSource::foreca);
  EXPECT_EQ(store.pendingImmediateWeatherProviderFetchRequest(), request);
  // The request lives in the shared defaults as JSON data, where other processes read it.
  const auto stored = shared_.dataValue(SettingsStore::pendingImmediateWeatherProviderFetchRequestKey);
  ASSERT_TRUE(stored);
  EXPECT_EQ(decodeImmediateWeatherProviderFetchRequest(stored->bytes), request);

  store.completeImmediateFetch(Uuid::random());  // another fetch's id: nothing happens
  EXPECT_EQ(store.pendingImmediateWeatherProviderFetchRequest(), request);
  store.completeImmediateFetch(request.id);
  EXPECT_EQ(store.pendingImmediateWeatherProviderFetchRequest(), std::nullopt);
  EXPECT_EQ(changes, 2);
  // The request never touched the stored preference.
  EXPECT_EQ(store.dataSource(), WeatherDataSource::apple);

  // Garbage under the key reads as no request.
  shared_.setValue(SettingsStore::pendingImmediateWeatherProviderFetchRequestKey, text("{\"id\": 3}"));
  EXPECT_EQ(store.pendingImmediateWeatherProviderFetchRequest(), std::nullopt);
}

}  // namespace
}  // namespace ombrine
