#include "background/background_refresh.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <random>
#include <thread>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/linux/file_background_scheduler.hpp"
#include "platform/linux/system_clock.hpp"
#include "platform/runtime.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

using namespace std::chrono_literals;

enum class FetchBehaviour { succeed, fail, hang, succeedAfterRandomDelay };

// The steps of a pass, recording what ran.
class RecordingWork final : public BackgroundRefreshWork {
 public:
  RecordingWork(Clock& clock, KeyValueStore& defaults) : clock_(clock), defaults_(defaults) {}
  FetchBehaviour fetchBehaviour = FetchBehaviour::succeed;
  bool precipitationFails = false;
  bool switchOffDuringFetch = false;
  std::atomic<int> fetches{0}, precipitation{0}, alerts{0}, stores{0};
  std::atomic<int> delayMicroseconds{0};

  Task<RefreshedPlace> fetch() override {
    ++fetches;
    if (switchOffDuringFetch) defaults_.setValue(BackgroundRefresh::kSettingKey, StoreValue{false});
    switch (fetchBehaviour) {
      case FetchBehaviour::fail: throw DomainError("Request", 5001, "provider down");
      case FetchBehaviour::hang: co_await clock_.sleep(1h); break;
      case FetchBehaviour::succeedAfterRandomDelay:
        co_await clock_.sleep(std::chrono::microseconds(delayMicroseconds.load()));
        break;
      case FetchBehaviour::succeed: break;
    }
    RefreshedPlace place;
    place.name = "Oslo";
    place.location = Location(59.91, 10.75);
    co_return place;
  }
  void evaluatePrecipitation(const RefreshedPlace&, const std::function<bool()>&) override {
    ++precipitation;
    if (precipitationFails) throw std::runtime_error("center unavailable");
  }
  void notifyWeatherAlerts(const RefreshedPlace&) override { ++alerts; }
  Task<void> storeLatest(CachedWeather cached) override {
    EXPECT_EQ(cached.name, "Oslo");
    ++stores;
    co_return;
  }

 private:
  Clock& clock_;
  KeyValueStore& defaults_;
};

struct Fixture {
  const ScratchFolder folder{"ombrine-background"};
  SystemClock clock;
  Runtime runtime{2};
  FileBackgroundScheduler scheduler{clock, folder.path(), {200ms, 2s}};
  InMemoryKeyValueStore defaults;
  RecordingWork work{clock, defaults};
  int backups = 0;
  BackgroundRefresh refresh{{scheduler, defaults, clock, runtime.makeStrand(), work, [this] { ++backups; }, 1ms}};
  const std::string id{BackgroundRefresh::kTaskIdentifier};

  std::shared_ptr<BackgroundTask> launchAndWait() {
    auto task = std::make_shared<BackgroundTask>(id);
    refresh.handleLaunch(task);
    task->waitForCompletion(5s);
    return task;
  }
};

