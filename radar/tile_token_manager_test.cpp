#include "radar/tile_token_manager.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"
#include "platform/linux/curl_http_client.hpp"
#include "platform/linux/signing_credential_issuer.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/async_testing.hpp"
#include "platform/testing/fake_clock.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"
#include "platform/testing/loopback_http_server.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

// The proxy's token endpoint on loopback; `answer` decides each reply from the credential.
struct MintServer {
  using Answer = std::function<std::pair<int, std::string>(const std::string& credential, int call)>;

  explicit MintServer(Answer decide) : answer(std::move(decide)) {
    server.Post("/proxy/token", [this](const httplib::Request& request, httplib::Response& response) {
      const auto document = parseJson(request.body);
      const std::string credential(document.at("appTransactionJws").as_string());
      int call = 0;
      {
        std::lock_guard lock(mutex);
        credentials.push_back(credential);
        call = static_cast<int>(credentials.size());
      }
      std::this_thread::sleep_for(20ms);  // long enough for every concurrent caller to queue up
      auto [status, body] = answer(credential, call);
      response.status = status;
      response.set_content(body, "application/json");
    });
    http.start();
  }
  ~MintServer() { http.stop(); }
  boost::urls::url base() const { return http.url("/proxy"); }
  std::vector<std::string> seen() {
    std::lock_guard lock(mutex);
    return credentials;
  }

  Answer answer;
  LoopbackHttpServer http;
  httplib::Server& server = http.server;
  std::mutex mutex;
  std::vector<std::string> credentials;
};

