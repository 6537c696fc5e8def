#include "notifications/weather_alert_notification_state.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

using State = WeatherAlertNotificationState;
using Invalidation = WeatherAlertNotificationAttemptInvalidation;
using Persisted = WeatherAlertNotificationPersistedState;

constexpr double kHour = 3600;
const WeatherAlertNotificationKey kGale{"Gale", "FMI"};
const WeatherAlertNotificationKey kFog{"Fog", "FMI"};
const WeatherAlertNotificationKey kGaleOther{"Gale", "SMHI"};

Uuid uuid(int n) {
  Uuid id;
  id.bytes[15] = static_cast<std::uint8_t>(n);
  return id;
}

WeatherAlertNotificationOccurrence live(WeatherAlertNotificationKey key, std::optional<Date> end = std::nullopt) {
  return {std::move(key), end};
}

// One whole pass that the center accepts: plan, then confirm when an attempt was made.
// Returns the keys announced.
std::set<WeatherAlertNotificationKey> pass(Persisted& state,
                                           const std::vector<WeatherAlertNotificationOccurrence>& alerts, Date at,
                                           int id, bool clearsAll = false) {
  auto plan = State::plan(state, alerts, at, uuid(id), clearsAll);
  state = plan.persistedState;
  if (!plan.schedulingAttempt) return {};
  state = State::confirm(state, uuid(id), !clearsAll).persistedState;
  return plan.schedulingAttempt->insertedKeys;
}

std::vector<WeatherAlertNotificationRecord> records(const Persisted& state) {
  std::vector<WeatherAlertNotificationRecord> out;
  for (const auto& value : state.recordValues) {
    if (auto record = decodeWeatherAlertRecord(value)) out.push_back(*record);
  }
  return out;
}

