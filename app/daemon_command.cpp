#include "app/daemon_command.hpp"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <thread>

#include <fmt/format.h>

#include "app/command_report.hpp"
#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/global_options.hpp"
#include "app/screen_text.hpp"
#include "app/terminal_text.hpp"
#include "background/background_refresh.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "platform/errors.hpp"
#include "platform/http_client.hpp"
#include "platform/key_value_store.hpp"
#include "platform/linux/systemd_user_units.hpp"
#include "platform/log.hpp"
#include "wiring/background_work.hpp"
#include "wiring/geocode_namer.hpp"
#include "wiring/weather_alerts.hpp"

namespace ombrine::app {

namespace {

using namespace std::chrono_literals;
using Outcome = FileBackgroundScheduler::PassOutcome;

const std::string kTask(BackgroundRefresh::kTaskIdentifier);

struct DaemonOptions {
  bool once = false;
  double pollSeconds = 60.0;
  bool json = false;
  std::string place;
};

// The screen's words and digits in the reader's locale.
const ScreenWords& words() {
  static const ScreenText text(currentLocale());
  return text;
}

std::string when(std::chrono::system_clock::time_point time) { return words().utcTime(Date::fromSystem(time)); }

std::string seconds(std::chrono::system_clock::duration duration) {
  return words().format("{} s", words().number(std::chrono::duration<double>(duration).count(),
                                               {.fractionDigits = 1, .grouping = false}));
}

// "pass 3 started …, took 0.4 s: success"; the result is the pass's own identifier.
std::string describe(const BackgroundPassRecord& record) {
  std::string text =
      words().format("pass {} started {}", words().number(static_cast<double>(record.number)), when(record.started));
  if (record.ended) text += words().format(", took {}", seconds(*record.ended - record.started));
  return words().format("{}: {}", text, record.result);
}

std::string nextPassDue(std::chrono::system_clock::time_point time) {
  return words().format("Next pass due {}", when(time));
}

// The launch of the process: the backup and registration, and, standing in for the foreground
// fetch that asks for the next pass, a request due now when none stands.
void launch(Services& services) {
  BackgroundRefresh& refresh = services.backgroundRefresh();
  refresh.launch();
  if (!services.backgroundScheduler().pendingRequest(kTask)) refresh.scheduleRefresh(0);
}

// Shows the notifications of this process when they fall due, until `stop`.
class NotificationDelivery {
 public:
  NotificationDelivery(Services& services, std::chrono::milliseconds poll)
      : thread_([this, &services, poll] { run(services, poll); }) {}
  ~NotificationDelivery() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  void run(Services& services, std::chrono::milliseconds poll) {
    NotificationCenter& center = services.notificationCenter();
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      lock.unlock();
      center.deliverDueRequests();
      auto wait = std::chrono::duration_cast<std::chrono::system_clock::duration>(poll);
      if (const auto next = center.nextTriggerDate()) wait = std::min(wait, *next - services.clock().now() + 5ms);
      lock.lock();
      wake_.wait_for(lock, std::max(wait, std::chrono::system_clock::duration(1ms)), [&] { return stopping_; });
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  std::thread thread_;
};

int runOnce(Services& services) {
  launch(services);
  FileBackgroundScheduler& scheduler = services.backgroundScheduler();
  const auto pass = scheduler.runDuePass(kTask);
  switch (pass.outcome) {
    case Outcome::noRequest:
      std::cout << words()("No background request stands (notifications are off)") << "\n";
      return 0;
    case Outcome::notDue: std::cout << nextPassDue(*pass.due) << "\n"; return 0;
    case Outcome::busy: std::cout << words()("Another process is running a pass") << "\n"; return 0;
    case Outcome::noHandler: return 1;
    case Outcome::ran: break;
  }
  // Stay for the 5-second trigger of what the pass announced, so it is shown.
  deliverNotificationsDueWithin(services, 6s);
  std::cout << describe(*pass.record) << "\n";
  if (const auto next = scheduler.pendingRequest(kTask); next && next->earliestBeginDate) {
    std::cout << nextPassDue(*next->earliestBeginDate) << "\n";
  }
  return pass.record->result == "success" ? 0 : 1;
}

int runDaemon(const DaemonOptions& options) {
  // Before any thread starts, so that only the waiter below receives them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // Everything this process does is background work: it yields the processor to the user's.
  errno = 0;
  if (::nice(10) == -1 && errno != 0) logf("Cannot lower the daemon's priority: {}", std::strerror(errno));

  ProgramServices program;
  Services& services = *program;
  if (options.once) return runOnce(services);

  FileBackgroundScheduler& scheduler = services.backgroundScheduler();
  scheduler.setPassObserver([](const BackgroundPassRecord& record) { std::cout << describe(record) << std::endl; });
  launch(services);
  std::atomic<bool> served{false};
  std::thread waiter([&] {
    const timespec slice{0, 200'000'000};
    while (!served) {
      const int received = sigtimedwait(&signals, nullptr, &slice);
      if (received == SIGTERM || received == SIGINT) {
        std::cout << words().format("Stopping ({})", received == SIGTERM ? "SIGTERM" : "SIGINT") << std::endl;
        scheduler.stop();
        return;
      }
    }
  });
  const auto poll = std::chrono::milliseconds(static_cast<long>(options.pollSeconds * 1000.0));
  {
    NotificationDelivery delivery(services, poll);
    // The process id is an identifier: Latin digits in every locale.
    std::cout << words().format("ombrine daemon {}: honouring {} in {}", std::to_string(::getpid()), kTask,
                                scheduler.folder().string())
              << std::endl;
    scheduler.serve(kTask, poll);
  }
  served = true;
  waiter.join();
  if (const auto next = scheduler.pendingRequest(kTask); next && next->earliestBeginDate) {
    std::cout << words().format("Stopped; next pass due {}", when(*next->earliestBeginDate)) << std::endl;
  } else {
    std::cout << words()("Stopped; no request stands") << std::endl;
  }
  return 0;
}

std::map<std::string, std::string> unitEnvironment() {
  std::map<std::string, std::string> environment;
  for (const char* name :
       {"OMBRINE_CONTAINER", "OMBRINE_SYNC_DIR", "OMBRINE_SERVICES", "OMBRINE_LOCATION", "OMBRINE_LOCATION_FILE",
        "OMBRINE_RESOURCE_DIR", "OMBRINE_BACKGROUND_MINUTE_MS", "OMBRINE_BACKGROUND_PASS_LIMIT_MS", "XDG_DATA_HOME",
        "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "LANG", "LC_ALL", "LC_MESSAGES"}) {
    if (const char* value = std::getenv(name); value && *value) environment[name] = value;
  }
  return environment;
}

int runInstall() {
  ProgramServices program;
  Services& services = *program;
  const auto program_path = std::filesystem::read_symlink("/proc/self/exe");
  std::vector<std::string> command{program_path.string()};
  if (globalOptions().services != "real") {
    command.push_back("--services");
    command.push_back(globalOptions().services);
  }
  command.push_back("daemon");
  command.push_back("--once");
  const auto interval =
      std::chrono::ceil<std::chrono::seconds>(BackgroundRefresh::kRefreshDelayMinutes * services.backgroundMinute());
  const auto units = makeRefreshUnits(command, unitEnvironment(), interval);
  for (const auto& path : installRefreshUnits(units, systemdUserUnitFolder()))
    std::cout << words().format("Wrote {}", path.string()) << "\n";
  std::cout << words()("Start the timer with:")
            << "\n  systemctl --user daemon-reload && systemctl --user enable --now " << SystemdUserUnits::kTimerName
            << "\n";
  return 0;
}

int runUninstall() {
  std::cout << words()("Stop the timer first with:") << "\n  systemctl --user disable --now "
            << SystemdUserUnits::kTimerName << "\n";
  const auto removed = uninstallRefreshUnits(systemdUserUnitFolder());
  for (const auto& path : removed) std::cout << words().format("Removed {}", path.string()) << "\n";
  if (removed.empty()) {
    std::cout << words().format("No units were installed in {}", systemdUserUnitFolder().string()) << "\n";
  }
  return 0;
}

int runStatus() {
  ProgramServices program;
  Services& services = *program;
  FileBackgroundScheduler& scheduler = services.backgroundScheduler();
  const ScreenWords& text = words();
  const auto now = services.clock().now();
  auto row = [&](std::string_view label, std::string_view value) {
    std::cout << "  " << text.format("{}: {}", text(label), value) << "\n";
  };
  std::cout << text.format("Background refresh {}", kTask) << "\n";
  row("notifications", text.format("{} (isSendingNotifications)",
                                   text(services.backgroundRefresh().isSendingNotifications() ? "on" : "off")));
  const auto request = scheduler.pendingRequest(kTask);
  if (request && request->earliestBeginDate && *request->earliestBeginDate - now > 0s) {
    row("standing request",
        text.format("due {} (in {})", when(*request->earliestBeginDate), seconds(*request->earliestBeginDate - now)));
  } else if (request && request->earliestBeginDate) {
    row("standing request", text.format("due {} (due now)", when(*request->earliestBeginDate)));
  } else {
    row("standing request", text(request ? "due now" : "none"));
  }
  const auto history = scheduler.passHistory(kTask);
  row("last pass", history.empty() ? std::string(text("none")) : describe(history.back()));
  try {
    const auto place = placeToLookAt(services);
    std::string where = text.coordinate(place.location.latitude(), place.location.longitude(), 4);
    if (place.name) where += " (" + neutralised(*place.name) + ")";
    row("location", text.format("{} from {}", where, place.source));
  } catch (const std::exception&) {
    row("location", text.format("none ({})", failureText(std::current_exception())));
  }
  const auto units = systemdUserUnitFolder() / SystemdUserUnits::kTimerName;
  row("systemd timer", std::filesystem::exists(units) ? units.string() : std::string(text("not installed")));
  return 0;
}

// Switches all background work on or off ("isSendingNotifications" of the shared defaults). Off
// withdraws the standing request; on asks for a pass now when none stands.
int runSwitch(bool on) {
  ProgramServices program;
  Services& services = *program;
  services.sharedDefaults().setValue(BackgroundRefresh::kSettingKey, StoreValue{on});
  BackgroundRefresh& refresh = services.backgroundRefresh();
  if (!on || !services.backgroundScheduler().pendingRequest(kTask)) refresh.scheduleRefresh(0);
  std::cout << words()(on ? "Background refresh and notifications on" : "Background refresh and notifications off")
            << "\n";
  return 0;
}

int runNotifyRain(const DaemonOptions& options) {
  ProgramServices program;
  Services& services = *program;
  Location location;
  std::string name;
  std::optional<GeoDetails> details;
  if (options.place.empty()) {
    LookedAtPlace place;
    try {
      place = placeToLookAt(services);
    } catch (const DomainError&) {
      throw InvalidPlaceQuery(
          "name a place (e.g. Oslo), or say where you are: ombrine places home PLACE, "
          "OMBRINE_LOCATION=LAT,LON, or " +
          FileLocationProvider::defaultLocationFile().string());
    }
    location = place.location;
    name = place.name.value_or("");
  } else {
    const auto matches = services.geocoder().search(options.place, 1);
    if (matches.empty()) {
      throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(options.place));
    }
    location = matches.front().coordinate;
    name = matches.front().name;
  }
  details = services.namer().detailsOf(location);
  if (name.empty()) name = details->name;
  auto fetching = services.network().fetchOneCall(location, details->region, details->timeZone, std::nullopt, false);
  const OneCallWeather weather = services.runtime().runBlocking(std::move(fetching));
  const auto outcome = notifyPrecipitationOnce(services, weather);
  deliverNotificationsDueWithin(services, 6s);
  switch (outcome.plan.action) {
    case PrecipitationPlan::Action::clear:
      std::cout << words().format("No rain or snow in the next hour for {}", name) << "\n";
      break;
    case PrecipitationPlan::Action::nothing:
      std::cout << words().format("Nothing new to say about rain or snow for {} (state {})", name, outcome.state)
                << "\n";
      break;
    case PrecipitationPlan::Action::announce:
      if (outcome.refused) return 1;
      std::cout << words().format("Announced for {}:", name) << "\n"
                << outcome.request->content.title << "\n"
                << outcome.request->content.subtitle << "\n"
                << outcome.request->content.body << "\n";
      break;
  }
  return 0;
}

CommandReporting daemonReporting() { return placeCommandReporting("the weather service", "the weather service"); }

}  // namespace

void addDaemonCommand(CLI::App& app) {
  auto options = std::make_shared<DaemonOptions>();
  CLI::App* daemon = app.add_subcommand(
      "daemon", "Honour the background refresh: sleep until its request is due, run the pass, repeat");
  daemon->add_flag("--once", options->once, "Run the pass if it is due, then exit (what the systemd timer calls)");
  daemon->add_option("--poll", options->pollSeconds, "Look again for requests of other processes every SECONDS")
      ->check(positiveNumber());
  daemon->callback([options, daemon] {
    if (!daemon->get_subcommands().empty()) return;
    runReporting(
        "daemon", [&] { return runDaemon(*options); }, daemonReporting());
  });
  daemon->add_subcommand("install", "Write the systemd user timer and service that run the pass")->callback([] {
    runReporting(
        "daemon install", [] { return runInstall(); }, daemonReporting());
  });
  daemon->add_subcommand("uninstall", "Remove the systemd user timer and service")->callback([] {
    runReporting(
        "daemon uninstall", [] { return runUninstall(); }, daemonReporting());
  });
  daemon->add_subcommand("status", "The standing request, the last pass and its result")->callback([] {
    runReporting(
        "daemon status", [] { return runStatus(); }, daemonReporting());
  });
  daemon->add_subcommand("on", "Switch the background refresh and its notifications on")->callback([] {
    runReporting(
        "daemon on", [] { return runSwitch(true); }, daemonReporting());
  });
  daemon->add_subcommand("off", "Switch the background refresh and its notifications off (no request stands)")
      ->callback([] {
        runReporting(
            "daemon off", [] { return runSwitch(false); }, daemonReporting());
      });
}

void addNotifyRainCommand(CLI::App& notify) {
  auto options = std::make_shared<DaemonOptions>();
  CLI::App* rain = notify.add_subcommand("rain", "Announce rain or snow starting or ending within the hour, once");
  rain->add_option("place", options->place,
                   "A place name (\"Oslo\"); default: OMBRINE_LOCATION, the location file, else the home place");
  rain->callback([options] {
    runReporting(
        "notify rain", [&] { return runNotifyRain(*options); }, daemonReporting());
  });
}

}  // namespace ombrine::app