const FakeClock::WallTime kStart = FakeClock::WallTime(std::chrono::seconds(1'700'000'000));

std::pair<int, std::string> minted(const std::string&, int call) {
  return {200, R"({"token":"token-)" + std::to_string(call) + R"(","expiresAt":1700000900})"};
}

StoreValue storeDate(double unixSeconds) {
  return StoreValue{StoreDate{Date::fromUnix(unixSeconds).timeIntervalSinceReferenceDate}};
}

struct Fixture {
  explicit Fixture(MintServer::Answer answer, StoreDictionary stored = {})
      : server(std::move(answer)),
        clock(kStart),
        defaults(std::move(stored)),
        issuer(SigningCredentialIssuer::withEphemeralKey(clock)),
        manager(runtime.makeStrand(), http, clock, server.base(), defaults, *issuer) {}

  std::string token() { return runtime.runBlocking(manager.token()); }
  std::exception_ptr failure() {
    try {
      token();
    } catch (...) {
      return std::current_exception();
    }
    return nullptr;
  }

  MintServer server;
  Runtime runtime{2};
  CurlHttpClient http;
  FakeClock clock;
  InMemoryKeyValueStore defaults;
  std::unique_ptr<SigningCredentialIssuer> issuer;
  TileTokenManager manager;
};

TEST(TileTokenManagerTest, ConcurrentCallersShareOneExchange) {
  Fixture fixture(minted);
  auto callers = [&]() -> Task<std::vector<std::string>> {
    std::vector<Task<std::string>> tasks;
    for (int i = 0; i < 50; ++i) tasks.push_back(fixture.manager.token());
    co_return co_await whenAll(std::move(tasks));
  };
  const auto tokens = fixture.runtime.runBlocking(callers());
  ASSERT_EQ(tokens.size(), 50u);
  for (const auto& token : tokens) EXPECT_EQ(token, "token-1");
  EXPECT_EQ(fixture.server.seen().size(), 1u);
  EXPECT_EQ(fixture.defaults.stringValue(TileTokenManager::kTokenKey), "token-1");
  EXPECT_EQ(fixture.defaults.dateValue(TileTokenManager::kExpiryKey)->secondsSince2001,
            Date::fromUnix(1700000900).timeIntervalSinceReferenceDate);  // whole seconds since 1970
  EXPECT_EQ(fixture.defaults.stringValue(TileTokenManager::kCredentialKey), fixture.server.seen()[0]);

  fixture.clock.advance(839s);  // 61 s left: still good
  EXPECT_EQ(fixture.token(), "token-1");
  fixture.clock.advance(1s);  // exactly 60 s left: refused, exchanged with the kept credential
  EXPECT_EQ(fixture.token(), "token-2");
  ASSERT_EQ(fixture.server.seen().size(), 2u);
  EXPECT_EQ(fixture.server.seen()[1], fixture.server.seen()[0]);
}

// What a failed exchange raised: "invalidResponse", "decoding" or "other".
std::string failureKind(std::exception_ptr error) {
  try {
    std::rethrow_exception(error);
  } catch (const NetworkError& network) {
    return network.which() == NetworkError::invalidResponse ? "invalidResponse" : "other";
  } catch (const DecodingError&) {
    return "decoding";
  } catch (...) {
    return "other";
  }
}

TEST(TileTokenManagerTest, StoredStateAndFailurePaths) {
  const double start = 1'700'000'000.0;
  struct Row {
    const char* name;
    StoreDictionary stored;
    MintServer::Answer answer;
    const char* outcome;  // the token, or the failure's kind after "!"
    int posts;
    const char* credentialAfter;  // "fresh": the one issued now; "": none
  };
  const auto always = [](int status, std::string body) -> MintServer::Answer {
    return [status, body](const std::string&, int) { return std::pair{status, body}; };
  };
  const auto refuseStored = [](const std::string& credential, int call) -> std::pair<int, std::string> {
    if (credential == "stored.credential.jws") return {403, "{}"};
    return minted(credential, call);
  };
  const auto storedToken = [&](StoreValue expiry) {
    return StoreDictionary{{"tile_token.jwt", {std::string("kept")}}, {"tile_token.expiresAt", std::move(expiry)}};
  };
  const StoreDictionary storedCredential{{"tile_token.appTransactionJws", {std::string("stored.credential.jws")}}};
  const Row rows[] = {
      {"stored token with 61 s left is used", storedToken(storeDate(start + 61)), minted, "kept", 0, ""},
      {"stored token with 60 s left is refused", storedToken(storeDate(start + 60)), minted, "token-1", 1, "fresh"},
      {"corrupt stored expiry reads as no token", storedToken({std::string("soon")}), minted, "token-1", 1, "fresh"},
      {"refused stored credential is replaced once", storedCredential, refuseStored, "token-2", 2, "fresh"},
      {"500 with a stored credential keeps it", storedCredential, always(500, "{}"), "!invalidResponse", 1,
       "stored.credential.jws"},
      {"a refused fresh credential is final", {}, always(401, "{}"), "!invalidResponse", 1, ""},
      {"a token reply that does not decode",
       {},
       always(200, R"({"token":"t","expiresAt":"later"})"),
       "!decoding",
       1,
       "fresh"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Fixture fixture(row.answer, row.stored);
    const std::string outcome = row.outcome;
    if (outcome.starts_with("!")) {
      const auto failure = fixture.failure();
      ASSERT_TRUE(failure);
      EXPECT_EQ("!" + failureKind(failure), outcome);
    } else {
      EXPECT_EQ(fixture.token(), outcome);
    }
    const auto seen = fixture.server.seen();
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(row.posts));
    const auto credential = fixture.defaults.stringValue(TileTokenManager::kCredentialKey);
    const std::string expected = row.credentialAfter;
    if (expected.empty()) {
      EXPECT_FALSE(credential);
    } else {
      ASSERT_FALSE(seen.empty());
      EXPECT_EQ(credential, expected == "fresh" ? seen.back() : expected);
    }
  }
}

TEST(TileTokenManagerTest, ACancelledCallerLeavesTheExchangeToTheOthers) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  Fixture fixture([released](const std::string& credential, int call) {
    released.wait();  // the exchange stays in flight until both callers wait and one is cancelled
    return minted(credential, call);
  });
  auto tokenInto = [&](std::string& out) -> Task<void> { out = co_await fixture.manager.token(); };
  std::string first, second;
  StartedTask starter = startTask(fixture.runtime.makeStrand(), tokenInto(first));
  StartedTask other = startTask(fixture.runtime.makeStrand(), tokenInto(second));
  ASSERT_TRUE(eventually([&] { return fixture.server.seen().size() == 1; }));
  starter.task.cancel();
  EXPECT_TRUE(isCancellationError(starter.outcome.get()));
  release.set_value();
  EXPECT_EQ(other.outcome.get(), nullptr);
  EXPECT_EQ(second, "token-1");
  EXPECT_EQ(first, "");
  EXPECT_EQ(fixture.token(), "token-1");
  EXPECT_EQ(fixture.server.seen().size(), 1u);
}

TEST(TileTokenManagerTest, InvalidateKeepsTheCredentialAndNoKeyFailsTheExchange) {
  Fixture fixture(minted);
  EXPECT_EQ(fixture.token(), "token-1");
  fixture.runtime.runBlocking(fixture.manager.invalidateToken());
  EXPECT_FALSE(fixture.defaults.value(TileTokenManager::kTokenKey));
  EXPECT_FALSE(fixture.defaults.value(TileTokenManager::kExpiryKey));
  EXPECT_TRUE(fixture.defaults.value(TileTokenManager::kCredentialKey));
  EXPECT_EQ(fixture.token(), "token-2");

  SigningCredentialIssuer noKey(std::nullopt, fixture.clock);
  InMemoryKeyValueStore empty;
  TileTokenManager withoutKey(fixture.runtime.makeStrand(), fixture.http, fixture.clock, fixture.server.base(), empty,
                              noKey);
  EXPECT_THROW(fixture.runtime.runBlocking(withoutKey.token()), CredentialError);
  EXPECT_EQ(fixture.server.seen().size(), 2u);
}

}  // namespace
}  // namespace ombrine
