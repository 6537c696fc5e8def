// Tiles loaded and drawn as the map does it: real HTTP over loopback against the simulator's
// tile routes, through the shared HTTP cache, with the simulator's faults.

#include <fontconfig/fontconfig.h>
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>

#include "core/fetch/service_endpoints.hpp"
#include "platform/caching_http_client.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/linux/signing_credential_issuer.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/log.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"
#include "platform/testing/scratch_folder.hpp"
#include "radar/caching_tile_overlay_renderer.hpp"
#include "radar/gif_writer.hpp"
#include "radar/headless_map_view.hpp"
#include "radar/radar_caching_tile_overlay.hpp"
#include "radar/radar_picture.hpp"
#include "radar/tile_errors.hpp"
#include "radar/tile_image.hpp"
#include "sim/pinned_clock.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// Cairo keeps its font map and fontconfig's configuration for the process; give them back once
// every picture is gone, so the leak checker sees only real leaks.
class CairoStaticData : public ::testing::Environment {
 public:
  void TearDown() override {
    cairo_debug_reset_static_data();
    FcFini();
  }
};
const auto* const kCairoStaticData = ::testing::AddGlobalTestEnvironment(new CairoStaticData);

// One delivery, awaited; counts every call so a second delivery shows.
struct Delivery {
  std::promise<std::pair<std::optional<std::string>, std::exception_ptr>> promise;
  std::atomic<int> calls{0};
  TileCompletion completion() {
    return [this](std::optional<std::string> data, std::exception_ptr error) {
      if (calls.fetch_add(1) == 0) promise.set_value({std::move(data), std::move(error)});
    };
  }
  std::pair<std::optional<std::string>, std::exception_ptr> wait() {
    auto future = promise.get_future();
    EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
    return future.get();
  }
};

std::string describe(std::exception_ptr error) {
  if (!error) return "ok";
  try {
    std::rethrow_exception(error);
  } catch (const TileHTTPError& failure) {
    return "http " + std::to_string(failure.statusCode());
  } catch (const TileURLError& failure) {
    return failure.what();
  } catch (const std::exception& failure) {
    return std::string("other: ") + failure.what();
  }
}

class TileLoadingTest : public ::testing::Test {
 protected:
  TileLoadingTest()
      : simulator_(sim::SimServer::Options{.clock = &pinned_}),
        directory_(scratch_.path()),
        endpoints_(ServiceEndpoints::simulator(simulator_.baseUrl())),
        cache_(directory_),
        cached_(network_, cache_, clock_),
        issuer_(SigningCredentialIssuer::withEphemeralKey(clock_)),
        tokens_(runtime_.makeStrand(), network_, clock_, endpoints_.tileProxy, defaults_, *issuer_),
        session_{cached_, cache_, memory_, tokens_, endpoints_.tileProxy, runtime_.executor(), clock_, nullptr} {}

  std::shared_ptr<AnimatedRadarTileOverlay> radarOverlay(const std::string& frame = "/v2/radar/1800000000") {
    return std::make_shared<AnimatedRadarTileOverlay>(session_, std::string(endpoints_.rainViewerTiles.buffer()), frame,
                                                      true, 7);
  }
  std::pair<std::optional<std::string>, std::exception_ptr> load(CachingTileOverlay& overlay, TilePath path) {
    Delivery delivery;
    overlay.loadTile(path, std::nullopt, delivery.completion());
    auto result = delivery.wait();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(delivery.calls.load(), 1);
    return result;
  }