TEST(BackgroundRefresh, PassOutcomes) {
  struct Row {
    const char* name;
    bool sending;
    FetchBehaviour fetch;
    bool precipitationFails;
    bool switchOffDuringFetch;
    bool expire;
    bool requestStands;
    bool result;
    int notified;  // precipitation and alert steps that ran
    int stored;
  };
  const Row rows[] = {
      {"full pass", true, FetchBehaviour::succeed, false, false, false, true, true, 2, 1},
      {"failed fetch keeps the next request", true, FetchBehaviour::fail, false, false, false, true, false, 0, 0},
      {"expired fetch still asks for the next pass", true, FetchBehaviour::hang, false, false, true, true, false, 0, 0},
      {"failed rain check ends the notification step only", true, FetchBehaviour::succeed, true, false, false, true,
       true, 1, 1},
      {"notifications off: no pass, no request", false, FetchBehaviour::succeed, false, false, false, false, true, 0,
       0},
      {"notifications switched off during the pass", true, FetchBehaviour::succeed, false, true, false, false, true, 0,
       1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Fixture f;
    f.defaults.setValue(BackgroundRefresh::kSettingKey, StoreValue{row.sending});
    f.work.fetchBehaviour = row.fetch;
    f.work.precipitationFails = row.precipitationFails;
    f.work.switchOffDuringFetch = row.switchOffDuringFetch;
    // A request stands from before, as after an earlier pass.
    f.scheduler.submit({f.id, f.clock.now()});
    auto task = std::make_shared<BackgroundTask>(f.id);
    f.refresh.handleLaunch(task);
    if (row.expire) {
      std::this_thread::sleep_for(20ms);
      task->expire();
    }
    ASSERT_TRUE(task->waitForCompletion(5s).has_value());
    EXPECT_EQ(*task->result(), row.result);
    EXPECT_EQ(task->completionCount(), 1);
    EXPECT_EQ(f.scheduler.pendingRequest(f.id).has_value(), row.requestStands);
    EXPECT_EQ(f.work.precipitation + f.work.alerts, row.notified);
    EXPECT_EQ(f.work.stores, row.stored);
  }
}

TEST(BackgroundRefresh, PassAndExpiryRacingCompleteOnce) {
  Fixture f;
  f.work.fetchBehaviour = FetchBehaviour::succeedAfterRandomDelay;
  std::mt19937 random(19);
  std::uniform_int_distribution<int> delay(0, 400);
  int expiredFirst = 0;
  for (int round = 0; round < 150; ++round) {
    f.work.delayMicroseconds = delay(random);
    auto task = std::make_shared<BackgroundTask>(f.id);
    f.refresh.handleLaunch(task);
    std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
    task->expire();
    ASSERT_TRUE(task->waitForCompletion(5s).has_value());
    // Let a late finish of the pass try to report again.
    std::this_thread::sleep_for(1ms);
    EXPECT_EQ(task->completionCount(), 1) << "round " << round;
    if (!*task->result()) ++expiredFirst;
    // Expired or not, the next request stands.
    EXPECT_TRUE(f.scheduler.pendingRequest(f.id).has_value());
  }
  // Both orders happened (not asserted: it depends on the machine).
  RecordProperty("expiredFirst", expiredFirst);
}

TEST(BackgroundRefresh, ScheduleRefreshAndLaunch) {
  Fixture f;
  EXPECT_TRUE(f.refresh.launch());
  EXPECT_EQ(f.backups, 1);
  const auto before = f.clock.now();
  f.refresh.scheduleRefresh(60);
  const auto request = f.scheduler.pendingRequest(f.id);
  ASSERT_TRUE(request && request->earliestBeginDate);
  EXPECT_GE(*request->earliestBeginDate, before + 60ms);
  // The registered handler runs the due request through the scheduler.
  std::this_thread::sleep_for(70ms);
  const auto pass = f.scheduler.runDuePass(f.id);
  EXPECT_EQ(pass.outcome, FileBackgroundScheduler::PassOutcome::ran);
  EXPECT_EQ(pass.record->result, "success");
  EXPECT_EQ(f.work.stores, 1);
  // Two finishes of one pass: the task hears the first only, and one request stands.
  auto task = std::make_shared<BackgroundTask>(f.id);
  BackgroundRefreshCompletion completion(task);
  f.refresh.finish(true, completion, true);
  f.refresh.finish(true, completion, false);
  EXPECT_EQ(task->completionCount(), 1);
  EXPECT_EQ(task->result(), true);
  EXPECT_TRUE(f.scheduler.pendingRequest(f.id));
  // Notifications off: scheduling withdraws the request and submits none.
  f.defaults.setValue(BackgroundRefresh::kSettingKey, StoreValue{false});
  f.refresh.scheduleRefresh(60);
  EXPECT_FALSE(f.scheduler.pendingRequest(f.id));
}

}  // namespace
}  // namespace ombrine
