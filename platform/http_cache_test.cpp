#include "platform/http_cache.hpp"

#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/caching_http_client.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/forked_child.hpp"
#include "platform/testing/loopback_http_server.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

class HttpCacheTest : public ::testing::Test {
 protected:
  static CachedResponse reply(std::string body, double at = 1.0e9) {
    return CachedResponse{
        .response = {.status = 200, .headers = {{"Cache-Control", "max-age=60"}}, .body = std::move(body)},
        .responseTime = at};
  }

  const ScratchFolder scratch_{"ombrine-http-cache"};
  const std::filesystem::path directory_ = scratch_.path() / "cache";
};

// A tile server with a validator: 304 to a matching If-None-Match, else the tile.
struct TileServer {
  TileServer() {
    server.Get("/tile.png", [this](const httplib::Request& request, httplib::Response& response) {
      ++requests;
      response.set_header("Cache-Control", "max-age=60");
      response.set_header("ETag", "\"v1\"");
      if (request.get_header_value("If-None-Match") == "\"v1\"") {
        ++revalidations;
        response.status = 304;
        return;
      }
      response.set_content(std::string(20000, 'p'), "image/png");
    });
    http.start();
  }
  ~TileServer() { http.stop(); }
  boost::urls::url url() const { return http.url("/tile.png"); }

  LoopbackHttpServer http;
  httplib::Server& server = http.server;
  std::atomic<int> requests = 0;
  std::atomic<int> revalidations = 0;
};

double microsecondsOf(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

TEST_F(HttpCacheTest, RevalidatesAgainstARealServerAndRefreshesOn304) {
  TileServer server;
  Runtime runtime(1);
  FakeClock clock;
  HttpCache cache(directory_);
  CurlHttpClient network;
  CachingHttpClient client(network, cache, clock);
  HttpRequest request{.url = server.url()};
  auto get = [&](const HttpRequest& r) { return runtime.runBlocking(client.send(r)); };

  EXPECT_EQ(get(request).body.size(), 20000u);
  EXPECT_EQ(server.requests, 1);

  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(get(request).status, 200);  // fresh: from memory
  const auto memoryHit = std::chrono::steady_clock::now() - started;
  cache.purgeMemory();
  started = std::chrono::steady_clock::now();
  EXPECT_EQ(get(request).body.size(), 20000u);  // fresh: from disk
  const auto diskHit = std::chrono::steady_clock::now() - started;
  EXPECT_EQ(server.requests, 1);

  clock.advance(61s);  // stale: one conditional request, answered 304
  started = std::chrono::steady_clock::now();
  const HttpResponse revalidated = get(request);
  const auto revalidation = std::chrono::steady_clock::now() - started;
  EXPECT_EQ(revalidated.status, 200);
  EXPECT_EQ(revalidated.body.size(), 20000u);
  EXPECT_EQ(server.revalidations, 1);

  clock.advance(30s);  // the 304 restarted the reply's age
  EXPECT_EQ(get(request).status, 200);
  EXPECT_EQ(server.requests, 2);

  request.cachePolicy = CachePolicy::reloadIgnoringLocalCacheData;
  get(request);
  EXPECT_EQ(server.requests, 3);
  EXPECT_EQ(server.revalidations, 1);  // the reload sent no validator

  clock.advance(3600s);
  request.cachePolicy = CachePolicy::returnCacheDataElseLoad;
  get(request);
  EXPECT_EQ(server.requests, 3);

  // Bytes on disk per tile: 100 tiles of 20,000 bytes, measured once the last connection has
  // folded the log into the database.
  {
    HttpCache tiles(directory_ / "tiles");
    for (int i = 0; i < 100; ++i) {
      const CachedResponse tile{
          .response = {.status = 200,
                       .headers = {{"Cache-Control", "max-age=60"}, {"ETag", "\"v1\""}, {"Content-Type", "image/png"}},
                       .body = std::string(20000, static_cast<char>('a' + i % 26))},
          .responseTime = 1.0e9};
      tiles.storeCachedResponse("http://tiles.example/v2/radar/1795535400/512/7/" + std::to_string(i) + "/42/2/1_1.png",
                                tile);
    }
  }
  const auto bytes = std::filesystem::file_size(directory_ / "tiles" / "Cache.db");
  std::printf(
      "[ measure  ] HTTP cache: memory hit %.0f us, disk hit %.0f us, revalidation (304 over loopback) %.0f us; "
      "%.0f bytes on disk per 20,000-byte tile\n",
      microsecondsOf(memoryHit), microsecondsOf(diskHit), microsecondsOf(revalidation),
      static_cast<double>(bytes) / 100.0);
}

TEST_F(HttpCacheTest, LimitsEvictTheLeastRecentlyUsed) {
  // Each reply costs 1,029 or 1,030 bytes: memory holds 24 of them, disk 29.
  HttpCache cache(directory_, 25000, 30000);
  for (int i = 0; i < 29; ++i) cache.storeCachedResponse(std::to_string(i), reply(std::string(1000, 'x')));
  ASSERT_TRUE(cache.cachedResponse("0"));  // long gone from memory; read (and touched) on disk
  cache.storeCachedResponse("29", reply(std::string(1000, 'x')));
  EXPECT_LE(cache.currentMemoryUsage(), 25000u);
  EXPECT_LE(cache.currentDiskUsage(), 30000u);
  EXPECT_FALSE(cache.cachedResponse("1"));  // least recently used: evicted from both tiers
  for (const char* kept : {"0", "2", "28", "29"}) EXPECT_TRUE(cache.cachedResponse(kept)) << kept;

  HttpCache small(directory_ / "small", 2000, 2000);  // a twentieth: 100 bytes
  small.storeCachedResponse("big", reply(std::string(500, 'x')));
  EXPECT_FALSE(small.cachedResponse("big"));
  small.storeCachedResponse("tiny", reply("x"));
  small.purgeMemory();
  EXPECT_TRUE(small.cachedResponse("tiny"));
  small.removeCachedResponse("tiny");
  EXPECT_FALSE(small.cachedResponse("tiny"));
}

TEST_F(HttpCacheTest, TwoProcessesShareTheDisk) {
  std::filesystem::create_directories(directory_);
  const auto directory = directory_;
  // The child writes 200 replies while the parent writes 200 others, into the same database.
  ForkedChild child([directory] {
    HttpCache cache(directory);
    for (int i = 0; i < 200; ++i)
      cache.storeCachedResponse("child/" + std::to_string(i), reply("c" + std::to_string(i)));
    return true;
  });
  child.release();
  {
    HttpCache cache(directory);
    for (int i = 0; i < 200; ++i)
      cache.storeCachedResponse("parent/" + std::to_string(i), reply("p" + std::to_string(i)));
  }
  ASSERT_EQ(child.wait(), 0);
  HttpCache reader(directory);
  for (int i = 0; i < 200; i += 37) {
    EXPECT_EQ(reader.cachedResponse("child/" + std::to_string(i))->response.body, "c" + std::to_string(i));
    EXPECT_EQ(reader.cachedResponse("parent/" + std::to_string(i))->response.body, "p" + std::to_string(i));
  }
  EXPECT_EQ(reader.cachedResponse("child/3")->responseTime, 1.0e9);
}

}  // namespace
}  // namespace ombrine