  sim::PinnedClock pinned_{Clock::WallTime(std::chrono::seconds(1'800'000'000))};
  sim::SimServer simulator_;
  const ScratchFolder scratch_{"ombrine-tiles"};
  std::filesystem::path directory_;
  ServiceEndpoints endpoints_;
  Runtime runtime_{2};
  SystemClock clock_;
  CurlHttpClient network_;
  HttpCache cache_;
  CachingHttpClient cached_;
  TileDataMemoryCache memory_;
  InMemoryKeyValueStore defaults_;
  std::unique_ptr<SigningCredentialIssuer> issuer_;
  TileTokenManager tokens_;
  TileSession session_;
};

TEST_F(TileLoadingTest, OneDeliveryPerLoadByReply) {
  struct Row {
    const char* name;
    const char* fault;  // on rainviewer.tile; empty: healthy
    TilePath path;
    const char* outcome;
    int requests;  // tile requests the load makes
  };
  const std::vector<Row> rows = {
      {"healthy", "", {2, 1, 3}, "ok", 1},
      {"cached now: no request", "", {2, 1, 3}, "ok", 0},
      {"x wraps to the same tile", "", {-6, 1, 3}, "ok", 0},
      {"404", "status=404", {1, 1, 3}, "http 404", 1},
      {"503", "status=503", {1, 2, 3}, "http 503", 1},
      {"half an image", "truncate", {1, 3, 3}, "other: ", 1},
      {"not an image", "error200", {1, 4, 3}, "tile: the reply is not an image", 1},
      {"row outside the world", "", {0, 8, 3}, "tile: bad URL", 0},
  };
  auto overlay = radarOverlay();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (*row.fault) simulator_.setFault("rainviewer.tile", sim::parseFault(row.fault));
    simulator_.clearRequestLog();
    const auto [data, error] = load(*overlay, row.path);
    EXPECT_TRUE(describe(error).starts_with(row.outcome)) << describe(error);
    EXPECT_EQ(data.has_value(), error == nullptr);
    EXPECT_EQ(simulator_.requestCount("rainviewer.tile"), static_cast<std::size_t>(row.requests));
    simulator_.clearFaults();
  }
  EXPECT_EQ(overlay->tileKey({0, 8, 3}), "invalid/3/0/8");
  EXPECT_TRUE(overlay->tileKey({-1, 0, 2}).ends_with("/512/2/3/0/2/1_1.png@1.0"));
  EXPECT_TRUE(overlay->cachedTile({2, 1, 3})) << "stored by the shared HTTP cache";
  EXPECT_FALSE(overlay->cachedTile({1, 1, 3})) << "a failed reply is not kept";

  // A 429's "Retry-After" travels with the error.
  simulator_.setFault("rainviewer.tile", sim::parseFault("status=429,retry-after=120"));
  const auto [none, limited] = load(*overlay, {3, 3, 3});
  try {
    std::rethrow_exception(limited);
  } catch (const TileHTTPError& failure) {
    ASSERT_TRUE(failure.retryAfter());
    EXPECT_NEAR(*failure.retryAfter() - Date::fromSystem(clock_.now()), 120.0, 2.0);
  }
}

TEST_F(TileLoadingTest, SupersededCancelledAndExpectedKeyEachDeliverOnce) {
  auto overlay = radarOverlay();
  simulator_.setFault("rainviewer.tile", sim::parseFault("latency=300"));
  // A second load of the same key supersedes the first.
  Delivery first, second;
  overlay->loadTile({5, 5, 4}, std::nullopt, first.completion());
  overlay->loadTile({5, 5, 4}, std::nullopt, second.completion());
  EXPECT_EQ(describe(first.wait().second), "tile: cancelled");
  EXPECT_EQ(describe(second.wait().second), "ok");
  // cancelAllLoads while downloading.
  Delivery third;
  overlay->loadTile({6, 5, 4}, std::nullopt, third.completion());
  std::this_thread::sleep_for(50ms);
  overlay->cancelAllLoads();
  EXPECT_EQ(describe(third.wait().second), "tile: cancelled");
  // A key the caller expected is no longer this path's.
  Delivery fourth;
  overlay->loadTile({7, 5, 4}, std::string("other@1.0"), fourth.completion());
  EXPECT_EQ(describe(fourth.wait().second), "tile: cancelled");
  std::this_thread::sleep_for(400ms);
  for (Delivery* delivery : {&first, &second, &third, &fourth}) EXPECT_EQ(delivery->calls.load(), 1);
  EXPECT_EQ(overlay->activeLoadCount(), 0u);
}

TEST_F(TileLoadingTest, ProxyTilesCarryTheTokenAndRetryOnceAfter401) {
  const std::string proxy(endpoints_.tileProxy.buffer());
  AnimatedTemplateTileOverlay overlay(session_, proxy + "/api/v1/image/tile/{z}/{x}/{y}/2027-01-15T06:00:00Z/2", 256, 1,
                                      8);
  simulator_.setFault("tileproxy.tile", sim::parseFault("status=401,times=1"));
  const auto [data, error] = load(overlay, {1, 1, 2});
  EXPECT_EQ(describe(error), "ok");
  EXPECT_EQ(simulator_.requestCount("tileproxy.tile"), 2u);
  EXPECT_EQ(simulator_.requestCount("tileproxy.token"), 2u) << "the token is invalidated and minted again";
  simulator_.setFault("tileproxy.tile", sim::parseFault("status=403"));
  const auto [none, refused] = load(overlay, {2, 1, 2});
  EXPECT_EQ(describe(refused), "http 403") << "the second reply is final";
  EXPECT_EQ(simulator_.requestCount("tileproxy.tile"), 4u);
}

// The renderer over the real overlay: what a draw finds, fills and reports.
class RendererTest : public TileLoadingTest {
 protected:
  void settle(CachingTileOverlayRenderer& renderer, const MapViewport& viewport) {
    for (int round = 0; round < 200; ++round) {
      const auto tiles = drawOnce(renderer, viewport);
      const bool redraw = view_.runPending();
      if (!redraw && std::none_of(tiles.begin(), tiles.end(), [](const auto& t) { return t.loading; })) return;
      view_.waitForWork(100ms);
    }
  }
  std::vector<CachingTileOverlayRenderer::DrawnTile> drawOnce(CachingTileOverlayRenderer& renderer,
                                                              const MapViewport& viewport) {
    CairoSurface surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, viewport.width, viewport.height));
    CairoContext context(cairo_create(surface.get()));
    viewport.applyTransform(context.get());
    std::vector<CachingTileOverlayRenderer::DrawnTile> tiles;
    renderer.draw(viewport.mapRect(), viewport.zoomScale(), context.get(), &tiles);
    return tiles;
  }
  HeadlessMapView view_{clock_};
};

