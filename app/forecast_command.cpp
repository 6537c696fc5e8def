#include "app/forecast_command.hpp"

#include <unistd.h>

#include <boost/asio/signal_set.hpp>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "app/commands.hpp"
#include "app/failure_text.hpp"
#include "app/forecast_render.hpp"
#include "app/global_options.hpp"
#include "app/progress_line.hpp"
#include "app/terminal_text.hpp"
#include "core/fetch/fetch_retry.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/record/one_call_weather_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/unit_rules.hpp"
#include "places/coordinate_text.hpp"
#include "platform/errors.hpp"
#include "platform/http_client.hpp"
#include "platform/linux/network_path.hpp"
#include "platform/log.hpp"
#include "tides/tide_disk_cache.hpp"
#include "wiring/fetch_pipeline.hpp"

namespace ombrine::app {

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

// Taken while the program's static objects are built, as close to process start as this file
// can see: the start-up share of OMBRINE_TIMINGS.
const SteadyTime kProgramStart = std::chrono::steady_clock::now();

struct ForecastOptions {
  std::string place;
  std::string at;
  std::string provider;  // empty: the stored preference
  bool json = false;
  bool force = false;
  bool watch = false;
  bool verbose = false;
  std::string locationFile;
};

struct Place {
  Location location;
  std::string name;
};

Place resolvePlace(const ForecastOptions& options, const Geocoder& geocoder) {
  // --at is read strictly: "nan,nan" is a malformed coordinate, not a town to search for.
  if (!options.at.empty()) return Place{parseCoordinate(options.at), {}};
  if (options.place.empty()) throw InvalidPlaceQuery("name a place (e.g. Munich) or give --at LAT,LON");
  const auto matches = geocoder.search(options.place, 1);
  if (matches.empty()) {
    throw DomainError(kNoResultErrorDomain, kNoResultErrorCode, "no place named " + quotedInput(options.place));
  }
  return Place{matches.front().coordinate, matches.front().name};
}

// The split of OMBRINE_TIMINGS=1, printed to stderr at the end.
class Timings {
 public:
  Timings() : enabled_(std::getenv("OMBRINE_TIMINGS") != nullptr), last_(kProgramStart) {}
  void mark(const char* phase) {
    const auto now = std::chrono::steady_clock::now();
    text_ += fmt::format("{}{} {:.2f} ms", text_.empty() ? "" : ", ", phase,
                         std::chrono::duration<double, std::milli>(now - last_).count());
    last_ = now;
  }
  ~Timings() {
    if (enabled_ && !text_.empty()) logf("timings: {}", text_);
  }

 private:
  bool enabled_;
  SteadyTime last_;
  std::string text_;
};

// The one line that says what went wrong, without the pipeline's own log text.
std::string failureLine(const std::exception_ptr& error) { return "ombrine forecast: " + failureText(error); }

// Writes screens to stdout and event lines to stderr, one whole line or screen at a time.
class Printer {
 public:
  Printer(const ForecastOptions& options, WeatherDataSource source) : options_(options), source_(source) {}

  void line(std::string_view text) {
    std::lock_guard lock(mutex_);
    logf("ombrine: {}", text);
  }
  // Prints the record unless it is the one printed last.
  void screen(const OneCallWeather& weather, const std::optional<std::string>& name,
              const std::optional<Region>& region, Date now) {
    std::lock_guard lock(mutex_);
    if (printed_ && printed_->first == weather.current.dt && printed_->second == name.value_or("")) return;
    printed_ = std::make_pair(weather.current.dt, name.value_or(""));
    if (options_.json) {
      std::cout << encodeOneCallWeather(weather, now) << "\n" << std::flush;
      return;
    }
    const Region shownRegion = region.value_or(Region::unknown());
    ForecastScreen screen;
    screen.placeName = name.value_or("");
    screen.regionCode = shownRegion.identifier == "XX" ? "" : shownRegion.identifier;
    screen.providerName = std::string(providerPathName(providerPath(source_, shownRegion)));
    screen.weather = &weather;
    screen.now = now;
    screen.locale = currentLocale();
    screen.messages = &screenMessages(screen.locale);
    screen.colour = colourWanted(STDOUT_FILENO);
    std::cout << renderForecast(screen) << std::flush;
  }
  void setSource(WeatherDataSource source) {
    std::lock_guard lock(mutex_);
    source_ = source;
  }

