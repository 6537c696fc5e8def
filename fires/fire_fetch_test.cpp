#include "fires/fire_fetch.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/runtime.hpp"

namespace ombrine {
namespace {

namespace Policy = FireFeatureServiceResponsePolicy;
using Reason = FireFetchFailureReason;

const Date kNow = Date::fromUnix(1792555200.0);  // 2026-10-21T04:00:00Z

TEST(FireResponsePolicy, RetryAfterHeader) {
  struct Case {
    const char* text;
    std::optional<double> seconds;
  };
  const Case cases[] = {
      {"120", 120.0},
      {" 7\r\n", 7.0},
      {"2.5", 2.5},
      {"", std::nullopt},
      {"-3", std::nullopt},
      {"soon", std::nullopt},
      {"Wed, 21 Oct 2026 07:28:00 GMT", 3 * 3600 + 28 * 60},
      {"Wednesday, 21-Oct-26 07:28:00 GMT", 3 * 3600 + 28 * 60},
      {"Wed Oct 21 07:28:00 2026", 3 * 3600 + 28 * 60},
      {"Thu Oct  1 04:00:10 2026", 0.0},  // in the past
      {"Wed, 21 Oct 2026 04:00:30 GMT", 30.0},
      {"Wed, 32 Oct 2026 07:28:00 GMT", std::nullopt},  // no such day
      {"Wed, 21 Foo 2026 07:28:00 GMT", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Policy::parseRetryAfter(c.text, kNow), c.seconds);
  }
}

TEST(FireResponsePolicy, ErrorBodiesAndTheirDelays) {
  struct Case {
    const char* body;
    bool isEnvelope;
    std::optional<double> delay;
  };
  const Case cases[] = {
      {R"({"error":{"code":503,"message":"busy"}})", true, std::nullopt},
      {R"({"error":{"code":429,"message":"Too many requests. Retry after 30 seconds."}})", true, 30.0},
      {R"({"error":{"message":"x","details":["none","RETRY AFTER 0 or 1.5 s"]}})", true, 1.5},
      {R"({"error":{}})", true, std::nullopt},
      {R"({"features":[]})", false, std::nullopt},
      {R"({"error":"text"})", false, std::nullopt},
      {"not json", false, std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.body);
    const auto payload = Policy::errorEnvelope(c.body);
    EXPECT_EQ(payload.has_value(), c.isEnvelope);
    if (payload) EXPECT_EQ(Policy::retryDelay(*payload), c.delay);
  }
}

std::exception_ptr failure(auto error) { return std::make_exception_ptr(error); }

FireFeatureServiceResponseError serviceError(std::optional<std::int64_t> code, std::string message = "m") {
  return FireFeatureServiceResponseError(FireFeatureServiceErrorPayload{code, std::move(message), std::nullopt});
}

TEST(FireResponsePolicy, RetryAndClassification) {
  struct Case {
    const char* name;
    std::exception_ptr error;
    bool retried;
    Reason reason;
  };
  const Case cases[] = {
      {"cooldown", failure(FireProviderCooldownError(12)), false, Reason::rateLimited(12)},
      {"200 error 503", failure(serviceError(503, "busy")), true, Reason::transient()},
      {"200 error without code", failure(serviceError(std::nullopt)), true, Reason::transient()},
      {"200 error 400", failure(serviceError(400)), false, Reason::permanent()},
      {"200 error 408", failure(serviceError(408)), true, Reason::transient()},
      {"200 error 425", failure(serviceError(425)), true, Reason::transient()},
      {"200 error 429 without delay", failure(serviceError(429)), false, Reason::rateLimited(60)},
      {"200 error with a delay", failure(serviceError(503, "Retry after 30 seconds.")), false, Reason::rateLimited(30)},
      {"200 error 302", failure(serviceError(302)), true, Reason::transient()},
      {"HTTP 503", failure(FireHTTPResponseError(503, std::nullopt)), false, Reason::transient()},
      {"HTTP 503 with Retry-After", failure(FireHTTPResponseError(503, 5.0)), false, Reason::rateLimited(5)},
      {"HTTP 429", failure(FireHTTPResponseError(429, 60.0)), false, Reason::rateLimited(60)},
      {"HTTP 404", failure(FireHTTPResponseError(404, std::nullopt)), false, Reason::permanent()},
      {"transport", failure(HttpError(HttpError::timedOut)), true, Reason::transient()},
      {"bad URL", failure(std::invalid_argument("url")), false, Reason::permanent()},
      {"decoding", failure(DecodingError("x")), false, Reason::transient()},
      {"cancellation", failure(CancellationError()), false, Reason::transient()},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Policy::shouldRetry(c.error), c.retried);
    EXPECT_EQ(Policy::classify(c.error), c.reason);
  }
  EXPECT_NE(Reason::rateLimited(1), Reason::rateLimited(2));
  EXPECT_STREQ(FireProviderCooldownError(30).what(), "Fire provider cooldown remains active for 30 seconds");
  EXPECT_STREQ(FireHTTPResponseError(503, std::nullopt).what(), "Fire service returned HTTP 503");
  EXPECT_STREQ(serviceError(503, "busy").what(), "Feature service returned code 503: busy");
}

boost::urls::url url(std::string_view text) { return boost::urls::url(text); }

TEST(FireCooldownStore, KeysAndDelays) {
  const std::vector<std::string> arcgis{"arcgis.com"};
  struct KeyCase {
    const char* a;
    const char* b;
    bool shared;
  };
  const KeyCase keys[] = {
      {"https://services3.arcgis.com/T4QM/arcgis/rest/services/A/FeatureServer/0/query",
       "https://services3.arcgis.com/T4QM/arcgis/rest/services/B/FeatureServer/0/query", false},
      {"https://cwfis.cfs.nrcan.gc.ca/geoserver/ows", "https://CWFIS.cfs.nrcan.gc.ca/geoserver/public/ows", true},
      {"https://www.fire.ca.gov/a", "https://fire.ca.gov/a", false},
  };
  for (const auto& k : keys) {
    SCOPED_TRACE(k.a);
    EXPECT_EQ(fireCooldownKey(url(k.a), arcgis) == fireCooldownKey(url(k.b), arcgis), k.shared);
  }
  EXPECT_FALSE(fireCooldownKey(url("/relative/path"), arcgis).has_value());

  Runtime runtime(1);
  FireProviderCooldownStore store(runtime.makeStrand());
  const auto a = url("https://services3.arcgis.com/x/arcgis/rest/services/A/FeatureServer/0/query");
  const auto b = url("https://services3.arcgis.com/x/arcgis/rest/services/B/FeatureServer/0/query");
  auto remaining = [&](const boost::urls::url& u, double after) {
    return runtime.runBlocking(store.remainingCooldown(u, kNow + after));
  };
  runtime.runBlocking(store.recordCooldown(60, a, kNow));
  runtime.runBlocking(store.recordCooldown(10, a, kNow));  // shorter: no effect
  runtime.runBlocking(store.recordCooldown(-5, b, kNow));  // not positive: ignored
  runtime.runBlocking(store.recordCooldown(std::nan(""), b, kNow));
  EXPECT_EQ(remaining(a, 0), 60.0);
  EXPECT_EQ(remaining(a, 30), 30.0);
  EXPECT_FALSE(remaining(b, 0).has_value());
  EXPECT_TRUE(runtime.runBlocking(store.cooldownUntil(a)).has_value());
  EXPECT_FALSE(remaining(a, 60).has_value());  // exactly 0 left: gone
  EXPECT_FALSE(runtime.runBlocking(store.cooldownUntil(a)).has_value());
  runtime.runBlocking(store.recordCooldown(5, a, kNow));
  runtime.runBlocking(store.recordCooldown(50, a, kNow));  // longer: extends
  EXPECT_EQ(remaining(a, 0), 50.0);
}

TEST(FireSnapshotCache, KeepsFourNewest) {
  FireProviderSnapshotCache<int> cache;
  auto key = [](double west) {
    return UnitedStatesFireProviderSnapshotKey::of(UnitedStatesFireProvider::nifc,
                                                   UnitedStatesFireProviderQueryKind::perimeters,
                                                   FireMapEnvelope{west, 30, -100, 50}, 0.001);
  };
  for (int i = 0; i < 5; ++i) cache.storeSnapshot(key(-130 + i), {i}, kNow + i);
  EXPECT_FALSE(cache.snapshot(key(-130)).has_value());
  ASSERT_TRUE(cache.snapshot(key(-126)).has_value());
  EXPECT_EQ(cache.snapshot(key(-126))->records, std::vector<int>{4});
  EXPECT_EQ(cache.snapshot(key(-126))->fetchedAt, kNow + 4);
  // The same envelope with another tolerance, provider or -0.0 for 0.0 is another key.
  const auto zero = UnitedStatesFireProviderSnapshotKey::of(UnitedStatesFireProvider::nifc,
                                                            UnitedStatesFireProviderQueryKind::incidents,
                                                            FireMapEnvelope{0.0, 0, 0, 0}, std::nullopt);
  const auto negativeZero = UnitedStatesFireProviderSnapshotKey::of(UnitedStatesFireProvider::nifc,
                                                                    UnitedStatesFireProviderQueryKind::incidents,
                                                                    FireMapEnvelope{-0.0, 0, 0, 0}, std::nullopt);
  EXPECT_NE(zero, negativeZero);
}

}  // namespace
}  // namespace ombrine