TEST(TileZoom, HeldWithinTheOverlaysRange) {
  const double perPixel = 256.0 / kMapWorldSize;  // map zoom 0 in 256-point tiles
  struct Row {
    double zoomScale;
    int tileSize, minimumZ, maximumZ, expected;
  };
  for (const Row& row : std::vector<Row>{{perPixel * 8, 512, 0, 7, 2},
                                         {perPixel * (1 << 14), 512, 0, 7, 7},
                                         {perPixel * (1 << 14), 256, 0, 0, 14},
                                         {perPixel * (1 << 20) * 16, 256, 0, 0, 22},
                                         {perPixel * (1 << 20) * 16, 256, 0, 30, 22},
                                         {0.0, 256, 3, 7, 3},
                                         {perPixel, 256, -4, 7, 0}}) {
    EXPECT_EQ(tileZoomForScale(row.zoomScale, row.tileSize, row.minimumZ, row.maximumZ), row.expected)
        << row.zoomScale << " " << row.tileSize;
  }
}

TEST_F(RendererTest, FallbacksCompletenessAndReports) {
  // Map zoom 4 over Munich draws 512-point tiles of zoom 3.
  const MapViewport viewport{48.14, 11.58, 4.0, 512, 512};
  auto overlay = radarOverlay();
  auto renderer = std::make_shared<CachingTileOverlayRenderer>(overlay, view_, clock_);
  std::vector<CachingTileOverlayRenderer::RenderStats> reports;
  renderer->setOnRender([&](const auto& stats) { reports.push_back(stats); });

  // Only the coarser zoom is cached: the first draw fills from it and asks for the real tiles.
  const auto zoom3 = drawOnce(*renderer, MapViewport{48.14, 11.58, 4.0, 512, 512});
  ASSERT_FALSE(zoom3.empty());
  EXPECT_EQ(zoom3.front().path.z, 3);
  EXPECT_TRUE(std::all_of(zoom3.begin(), zoom3.end(),
                          [](const auto& t) { return t.fill == CachingTileOverlayRenderer::TileFill::missing; }));
  settle(*renderer, viewport);
  view_.runPending();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].cachedTiles, reports[0].totalTiles);
  const auto again = drawOnce(*renderer, viewport);
  view_.runPending();
  EXPECT_EQ(reports.size(), 1u) << "a second identical draw reports nothing";

  // Zoom 4 (map zoom 5): coarser from zoom 3, and zoom 2 (map zoom 3): finer from zoom 3.
  auto deeper = std::make_shared<CachingTileOverlayRenderer>(overlay, view_, clock_);
  simulator_.setFault("rainviewer.tile", sim::parseFault("latency=2000"));
  const auto coarser = drawOnce(*deeper, MapViewport{48.14, 11.58, 5.0, 256, 256});
  ASSERT_FALSE(coarser.empty());
  EXPECT_EQ(coarser.front().fill, CachingTileOverlayRenderer::TileFill::coarserFallback);
  EXPECT_EQ(coarser.front().sourceZoom, 3);
  EXPECT_TRUE(coarser.front().loading);
  const auto finer = drawOnce(*deeper, MapViewport{48.14, 11.58, 3.0, 256, 256});
  EXPECT_EQ(finer.front().fill, CachingTileOverlayRenderer::TileFill::finerFallback);
  EXPECT_EQ(finer.front().sourceZoom, 3);
  overlay->cancelAllLoads();
  simulator_.clearFaults();

  // A generation change during a draw suppresses its report.
  auto fresh = std::make_shared<CachingTileOverlayRenderer>(overlay, view_, clock_);
  int freshReports = 0;
  fresh->setOnRender([&](const auto&) { ++freshReports; });
  fresh->incrementRenderGeneration();
  drawOnce(*fresh, viewport);
  view_.runPending();
  EXPECT_EQ(freshReports, 1);
}