 private:
  const ForecastOptions& options_;
  WeatherDataSource source_;
  std::mutex mutex_;
  std::optional<std::pair<Date, std::string>> printed_;
};

// The last good record of the place, of any age, when the fetch gave none.
std::optional<PlacedWeather> lastGoodRecord(LatestWeatherStore& cache, const Location& place) {
  auto cached = cache.latest();
  if (!cached || place.distance(cached->location) >= ContentView::kCachedRecordReuseDistance) return std::nullopt;
  return cached;
}

// Polls what has no notification of its own: the network path and the location file.
class Pollers {
 public:
  Pollers(FetchPipeline& pipeline, std::string locationFile, Location start)
      : pipeline_(pipeline), locationFile_(std::move(locationFile)), location_(start) {
    thread_ = std::thread([this] { run(); });
  }
  ~Pollers() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

 private:
  void run() {
    bool satisfied = networkPathSatisfied();
    std::unique_lock lock(mutex_);
    while (!wake_.wait_for(lock, std::chrono::seconds(1), [this] { return stop_; })) {
      const bool now = networkPathSatisfied();
      if (now != satisfied) {
        satisfied = now;
        pipeline_.view().post([now](ContentView& view) { view.networkPathChanged(now); });
      }
      if (auto moved = readLocation(); moved && !(*moved == location_)) {
        location_ = *moved;
        pipeline_.view().post([moved = *moved](ContentView& view) { view.locationChanged(moved); });
      }
    }
  }
  std::optional<Location> readLocation() const {
    if (locationFile_.empty()) return std::nullopt;
    std::ifstream in(locationFile_);
    double latitude = 0, longitude = 0;
    char comma = 0;
    if (!(in >> latitude >> comma >> longitude) || comma != ',') return std::nullopt;
    if (std::abs(latitude) > 90 || std::abs(longitude) > 180) return std::nullopt;
    return Location(latitude, longitude);
  }

  FetchPipeline& pipeline_;
  std::string locationFile_;
  Location location_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

// Waits for the fetch to end, at most until `deadline` (no limit without one). On a terminal a
// fetch that takes over two seconds shows how long it has been waiting on stderr, and the line
// is wiped before the outcome is printed. False when the time ran out.
bool awaitFetch(const std::shared_future<void>& ended, bool showProgress, std::optional<SteadyTime> deadline) {
  const auto start = std::chrono::steady_clock::now();
  ProgressLine progress(showProgress);
  long shownSeconds = 0;
  while (ended.wait_for(std::chrono::milliseconds(200)) != std::future_status::ready) {
    const auto now = std::chrono::steady_clock::now();
    if (deadline && now >= *deadline) return false;
    const auto waited = static_cast<long>(std::chrono::duration<double>(now - start).count());
    if (waited >= 2 && waited != shownSeconds) {
      shownSeconds = waited;
      progress.show(fmt::format("waiting for the weather service… {} s", shownSeconds));
    }
  }
  return true;
}

// What a one-shot run prints: the record the pipeline published, copied once on its context.
struct ShownRecord {
  OneCallWeather weather;
  std::optional<std::string> name;
  std::optional<Region> region;
};

// One request of a one-shot run, as the pipeline's hooks report it: a record shown (or the
// request over without one), and the request over. A retry is a new attempt. The record is
// taken when it is shown, so the command's thread never waits for the pipeline's context (busy
// with the cache write by then) nor copies its whole state.
class Attempt {
 public:
  Attempt() : shown_(shownPromise_.get_future().share()), ended_(endedPromise_.get_future().share()) {}
  // On the pipeline's context.
  void show(const ContentViewState& state) {
    std::call_once(shownOnce_, [&] {
      record_ = ShownRecord{*state.currentWeather, state.name, state.region};
      shownPromise_.set_value();
    });
  }
  void end() {
    std::call_once(endedOnce_, [this] { endedPromise_.set_value(); });
    std::call_once(shownOnce_, [this] { shownPromise_.set_value(); });
  }
  const std::shared_future<void>& shown() const { return shown_; }
  const std::shared_future<void>& ended() const { return ended_; }
  // The record shown; none before `shown()` is ready or when the request ended without one.
  const std::optional<ShownRecord>& record() const {
    static const std::optional<ShownRecord> kNone;
    return shown_.wait_for(std::chrono::seconds(0)) == std::future_status::ready ? record_ : kNone;
  }

