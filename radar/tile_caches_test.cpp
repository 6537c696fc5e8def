// The tile memory cache and the per-tile retry state: limits, order, back-off and cool-down.

#include <gtest/gtest.h>

#include "radar/tile_data_memory_cache.hpp"
#include "radar/tile_errors.hpp"
#include "radar/tile_load_retry_state.hpp"
#include "radar/tile_path.hpp"
#include "radar/tile_prefetch_queue.hpp"

namespace ombrine {
namespace {

TEST(TileDataMemoryCache, LimitsAndFirstInFirstOut) {
  TileDataMemoryCache cache;
  EXPECT_TRUE(cache.insert("exact", std::string(TileDataMemoryCache::kByteLimit, 'x')));
  EXPECT_FALSE(cache.insert("over", std::string(TileDataMemoryCache::kByteLimit + 1, 'x')));
  EXPECT_FALSE(cache.insert("empty", ""));
  // The exact-size entry is pushed out by the first small one.
  EXPECT_TRUE(cache.insert("k0", "0"));
  EXPECT_FALSE(cache.data("exact"));
  for (int i = 1; i < 128; ++i) ASSERT_TRUE(cache.insert("k" + std::to_string(i), "b"));
  EXPECT_EQ(cache.entryCount(), 128u);
  EXPECT_TRUE(cache.data("k0"));  // a read does not refresh k0
  EXPECT_TRUE(cache.insert("k128", "b"));
  EXPECT_FALSE(cache.data("k0"));
  EXPECT_TRUE(cache.data("k1"));
  EXPECT_EQ(cache.entryCount(), 128u);
  // Replacing a key moves it to the back and keeps the byte count right.
  EXPECT_TRUE(cache.insert("k1", "bbb"));
  EXPECT_EQ(cache.byteCount(), 127u + 3u);
  // A refused replacement still drops the old bytes.
  EXPECT_FALSE(cache.insert("k2", ""));
  EXPECT_FALSE(cache.data("k2"));
}

std::exception_ptr networkFailure() { return std::make_exception_ptr(std::runtime_error("connection reset")); }
std::exception_ptr httpFailure(int status, std::optional<Date> retryAfter = {}) {
  return std::make_exception_ptr(TileHTTPError(status, retryAfter));
}

TEST(TileLoadRetryState, BackOffCoolDownAndReset) {
  const Date t0 = Date::fromUnix(1'800'000'000);
  struct Row {
    const char* name;
    std::function<std::exception_ptr(Date)> failure;
    std::vector<std::optional<double>> scheduled;  // per consecutive failure
    double lastBlock;                              // seconds the last failure blocks
  };
  const std::vector<Row> rows = {
      {"transport", [](Date) { return networkFailure(); }, {1.0, 2.0, 4.0, std::nullopt}, 60.0},
      {"5xx", [](Date) { return httpFailure(503); }, {1.0, 2.0, 4.0, std::nullopt}, 60.0},
      {"404 cools down at once", [](Date) { return httpFailure(404); }, {std::nullopt}, 60.0},
      {"429 honours a later Retry-After", [](Date now) { return httpFailure(429, now + 120.0); }, {120.0}, 120.0},
      {"an earlier Retry-After loses", [](Date now) { return httpFailure(429, now + 0.5); }, {1.0}, 1.0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    TileLoadRetryState state;
    Date now = t0;
    for (std::size_t i = 0; i < row.scheduled.size(); ++i) {
      const auto id = state.beginLoading("k", now);
      ASSERT_TRUE(id);
      EXPECT_FALSE(state.beginLoading("k", now)) << "a loading tile is not loaded twice";
      EXPECT_EQ(state.finishLoading("k", *id, row.failure(now), now), row.scheduled[i]);
      const Date until = state.entry("k")->retryAfter;
      if (i + 1 == row.scheduled.size()) EXPECT_DOUBLE_EQ(until - now, row.lastBlock);
      EXPECT_FALSE(state.beginLoading("k", until - 0.001)) << "cooling down";
      now = until;
    }
    EXPECT_EQ(state.entry("k")->failureCount, static_cast<int>(row.scheduled.size()));
  }

  TileLoadRetryState state;
  auto id = state.beginLoading("k", t0);
  state.finishLoading("k", *id, networkFailure(), t0);
  id = state.beginLoading("k", t0 + 1 + 59.9);
  EXPECT_EQ(state.entry("k")->failureCount, 1) << "within 60 s of the block's end the count carries over";
  state.finishLoading("k", *id, networkFailure(), t0 + 61);
  const Date until = state.entry("k")->retryAfter;
  id = state.beginLoading("k", until + 61);
  EXPECT_EQ(state.entry("k")->failureCount, 0) << "61 s after the block the count starts again";
  // A stale identifier changes nothing; a cancellation forgets the tile without a failure.
  EXPECT_FALSE(state.finishLoading("k", Uuid::random(), networkFailure(), until + 61));
  EXPECT_TRUE(state.isLoading("k"));
  state.finishLoading("k", *id, std::make_exception_ptr(TileURLError(TileURLError::cancelled)), until + 61);
  EXPECT_FALSE(state.entry("k"));
}

TEST(TileLoadRetryState, KeepsAtMostTheFailureEntryLimit) {
  TileLoadRetryState state;
  const Date t0 = Date::fromUnix(1'800'000'000);
  for (int i = 0; i < 1030; ++i) {
    const std::string key = "k" + std::to_string(i);
    const Date now = t0 + i;  // later failures block until later
    const auto id = state.beginLoading(key, now);
    state.finishLoading(key, *id, httpFailure(404), now);
  }
  EXPECT_EQ(state.entryCount(), TileLoadRetryState::kMaximumFailureEntries);
  EXPECT_FALSE(state.entry("k5")) << "the blocks ending soonest go first";
  EXPECT_TRUE(state.entry("k6"));
  EXPECT_TRUE(state.beginLoading("live", t0));  // a loading entry is never trimmed
  const auto id = state.beginLoading("late", t0 + 5000);
  state.finishLoading("late", *id, httpFailure(404), t0 + 5000);
  EXPECT_TRUE(state.isLoading("live"));
}

TEST(TilePath, NormalisationAndRetryAfter) {
  EXPECT_EQ(normalizedTilePath({-1, 0, 2})->x, 3);
  EXPECT_EQ(normalizedTilePath({9, 1, 2})->x, 1);
  EXPECT_FALSE(normalizedTilePath({0, 4, 2}));
  EXPECT_EQ(invalidTileKey({0, 4, 2}), "invalid/2/0/4");
  EXPECT_EQ(normalizedTilePath({-5, 99, 63})->x, -5);
  EXPECT_EQ(scaleText(2.0), "2.0");
  EXPECT_EQ(scaleText(1.5), "1.5");

  const Date now = Date::fromUnix(1'000'000'000);
  EXPECT_EQ(parseRetryAfter("120", now), now + 120.0);
  EXPECT_EQ(parseRetryAfter(" 1.5 ", now), now + 1.5);
  EXPECT_EQ(parseRetryAfter("-3", now), now);
  EXPECT_EQ(parseRetryAfter("Sun, 09 Sep 2001 01:46:40 GMT", now), Date::fromUnix(1'000'000'000));
  EXPECT_FALSE(parseRetryAfter("soon", now));
  EXPECT_FALSE(parseRetryAfter("inf", now));
  EXPECT_FALSE(parseRetryAfter(std::nullopt, now));
}

TEST(TilePrefetchQueue, EachKeyOnceAndStaleFinishesIgnored) {
  TilePrefetchQueue<std::string> queue;
  EXPECT_TRUE(queue.enqueue("a"));
  EXPECT_FALSE(queue.enqueue("a"));
  EXPECT_TRUE(queue.enqueue("b"));
  auto first = queue.next();
  EXPECT_EQ(first->first, "a");
  EXPECT_FALSE(queue.enqueue("a")) << "in flight";
  EXPECT_FALSE(queue.finish("a", Uuid::random(), true));
  EXPECT_TRUE(queue.finish("a", first->second, false));
  EXPECT_TRUE(queue.enqueue("a")) << "a failed key may come again";
  auto second = queue.next();
  EXPECT_TRUE(queue.finish("b", second->second, true));
  EXPECT_FALSE(queue.enqueue("b"));
  EXPECT_TRUE(queue.isCompleted("b"));
}

}  // namespace
}  // namespace ombrine