TEST_F(RendererTest, PlaceholderAboveMaximumZoomIsNoCoverage) {
  // An overlay that claims zoom 9 reaches the network's placeholder above its zoom 7.
  auto overlay = std::make_shared<AnimatedRadarTileOverlay>(session_, std::string(endpoints_.rainViewerTiles.buffer()),
                                                            "/v2/radar/1800000000", true, 9);
  auto renderer = std::make_shared<CachingTileOverlayRenderer>(overlay, view_, clock_);
  const MapViewport viewport{48.14, 11.58, 10.0, 256, 256};
  settle(*renderer, viewport);
  const auto tiles = drawOnce(*renderer, viewport);
  ASSERT_FALSE(tiles.empty());
  EXPECT_EQ(tiles.front().path.z, 9);
  EXPECT_EQ(tiles.front().fill, CachingTileOverlayRenderer::TileFill::noCoverage);
}

TEST_F(RendererTest, ResultAfterTemplateChangeCausesNoRedraw) {
  const std::string host(endpoints_.rainViewerTiles.buffer());
  auto overlay = std::make_shared<AnimatedTemplateTileOverlay>(
      session_, host + "/v2/radar/1800000000/512/{z}/{x}/{y}/2/1_1.png", 512, 0, 7);
  auto renderer = std::make_shared<CachingTileOverlayRenderer>(overlay, view_, clock_);
  overlay->setRenderer(renderer);
  simulator_.setFault("rainviewer.tile", sim::parseFault("latency=300"));
  const MapViewport viewport{48.14, 11.58, 4.0, 256, 256};
  const auto tiles = drawOnce(*renderer, viewport);
  view_.runPending();
  overlay->setTemplate(host + "/v2/radar/1800000600/512/{z}/{x}/{y}/2/1_1.png");
  EXPECT_TRUE(view_.runPending()) << "a new template asks for a redraw";
  std::this_thread::sleep_for(500ms);
  EXPECT_FALSE(view_.runPending()) << "the old frame's results find no entry";
  EXPECT_FALSE(renderer->tileLoadState().isLoading(tiles.front().key));
}