 private:
  std::promise<void> shownPromise_, endedPromise_;
  std::once_flag shownOnce_, endedOnce_;
  std::shared_future<void> shown_, ended_;
  std::optional<ShownRecord> record_;  // written once, before shown_ is ready
};

// The attempt under way; hooks on the pipeline's context and the command's thread share it.
class Attempts {
 public:
  std::shared_ptr<Attempt> current() {
    std::lock_guard lock(mutex_);
    return current_;
  }
  // Call only between attempts: the hooks of the one before have all run.
  std::shared_ptr<Attempt> next() {
    std::lock_guard lock(mutex_);
    current_ = std::make_shared<Attempt>();
    return current_;
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<Attempt> current_ = std::make_shared<Attempt>();
};

WeatherDataSource nextSource(WeatherDataSource source) {
  return static_cast<WeatherDataSource>((static_cast<int>(source) + 1) % 4);
}

int run(const ForecastOptions& options) {
  Timings timings;
  setDetailLogging(options.verbose || options.watch);
  ServicesOptions servicesOptions;
  if (!options.provider.empty()) servicesOptions.dataSource = weatherDataSourceNamed(options.provider);
  servicesOptions.watchSyncedStore = options.watch;
  servicesOptions.requireReadableSyncedStore = false;  // a forecast still shows with unreadable settings
  ProgramServices services(std::move(servicesOptions));
  // A forced run always fetches: the HTTP client loads its transport while the settings are read
  // and the place is found.
  if (options.force) services->http().prepare();
  const WeatherDataSource source = services->providerSettings().dataSource();
  timings.mark("startup");
  const Place place = resolvePlace(options, services->geocoder());
  timings.mark("geocode");

  Printer printer(options, source);
  const bool chatty = options.watch || options.verbose;
  std::mutex failureMutex;
  std::exception_ptr failure;
  auto attempts = std::make_shared<Attempts>();

  ContentView::Hooks hooks;
  if (chatty) {
    // Global logging, not the printer: the last tide save may be written as Services goes.
    services->tideDiskCache().reportWriteFailures([](std::string_view line) { logf("ombrine: {}", line); });
    hooks.trace = [&printer](std::string_view line) { printer.line(line); };
    hooks.log = [&printer](std::string_view line) { printer.line(line); };
  } else {
    hooks.log = [](std::string_view) {};  // the command reports the outcome itself
  }
  hooks.fetchFailed = [&](std::exception_ptr error) {
    std::lock_guard lock(failureMutex);
    failure = error;
    if (options.watch) printer.line(failureLine(error));
  };
  // Set once the pipeline exists; hooks run on its main context only after the first event.
  FetchPipeline* running = nullptr;
  Clock& clock = services->clock();
  if (options.watch) {
    hooks.stateChanged = [&printer, &clock, &running] {
      const auto& state = running->view().state();
      if (state.currentWeather)
        printer.screen(*state.currentWeather, state.name, state.region, Date::fromSystem(clock.now()));
    };
  }
  // A one-shot run prints as soon as a record is published, while the cache write goes on; it
  // still waits for the request to end before leaving, so the write is finished on exit.
  if (!options.watch) {
    hooks.showsPlaceholder = false;
    hooks.stateChanged = [&running, attempts] {
      const auto& state = running->view().state();
      if (state.currentWeather && !state.isFetchingData) attempts->current()->show(state);
    };
    hooks.requestEnded = [attempts] { attempts->current()->end(); };
  }
  FetchPipeline pipeline(*services, std::move(hooks));
  running = &pipeline;
  if (!place.name.empty()) pipeline.nameExactly(place.location, place.name);

  const Location here = place.location;
  const bool force = options.force;
  pipeline.view().post([here, force](ContentView& view) {
    view.setLocationInputs(LocationInputs{LocationAuthorization::authorized, here, std::nullopt, std::nullopt});
    // One start event: with --force the refresh gesture alone. Sending the scene activation as
    // well would queue a recovery fetch behind the forced one, and a one-shot run would then race
    // between the forced fetch's outcome and that second fetch's.
    if (force) {
      view.refreshGesture();
    } else {
      view.sceneBecameActive();
    }
  });

  if (!options.watch) {
    const double limit = globalOptions().timeoutSeconds;
    std::optional<SteadyTime> deadline;
    if (limit > 0) {
      deadline = std::chrono::steady_clock::now() +
                 std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(limit));
    }
    auto timeLeft = [&]() -> std::optional<RetryDelay> {
      if (!deadline) return std::nullopt;
      return RetryDelay(*deadline - std::chrono::steady_clock::now());
    };
    auto takeFailure = [&] {
      std::lock_guard lock(failureMutex);
      return std::exchange(failure, nullptr);
    };
    std::shared_ptr<Attempt> attempt = attempts->current();
    // Shown as soon as a record is published (or the request ends without one), within --timeout.
    bool inTime = awaitFetch(attempt->shown(), !chatty, deadline);
    if (inTime && !attempt->record()) {
      // One more attempt, forced, when the service asked for a wait that leaves time for it.
      attempt->ended().wait();
      const std::exception_ptr first = takeFailure();
      if (const auto wait = retryWaitAfter(first, timeLeft())) {
        waitBeforeRetry(first, *wait, chatty);
        attempt = attempts->next();
        pipeline.view().post([](ContentView& view) { view.refreshGesture(); });
        inTime = awaitFetch(attempt->shown(), !chatty, deadline);
      } else {
        std::lock_guard lock(failureMutex);
        failure = first;
      }
    }
    if (!inTime) {
      // Cancel now, so that nothing of this fetch lands after the outcome is reported.
      pipeline.shutdown();
      std::lock_guard lock(failureMutex);
      failure = std::make_exception_ptr(
          HttpError(HttpError::timedOut, fmt::format("no answer within {:g} s (--timeout)", limit)));
    }
    // The cache write goes on after the record is shown; leave only once it is on disk.
    auto requestFinished = [&] {
      if (inTime) attempt->ended().wait();
    };
    timings.mark("fetch");
    const Date now = Date::fromSystem(clock.now());
    if (const auto& shown = attempt->record()) {
      printer.screen(shown->weather, shown->name, shown->region, now);
      timings.mark("render");
      requestFinished();
      return 0;
    }
    requestFinished();
    std::exception_ptr error;
    {
      std::lock_guard lock(failureMutex);
      error = failure;
    }
    const std::string line = error ? failureLine(error) : "ombrine forecast: the fetch ended without a forecast";
    if (auto last = lastGoodRecord(pipeline.cache(), here)) {
      const auto minutes = static_cast<long>(std::max(0.0, (now - last->weather.current.dt) / 60.0) + 0.5);
      logf("{}; showing the last good record, from {}", line, countOf(minutes, "minute", "minutes") + " ago");
      printer.screen(last->weather, last->name, last->region, now);
      return kExitShownFromLastGood;
    }
    logLine(line);
    return 1;
  }

