// Radar tiles: drawing a warm 1024×1024 viewport (tiles drawn per second), and a cold 13-frame
// loop against the simulator with 50 ms latency per tile (wall time, tile requests, memory held
// by the caches).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

#include "core/fetch/service_endpoints.hpp"
#include "platform/caching_http_client.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/linux/signing_credential_issuer.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"
#include "radar/headless_map_view.hpp"
#include "radar/radar_picture.hpp"
#include "sim/sim_server.hpp"

namespace ombrine {
namespace {

struct TileWorld {
  explicit TileWorld(const std::string& name)
      : directory(std::filesystem::temp_directory_path() / (name + std::to_string(::getpid()))),
        endpoints(ServiceEndpoints::simulator(simulator.baseUrl())),
        cache(directory),
        cached(network, cache, clock),
        issuer(SigningCredentialIssuer::withEphemeralKey(clock)),
        tokens(runtime.makeStrand(), network, clock, endpoints.tileProxy, defaults, *issuer),
        pacer(clock),
        session{cached, cache, memory, tokens, endpoints.tileProxy, runtime.executor(), clock, &pacer} {}
  ~TileWorld() { std::filesystem::remove_all(directory); }

  RadarPictureRequest loop(int frames, int size) {
    RadarPictureRequest request{.viewport = {48.14, 11.58, 6.0, size, size}, .placeName = "Munich"};
    for (int k = 0; k < frames; ++k) {
      const RadarFrame frame{{}, "/v2/radar/" + std::to_string(1'800'000'000 + 600 * k)};
      request.frames.push_back(
          {rainViewerOverlay(session, std::string(endpoints.rainViewerTiles.buffer()), frame), ""});
    }
    return request;
  }

  sim::SimServer simulator;
  std::filesystem::path directory;
  ServiceEndpoints endpoints;
  Runtime runtime{2};
  SystemClock clock;
  CurlHttpClient network;
  HttpCache cache;
  CachingHttpClient cached;
  TileDataMemoryCache memory;
  InMemoryKeyValueStore defaults;
  std::unique_ptr<SigningCredentialIssuer> issuer;
  TileTokenManager tokens;
  TileRequestPacer pacer;
  TileSession session;
};

void BM_DrawWarmViewport(benchmark::State& state) {
  TileWorld world("ombrine-bench-warm-");
  const RadarPictureRequest request = world.loop(1, 1024);
  drawRadarPictures(request, world.clock);  // warm the caches
  HeadlessMapView view(world.clock);
  auto renderer = std::make_shared<CachingTileOverlayRenderer>(request.frames[0].overlay, view, world.clock);
  CairoSurface surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1024, 1024));
  std::int64_t tiles = 0;
  for (auto _ : state) {
    CairoContext context(cairo_create(surface.get()));
    request.viewport.applyTransform(context.get());
    std::vector<CachingTileOverlayRenderer::DrawnTile> drawn;
    renderer->draw(request.viewport.mapRect(), request.viewport.zoomScale(), context.get(), &drawn);
    tiles += static_cast<std::int64_t>(drawn.size());
  }
  state.counters["tiles/s"] = benchmark::Counter(static_cast<double>(tiles), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DrawWarmViewport)->Unit(benchmark::kMillisecond);

void BM_ColdLoop13Frames50ms(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    auto world = std::make_unique<TileWorld>("ombrine-bench-cold-");
    world->simulator.setFault("rainviewer.tile", sim::parseFault("latency=50"));
    const RadarPictureRequest request = world->loop(13, 1024);
    state.ResumeTiming();
    const auto results = drawRadarPictures(request, world->clock);
    state.PauseTiming();
    state.counters["requests"] = static_cast<double>(world->simulator.requestCount("rainviewer.tile"));
    state.counters["tiles"] = static_cast<double>(results.size() * results[0].tiles.size());
    state.counters["httpCacheMemoryBytes"] = static_cast<double>(world->cache.currentMemoryUsage());
    state.counters["tileMemoryCacheBytes"] = static_cast<double>(world->memory.byteCount());
    world.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_ColdLoop13Frames50ms)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

}  // namespace
}  // namespace ombrine

BENCHMARK_MAIN();