TEST(WeatherAlertNotificationStateTest, AnnouncesOncePerRetention) {
  struct Step {
    double hours;  // since the first pass
    std::vector<WeatherAlertNotificationOccurrence> alerts;
    std::set<WeatherAlertNotificationKey> announced;
  };
  struct Case {
    const char* name;
    std::vector<Step> steps;
  };
  const Date t0{800000000};
  const auto ends = [&](double hours) { return std::optional<Date>(t0 + hours * kHour); };
  const Case cases[] = {
      {"seen in ten passes: one notification",
       {{0, {live(kGale)}, {kGale}},
        {1, {live(kGale)}, {}},
        {2, {live(kGale)}, {}},
        {3, {live(kGale)}, {}},
        {4, {live(kGale)}, {}},
        {5, {live(kGale)}, {}},
        {6, {live(kGale)}, {}},
        {7, {live(kGale)}, {}},
        {8, {live(kGale)}, {}},
        {9, {live(kGale)}, {}}}},
      {"gone 71 hours and back: nothing", {{0, {live(kGale, ends(1))}, {kGale}}, {1, {}, {}}, {72, {live(kGale)}, {}}}},
      {"gone 72 hours with its end passed, and back: a new one",
       {{0, {live(kGale, ends(1))}, {kGale}}, {1, {}, {}}, {73, {}, {}}, {74, {live(kGale)}, {kGale}}}},
      {"gone 72 hours, end still to come: the record stays",
       {{0, {live(kGale, ends(100))}, {kGale}}, {1, {}, {}}, {73, {}, {}}, {74, {live(kGale, ends(100))}, {}}}},
      {"an end date that moves is no new alert",
       {{0, {live(kGale, ends(5))}, {kGale}}, {1, {live(kGale, ends(9))}, {}}, {2, {live(kGale)}, {}}}},
      {"two new alerts: one notification for both", {{0, {live(kGale), live(kFog)}, {kGale, kFog}}}},
      {"same event from another sender is another alert",
       {{0, {live(kGale)}, {kGale}}, {1, {live(kGale), live(kGaleOther)}, {kGaleOther}}}},
      {"a snapshot older than the last one changes nothing",
       {{5, {live(kGale)}, {kGale}}, {4, {live(kFog)}, {}}, {6, {}, {}}, {6.5, {live(kFog)}, {kFog}}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Persisted state;
    int id = 0;
    for (const Step& step : c.steps) {
      SCOPED_TRACE(step.hours);
      EXPECT_EQ(pass(state, step.alerts, t0 + step.hours * kHour, ++id), step.announced);
    }
    EXPECT_TRUE(state.pendingAttempts.empty());
  }
}

TEST(WeatherAlertNotificationStateTest, PlanDetails) {
  const Date t0{800000000};
  // The first new occurrence is the primary key; its records carry the attempt's identifier.
  Persisted state;
  auto plan = State::plan(state, {live(kFog, t0 + 10), live(kGale), live(kFog, t0 + 99)}, t0, uuid(1), false);
  ASSERT_TRUE(plan.schedulingAttempt);
  EXPECT_EQ(plan.schedulingAttempt->primaryKey, kFog);
  EXPECT_EQ(plan.persistedState.pendingAttempts.size(), 1u);
  for (const auto& record : records(plan.persistedState)) {
    EXPECT_EQ(record.scheduledNotificationIdentifier, plan.schedulingAttempt->notificationIdentifier());
    if (record.key() == kFog) EXPECT_EQ(record.endDate, t0 + 10);  // the first occurrence of a key stands
  }
  // While that attempt is on its way, a racing pass with the same alerts makes none of its own.
  const Persisted reserved = plan.persistedState;
  auto racing = State::plan(reserved, {live(kFog), live(kGale)}, t0 + 1, uuid(2), false);
  EXPECT_FALSE(racing.schedulingAttempt);
  EXPECT_TRUE(racing.pendingNotificationIdentifiersToCancel.empty());
  // A newer snapshot without its alerts invalidates it: its pending request is cancelled.
  auto gone = State::plan(reserved, {}, t0 + 2, uuid(3), false);
  ASSERT_EQ(gone.persistedState.pendingAttempts.size(), 1u);
  EXPECT_EQ(gone.persistedState.pendingAttempts[0].invalidation, Invalidation::pendingOnly);
  EXPECT_EQ(gone.pendingNotificationIdentifiersToCancel,
            std::set<std::string>{plan.schedulingAttempt->notificationIdentifier()});
  EXPECT_TRUE(gone.deliveredNotificationIdentifiersToRemove.empty());
  // Its alerts back: it stays invalidated and its request is still cancelled.
  auto back = State::plan(gone.persistedState, {live(kFog)}, t0 + 3, uuid(9), false);
  EXPECT_EQ(back.persistedState.pendingAttempts[0].invalidation, Invalidation::pendingOnly);
  EXPECT_EQ(back.pendingNotificationIdentifiersToCancel, gone.pendingNotificationIdentifiersToCancel);
  // Notifications off: every attempt is invalidated everywhere, the stronger invalidation stays.
  auto off = State::plan(gone.persistedState, {live(kFog)}, t0 + 3, uuid(4), true);
  EXPECT_FALSE(off.schedulingAttempt);
  EXPECT_EQ(off.persistedState.pendingAttempts[0].invalidation, Invalidation::pendingAndDelivered);
  EXPECT_EQ(off.deliveredNotificationIdentifiersToRemove.size(), 1u);
  auto again = State::plan(off.persistedState, {}, t0 + 4, uuid(5), false);
  EXPECT_EQ(again.persistedState.pendingAttempts[0].invalidation, Invalidation::pendingAndDelivered);
  // Notifications off with a stale snapshot: every record's and attempt's identifier goes.
  auto staleOff = State::plan(off.persistedState, {}, t0, uuid(6), true);
  EXPECT_EQ(staleOff.persistedState.recordValues, off.persistedState.recordValues);
  EXPECT_EQ(staleOff.pendingNotificationIdentifiersToCancel.size(), 1u);

  // Older strings become records of the current form; garbage stays as it is.
  Persisted legacy;
  legacy.recordValues = {"Gale_FMI_1700000000", "not a record"};
  auto updated = State::plan(legacy, {live(kGale)}, t0, uuid(7), false);
  EXPECT_FALSE(updated.schedulingAttempt);
  EXPECT_TRUE(updated.persistedState.recordValues.contains("not a record"));
  EXPECT_EQ(updated.persistedState.recordValues.size(), 2u);
  EXPECT_EQ(records(updated.persistedState).front(),
            (WeatherAlertNotificationRecord{"Gale", "FMI", std::nullopt, std::nullopt, std::nullopt}));
  // An unchanged record keeps its exact string.
  auto unchanged = State::plan(updated.persistedState, {live(kGale)}, t0 + 1, uuid(8), false);
  EXPECT_EQ(unchanged.persistedState.recordValues, updated.persistedState.recordValues);
}

TEST(WeatherAlertNotificationStateTest, ConfirmRollBackAndSettle) {
  const Date t0{800000000};
  const auto reservedWith = [&](bool invalidated) {
    auto plan = State::plan({}, {live(kGale)}, t0, uuid(1), false);
    if (invalidated) plan = State::plan(plan.persistedState, {}, t0 + 1, uuid(2), false);
    return plan.persistedState;
  };
  const std::string id = [&] {
    WeatherAlertNotificationAttempt attempt;
    attempt.identifier = uuid(1);
    return attempt.notificationIdentifier();
  }();

  struct ConfirmRow {
    const char* name;
    bool invalidated;
    bool enabled;
    bool keep, removeDelivered, withdrawn;
  };
  const ConfirmRow confirms[] = {
      {"valid and enabled: kept, attempt done", false, true, true, false, false},
      {"invalidated: request removed, attempt waits to be settled", true, true, false, false, true},
      {"switched off meanwhile: removed everywhere", false, false, false, true, true},
  };
  for (const auto& row : confirms) {
    SCOPED_TRACE(row.name);
    const auto completion = State::confirm(reservedWith(row.invalidated), uuid(1), row.enabled);
    EXPECT_EQ(completion.shouldKeepScheduledRequest, row.keep);
    EXPECT_EQ(completion.shouldRemoveDeliveredNotification, row.removeDelivered);
    EXPECT_TRUE(completion.persistedState.pendingAttempts.empty());
    EXPECT_EQ(completion.persistedState.withdrawnAttempts.size(), row.withdrawn ? 1u : 0u);
    EXPECT_EQ(records(completion.persistedState).size(), 1u);
  }
  // An unknown attempt (rolled back or settled by another pass) changes nothing and keeps nothing.
  const auto unknown = State::confirm(reservedWith(false), uuid(9), true);
  EXPECT_FALSE(unknown.shouldKeepScheduledRequest);
  EXPECT_EQ(unknown.persistedState, reservedWith(false));

  // Rolling back undoes the records the attempt inserted and restores those it covered.
  Persisted covering = reservedWith(false);
  covering.pendingAttempts[0].coveredRecords = {{kFog, "earlier"}};
  covering.recordValues.insert(encodeWeatherAlertRecord({"Fog", "FMI", std::nullopt, std::nullopt, id}));
  const auto rolled = State::rollBack(covering, uuid(1));
  EXPECT_TRUE(rolled.pendingAttempts.empty());
  EXPECT_EQ(records(rolled),
            (std::vector<WeatherAlertNotificationRecord>{{"Fog", "FMI", std::nullopt, std::nullopt, "earlier"}}));
  EXPECT_EQ(State::rollBack(rolled, uuid(1)), rolled);

  struct SettleRow {
    const char* name;
    bool withdrawn;
    double age;
    bool pending, delivered;
    std::size_t attemptsLeft, recordsLeft;
  };
  const SettleRow settles[] = {
      {"young attempt of a live pass: untouched", false, 599, false, false, 1, 1},
      {"abandoned before its request was added: undone", false, 600, false, false, 0, 0},
      {"abandoned after adding, request still pending: wait", false, 900, true, false, 1, 1},
      {"abandoned after adding, delivered: the user was told", false, 900, false, true, 0, 1},
      {"withdrawn and removed: undone at once", true, 1, false, false, 0, 0},
      {"withdrawn but shown anyway: stays told", true, 1, false, true, 0, 1},
  };
  for (const auto& row : settles) {
    SCOPED_TRACE(row.name);
    Persisted state = reservedWith(false);
    if (row.withdrawn) std::swap(state.pendingAttempts, state.withdrawnAttempts);
    std::set<std::string> pending, delivered;
    if (row.pending) pending.insert(id);
    if (row.delivered) delivered.insert(id);
    const auto settled = State::settleAbandonedAttempts(state, t0 + row.age, pending, delivered);
    EXPECT_EQ(settled.persistedState.pendingAttempts.size() + settled.persistedState.withdrawnAttempts.size(),
              row.attemptsLeft);
    EXPECT_EQ(records(settled.persistedState).size(), row.recordsLeft);
  }
}

}  // namespace
}  // namespace ombrine
