// Both timelines loaded as the map loads them: real HTTP over loopback against the simulator,
// through the HTTP cache, with the simulator's faults.

#include "radar/radar_loader.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "core/fetch/service_endpoints.hpp"
#include "core/values/errors.hpp"
#include "platform/caching_http_client.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/linux/signing_credential_issuer.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

class RadarLoaderTest : public ::testing::Test {
 protected:
  RadarLoaderTest()
      : directory_(scratch_.path()),
        endpoints_(ServiceEndpoints::simulator(simulator_.baseUrl())),
        cache_(directory_),
        cached_(network_, cache_, clock_),
        issuer_(SigningCredentialIssuer::withEphemeralKey(clock_)),
        tokens_(runtime_.makeStrand(), network_, clock_, endpoints_.tileProxy, defaults_, *issuer_),
        loader_(cached_, tokens_,
                RadarEndpoints{endpoints_.rainViewer, std::string(endpoints_.rainViewerTiles.buffer()),
                               endpoints_.tileProxy},
                TimeZone::gmt()) {}

  Date now() const { return Date::fromSystem(clock_.now()); }

  sim::SimServer simulator_;
  const ScratchFolder scratch_{"ombrine-radar-loader"};
  std::filesystem::path directory_;
  ServiceEndpoints endpoints_;
  Runtime runtime_{2};
  SystemClock clock_;
  CurlHttpClient network_;
  HttpCache cache_;
  CachingHttpClient cached_;
  InMemoryKeyValueStore defaults_;
  std::unique_ptr<SigningCredentialIssuer> issuer_;
  TileTokenManager tokens_;
  RadarLoader loader_;
};

TEST_F(RadarLoaderTest, RainViewerFramesOrTheFallback) {
  struct Row {
    const char* name;
    const char* fault;  // empty: healthy
    bool fromService;
    const char* reason;
  };
  const Row rows[] = {
      {"healthy", "", true, ""},
      {"unavailable", "rainviewer.*=status=503", false, "HTTP status 503"},
      {"rate limited", "rainviewer.maps=status=429", false, "HTTP status 429"},
      {"malformed", "rainviewer.maps=malformed", false, "cannot decode"},
      {"cut short", "rainviewer.maps=truncate", false, "request failed"},
      {"stale frames", "rainviewer.maps=behind=2400", false, "seconds old"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    cache_.removeAllCachedResponses();
    simulator_.clearFaults();
    if (*row.fault) simulator_.setFault(row.fault);
    const RainViewerFrames frames = runtime_.runBlocking(loader_.loadRainViewerFrames(now()));
    EXPECT_EQ(frames.fromService, row.fromService);
    EXPECT_NE(frames.fallbackReason.find(row.reason), std::string::npos) << frames.fallbackReason;
    EXPECT_EQ(frames.response.host, simulator_.baseUrl() + "/rainviewer-tiles");
    EXPECT_EQ(frames.response.radar.past.size(), 13u);
    EXPECT_EQ(frames.response.radar.nowcast.has_value(), row.fromService);
  }
  // A healthy reply is fresh for a minute: the next load is answered by the cache.
  simulator_.clearFaults();
  runtime_.runBlocking(loader_.loadRainViewerFrames(now()));
  const auto before = simulator_.requestCount("rainviewer.maps");
  runtime_.runBlocking(loader_.loadRainViewerFrames(now()));
  EXPECT_EQ(simulator_.requestCount("rainviewer.maps"), before);
  // Stale (an hour later, by the caller's clock): the fallback, not a frozen animation.
  const RainViewerFrames later = runtime_.runBlocking(loader_.loadRainViewerFrames(now() + 3600));
  EXPECT_FALSE(later.fromService);
  EXPECT_NE(later.fallbackReason.find("seconds old"), std::string::npos);
}

TEST_F(RadarLoaderTest, CapabilitiesWithATokenRetryOnceAfterARefusal) {
  const ForecaMapCapabilities capabilities = runtime_.runBlocking(loader_.loadForecaCapabilities());
  const auto clouds = forecaFrames(ForecaMapLayer::cloudCoverage, capabilities, now());
  ASSERT_TRUE(clouds);
  EXPECT_EQ(clouds->forecaMapLayerImageID, 130);
  EXPECT_EQ(clouds->frames.size(), 6u + 1 + 36);  // 6 h back to 36 h ahead, hourly
  EXPECT_EQ(simulator_.requestCount("tileproxy.token"), 1u);

  simulator_.setFault("tileproxy.capabilities=status=403,times=1");
  runtime_.runBlocking(loader_.loadForecaCapabilities());
  EXPECT_EQ(simulator_.requestCount("tileproxy.capabilities"), 3u);  // refused, then retried once
  EXPECT_EQ(simulator_.requestCount("tileproxy.token"), 2u);         // the refused token was dropped

  // A token minted 850 s "ago" has 50 s left: used for the load that asked for it, renewed by the
  // next one.
  runtime_.runBlocking(tokens_.invalidateToken());
  simulator_.setFault("tileproxy.token=behind=850,times=1");
  runtime_.runBlocking(loader_.loadForecaCapabilities());
  runtime_.runBlocking(loader_.loadForecaCapabilities());
  EXPECT_EQ(simulator_.requestCount("tileproxy.token"), 4u);

  struct Row {
    const char* fault;
    NetworkError::Case expected;
  };
  const Row rows[] = {{"tileproxy.capabilities=status=403,times=2", NetworkError::invalidResponse},
                      {"tileproxy.capabilities=status=429", NetworkError::exceededApiLimit},
                      {"tileproxy.capabilities=status=500", NetworkError::invalidResponse},
                      {"tileproxy.token=status=500", NetworkError::invalidResponse}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fault);
    simulator_.clearFaults();
    runtime_.runBlocking(tokens_.invalidateToken());
    simulator_.setFault(row.fault);
    try {
      runtime_.runBlocking(loader_.loadForecaCapabilities());
      ADD_FAILURE() << "loaded";
    } catch (const NetworkError& error) {
      EXPECT_EQ(error.which(), row.expected);
    }
  }
}

}  // namespace
}  // namespace ombrine