  // --watch: redraw on every change until Ctrl-C.
  std::promise<void> stop;
  auto stopped = stop.get_future();
  ProviderSettings& providerSettings = services->providerSettings();
  auto sourceToken = providerSettings.observeProviderChanges([&](ProviderSettingsChange change) {
    if (change != ProviderSettingsChange::dataSource) return;
    const auto chosen = providerSettings.dataSource();
    printer.setSource(chosen);
    pipeline.view().post([chosen](ContentView& view) { view.dataSourceChanged(chosen); });
  });
  Pollers pollers(pipeline, options.locationFile, here);

  asio::signal_set signals(services->runtime().context(), SIGINT, SIGTERM, SIGUSR1);
  signals.add(SIGUSR2);
  std::function<void(const boost::system::error_code&, int)> onSignal;
  bool stopping = false;
  onSignal = [&](const boost::system::error_code& error, int number) {
    if (error) return;
    if (number == SIGUSR1) {
      printer.line("signal: SIGUSR1 (refresh gesture)");
      pipeline.view().post([](ContentView& view) { view.refreshGesture(); });
    } else if (number == SIGUSR2) {
      const auto next = nextSource(providerSettings.dataSource());
      printer.line(fmt::format("signal: SIGUSR2 (data source: {})", weatherDataSourceName(next)));
      try {
        const DataSourceChange change = services->changeDataSource(next);
        if (change.limitReached) {
          printer.line(fmt::format("{}: {} changes today; the change applies without a forced fetch",
                                   DataSourceChangeTracker::kLimitReachedMessage, change.changesBefore + 1));
        }
      } catch (const std::exception& failure) {
        printer.line(fmt::format("the data source could not be changed: {}", failure.what()));
      }
    } else if (!stopping) {
      stopping = true;
      stop.set_value();
      return;
    }
    signals.async_wait(onSignal);
  };
  signals.async_wait(onSignal);
  printer.line(fmt::format("watching (pid {}): SIGUSR1 refreshes, SIGUSR2 selects the next data source, Ctrl-C ends",
                           ::getpid()));
  stopped.wait();
  printer.line("stopping");
  sourceToken.cancel();
  pipeline.shutdown();
  boost::system::error_code ignored;
  signals.cancel(ignored);
  return 0;
}

}  // namespace

void addForecastCommand(CLI::App& app) {
  auto options = std::make_shared<ForecastOptions>();
  CLI::App* command = app.add_subcommand("forecast", "The forecast for a place");
  command->add_option("place", options->place, "A place name (\"Munich\", \"Springfield, IL\") or LAT,LON");
  command->add_option("--at", options->at, "A coordinate, LAT,LON (e.g. 48.137,11.575)")->excludes("place");
  command
      ->add_option(
          "--provider", options->provider,
          "dynamic (by region), apple, foreca or ow for this run (default: the preferredWeatherProvider setting)")
      ->check(CLI::IsMember({"dynamic", "apple", "foreca", "ow"}));
  command->add_flag("--json", options->json, "Print the unified forecast record as JSON");
  command->add_flag("--force", options->force,
                    "Fetch from the service even when a fresh cached record or the 300 s interval would hold it back");
  command->add_flag("--watch", options->watch,
                    "Keep running: redraw on every new record, one line per event on stderr; SIGUSR1 refreshes, "
                    "SIGUSR2 selects the next data source, Ctrl-C ends");
  command->add_option("--location-file", options->locationFile,
                      "With --watch: a file holding LAT,LON, polled each second; a change moves the place");
  command->add_flag("--verbose,-v", options->verbose, "Print the pipeline's events and gate decisions to stderr");
  command->callback([options] {
    try {
      setExitCode(run(*options));
    } catch (const InvalidPlaceQuery& error) {
      logf("ombrine forecast: {}", error.what());
      setExitCode(2);
    } catch (const std::exception& error) {
      logLine(failureLine(std::current_exception()));
      setExitCode(1);
    }
  });
}

}  // namespace ombrine::app