TEST_F(TileLoadingTest, LoopPicturesAskForEachTileOnceAndAGifHoldsThemAll) {
  RadarPictureRequest request{.viewport = {48.14, 11.58, 5.0, 384, 256}, .placeName = "Munich"};
  for (int k = 0; k < 3; ++k) {
    request.frames.push_back({rainViewerOverlay(session_, std::string(endpoints_.rainViewerTiles.buffer()),
                                                RadarFrame{{}, "/v2/radar/" + std::to_string(1'800'000'000 + 600 * k)}),
                              "frame " + std::to_string(k)});
  }
  auto results = drawRadarPictures(request, clock_);
  ASSERT_EQ(results.size(), 3u);
  std::size_t tiles = 0;
  for (const auto& result : results) {
    EXPECT_TRUE(result.complete);
    tiles += result.tiles.size();
    for (const auto& tile : result.tiles) EXPECT_EQ(tile.state, "network");
  }
  EXPECT_EQ(simulator_.requestCount("rainviewer.tile"), tiles);
  simulator_.clearRequestLog();
  results = drawRadarPictures(request, clock_);
  EXPECT_EQ(simulator_.requestCount("rainviewer.tile"), 0u) << "a repeat asks for nothing";
  EXPECT_EQ(results[0].tiles[0].state, "disk") << "found in the shared cache before any load";

  std::vector<cairo_surface_t*> pictures;
  for (const auto& result : results) pictures.push_back(result.picture.get());
  const std::string gif = encodeAnimatedGif(pictures, 50);
  const auto path = directory_ / "loop.gif";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  std::fwrite(gif.data(), 1, gif.size(), file);
  std::fclose(file);
  int error = 0;
  GifFileType* read = DGifOpenFileName(path.c_str(), &error);
  ASSERT_TRUE(read);
  ASSERT_EQ(DGifSlurp(read), GIF_OK);
  EXPECT_EQ(read->ImageCount, 3);
  EXPECT_EQ(read->SWidth, 384);
  EXPECT_EQ(read->SHeight, 256);
  DGifCloseFile(read, &error);
}

// A fixed viewport from the simulator's fixed tiles (its clock pinned) against a stored picture:
// each channel may differ by a little (anti-aliasing, font hinting), and only a few pixels more.
TEST_F(TileLoadingTest, GoldenPictureOfMunich) {
  RadarPictureRequest request{.viewport = {48.14, 11.58, 6.0, 320, 240}, .placeName = "Munich"};
  request.frames.push_back({rainViewerOverlay(session_, std::string(endpoints_.rainViewerTiles.buffer()),
                                              RadarFrame{{}, "/v2/radar/1800000000"}),
                            "radar 2027-01-15 08:00"});
  const auto results = drawRadarPictures(request, clock_);
  for (const auto& tile : results.at(0).tiles) EXPECT_EQ(tile.state, "network") << tile.path.x << "/" << tile.path.y;
  ASSERT_TRUE(results.at(0).complete);
  cairo_surface_t* picture = results[0].picture.get();
  const std::string golden = std::string(OMBRINE_RADAR_TESTDATA) + "/golden_munich_radar.png";
  if (std::getenv("OMBRINE_UPDATE_GOLDEN")) cairo_surface_write_to_png(picture, golden.c_str());
  CairoSurface expected(cairo_image_surface_create_from_png(golden.c_str()));
  ASSERT_EQ(cairo_surface_status(expected.get()), CAIRO_STATUS_SUCCESS) << golden;
  ASSERT_EQ(cairo_image_surface_get_width(expected.get()), 320);
  ASSERT_EQ(cairo_image_surface_get_height(expected.get()), 240);
  cairo_surface_flush(picture);
  int differing = 0, rain = 0;
  for (int row = 0; row < 240; ++row) {
    const auto* got = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(picture) +
                                                             row * cairo_image_surface_get_stride(picture));
    const auto* want = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(expected.get()) +
                                                              row * cairo_image_surface_get_stride(expected.get()));
    for (int column = 0; column < 320; ++column) {
      int worst = 0;
      for (int shift : {0, 8, 16}) {
        worst = std::max(worst, std::abs(static_cast<int>((got[column] >> shift) & 0xFF) -
                                         static_cast<int>((want[column] >> shift) & 0xFF)));
      }
      if (worst > 24) ++differing;
      const int red = (got[column] >> 16) & 0xFF, blue = got[column] & 0xFF;
      if (blue > red + 40) ++rain;
    }
  }
  EXPECT_LE(differing, 320 * 240 / 100) << "more than 1% of the pixels differ";
  EXPECT_GT(rain, 320 * 240 / 50) << "the simulated rain over Munich is drawn";
}

}  // namespace
}  // namespace ombrine
