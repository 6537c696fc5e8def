#include "platform/async/observer_list.hpp"

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace ombrine {
namespace {

using List = ObserverList<std::function<void(int)>>;

// Two notifications (1, then 2) of a list whose observers log "<name><value>" and may act on
// the list or on each other's subscriptions from inside their call.
struct Scene {
  std::unique_ptr<List> list = std::make_unique<List>();
  std::vector<std::string> heard;
  std::vector<Subscription> tokens;

  void watch(const std::string& name, std::function<void(Scene&, int)> act = nullptr) {
    tokens.push_back(list->add([this, name, act](int value) {
      heard.push_back(name + std::to_string(value));
      if (act) act(*this, value);
    }));
  }
};

TEST(ObserverListTest, NotificationsSurviveChangesOfTheListFromInsideACall) {
  struct Case {
    const char* name;
    std::function<void(Scene&)> setUp;
    std::vector<std::string> heard;
  };
  const Case cases[] = {
      {"observers hear in the order they were added",
       [](Scene& s) {
         s.watch("a");
         s.watch("b");
       },
       {"a1", "b1", "a2", "b2"}},
      {"an observer cancelling itself is spared later notifications only",
       [](Scene& s) {
         s.watch("a", [](Scene& s, int) { s.tokens[0].cancel(); });
         s.watch("b");
       },
       {"a1", "b1", "b2"}},
      {"an observer cancelled by an earlier one is skipped at once",
       [](Scene& s) {
         s.watch("a", [](Scene& s, int) { s.tokens[1].cancel(); });
         s.watch("b");
       },
       {"a1", "a2"}},
      {"an observer added during a notification hears from the next one on",
       [](Scene& s) {
         s.watch("a", [](Scene& s, int value) {
           if (value == 1) s.watch("late");
         });
       },
       {"a1", "a2", "late2"}},
      {"a notification from inside a call runs in full",
       [](Scene& s) {
         s.watch("a", [](Scene& s, int value) {
           if (value == 1) s.list->notify(7);
         });
         s.watch("b");
       },
       {"a1", "a7", "b7", "b1", "a2", "b2"}},
      {"a token replaced by assignment cancels the old observer",
       [](Scene& s) {
         s.watch("a", [](Scene& s, int) { s.tokens[0] = Subscription(); });
         s.watch("b");
       },
       {"a1", "b1", "b2"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Scene scene;
    scene.tokens.reserve(8);
    c.setUp(scene);
    scene.list->notify(1);
    scene.list->notify(2);
    EXPECT_EQ(scene.heard, c.heard);
  }
}

TEST(ObserverListTest, TokensOutliveTheListAndFailuresStopTheNotification) {
  Scene scene;
  scene.watch("a", [](Scene&, int value) {
    if (value == 1) throw std::runtime_error("failed");
  });
  scene.watch("b");
  EXPECT_THROW(scene.list->notify(1), std::runtime_error);
  scene.list->notify(2);
  EXPECT_EQ(scene.heard, (std::vector<std::string>{"a1", "a2", "b2"}));
  // The list goes first: its tokens then cancel nothing, and touch nothing freed.
  scene.list.reset();
  for (Subscription& token : scene.tokens) token.cancel();
  EXPECT_FALSE(scene.tokens[0].active());
}

TEST(ObserverListTest, CancellingWaitsForACallInProgressOnAnotherThread) {
  List list;
  std::promise<void> entered;
  std::promise<void> release;
  auto released = release.get_future().share();
  std::atomic<bool> finished = false;
  Subscription token = list.add([&](int) {
    entered.set_value();
    released.wait();
    finished = true;
  });
  std::thread notifier([&] { list.notify(1); });
  entered.get_future().wait();
  std::atomic<bool> finishedWhenCancelled = false;
  std::thread canceller([&] {
    token.cancel();
    finishedWhenCancelled = finished.load();
  });
  release.set_value();
  canceller.join();
  notifier.join();
  EXPECT_TRUE(finishedWhenCancelled) << "cancel returned while the observer was still running";
  list.notify(2);
  EXPECT_TRUE(list.empty());
}

}  // namespace
}  // namespace ombrine
