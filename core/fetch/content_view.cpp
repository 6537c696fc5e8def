#include "core/fetch/content_view.hpp"

#include <fmt/format.h>

#include <algorithm>

#include <boost/asio/post.hpp>

#include "core/fetch/data_source_change_tracker.hpp"
#include "core/fetch/provider_dispatch.hpp"
#include "core/record/weather_derived.hpp"
#include "core/values/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

bool isAPILimit(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const NetworkError& failure) {
    return failure.which() == NetworkError::exceededApiLimit;
  } catch (...) {
    return false;
  }
}

std::optional<Date> firstDailyDate(const std::optional<OneCallWeather>& weather) {
  if (!weather || weather->daily.empty()) return std::nullopt;
  return weather->daily.front().dt;
}

std::string shortId(const Uuid& id) { return id.text().substr(0, 8); }

}  // namespace

bool WeatherFetchRecoveryState::note(const std::optional<Uuid>& activeID) {
  pendingRequestID = activeID;
  return !activeID.has_value();
}

bool WeatherFetchRecoveryState::consume(const Uuid& id) {
  if (pendingRequestID != id) return false;
  pendingRequestID.reset();
  return true;
}

bool WeatherFetchRecoveryState::cancel(const Uuid& id) {
  if (pendingRequestID == id) pendingRequestID.reset();
  return false;
}

std::optional<Location> resolvedFetchLocation(const LocationInputs& inputs) {
  if (inputs.authorization == LocationAuthorization::denied) {
    if (inputs.home) return inputs.home;
    if (inputs.firstFavorite) return inputs.firstFavorite;
  }
  return inputs.lastLocation;
}

bool dataSourceChangeForcesRefetch(std::optional<WeatherDataSource> cachedSource, WeatherDataSource chosen,
                                   bool immediateRequestPending, int changesToday) {
  return cachedSource != chosen && !immediateRequestPending && changesToday < DataSourceChangeTracker::kDailyLimit;
}

std::optional<ShownWeather> shownWeather(const ContentViewState& state, const std::optional<PlacedWeather>& backdrop) {
  const bool backdropWins =
      backdrop && (!state.currentWeather || backdrop->weather.current.dt > state.currentWeather->current.dt);
  if (backdropWins) return ShownWeather{backdrop->weather, backdrop->name, backdrop->region, true};
  if (state.currentWeather) return ShownWeather{*state.currentWeather, state.name, state.region, false};
  return std::nullopt;
}

ContentView::ContentView(Strand mainContext, Dependencies dependencies, Hooks hooks)
    : main_(std::move(mainContext)), deps_(dependencies), hooks_(std::move(hooks)) {}

ContentView::ContentView(Strand mainContext, Dependencies dependencies)
    : ContentView(std::move(mainContext), dependencies, Hooks()) {}

ContentView::~ContentView() = default;

void ContentView::post(std::function<void(ContentView&)> work) {
  auto run = [this, work = std::move(work)] { work(*this); };
  asio::post(main_, std::move(run));
}

ContentViewState ContentView::snapshot() {
  std::promise<ContentViewState> copy;
  auto future = copy.get_future();
  auto take = [&copy](ContentView& view) { copy.set_value(view.state_); };
  post(take);
  return future.get();
}

bool ContentView::idle() const { return runningTasks_ == 0; }

void ContentView::trace(std::string_view line) const {
  if (hooks_.trace) hooks_.trace(line);
}

void ContentView::log(std::string_view line) const {
  if (hooks_.log) {
    hooks_.log(line);
  } else {
    logLine(line);
  }
}

void ContentView::changed() const {
  if (hooks_.stateChanged) hooks_.stateChanged();
}

// Events -------------------------------------------------------------------------------------

void ContentView::setLocationInputs(LocationInputs inputs) { state_.location = std::move(inputs); }

void ContentView::locationChanged(Location location) {
  const auto previous = state_.location.lastLocation;
  state_.location.lastLocation = location;
  const double moved = previous ? previous->distance(location) : 0.0;
  const bool force = !previous || moved > kForcingMoveDistance;
  if (!previous) {
    trace(fmt::format("event: first location {:.4f},{:.4f}: forced fetch", location.latitude(), location.longitude()));
  } else {
    trace(fmt::format("event: location moved {:.0f} m ({} 4000 m): {}", moved, force ? "over" : "not over",
                      force ? "forced fetch" : "unforced fetch"));
  }
  requestFetch(force);
}

void ContentView::refreshGesture() {
  trace("event: refresh gesture: forced fetch");
  requestFetch(true);
}

void ContentView::noteRecoveryWish() {
  std::optional<Uuid> activeID;
  if (state_.activeFetchRequest) activeID = state_.activeFetchRequest->id;
  if (state_.fetchRecoveryState.note(activeID)) {
    requestFetch(false);
  } else {
    trace(fmt::format("recovery: request {} is running; one more fetch when it ends", shortId(*activeID)));
  }
}

void ContentView::sceneBecameActive() {
  state_.sceneIsActive = true;
  trace("event: scene became active: unforced fetch");
  noteRecoveryWish();
}

void ContentView::sceneBecameInactive() {
  state_.sceneIsActive = false;
  trace("event: scene became inactive");
}

void ContentView::networkPathChanged(bool satisfied) {
  const bool cameBack = satisfied && !state_.networkIsSatisfied;
  state_.networkIsSatisfied = satisfied;
  if (!satisfied) {
    trace("event: network path unsatisfied");
    return;
  }
  if (!cameBack) return;
  if (!state_.sceneIsActive) {
    trace("event: network path satisfied, scene not active: no fetch");
    return;
  }
  trace("event: network path satisfied: unforced fetch");
  noteRecoveryWish();
}

void ContentView::authorizationChanged(LocationAuthorization authorization) {
  const auto before = resolvedFetchLocation(state_.location);
  state_.location.authorization = authorization;
  if (authorization == LocationAuthorization::denied) {
    const auto after = resolvedFetchLocation(state_.location);
    if (after && after != before) {
      trace("event: location denied; the saved place to fetch for changed: unforced fetch");
      requestFetch(false);
    }
    return;
  }
  immediateProviderRequestBecameRelevant();
}

void ContentView::favoritesChanged(std::optional<Location> home, std::optional<Location> firstFavorite) {
  const auto previousFirst = state_.location.firstFavorite;
  state_.location.home = home;
  state_.location.firstFavorite = firstFavorite;
  if (state_.location.authorization == LocationAuthorization::denied && firstFavorite != previousFirst) {
    trace("event: favourites changed while location is denied: unforced fetch");
    requestFetch(false);
  }
}

void ContentView::immediateProviderRequestBecameRelevant() {
  const auto ask = state_.location.authorization == LocationAuthorization::notDetermined
                       ? LocationServiceAsk::requestWhenInUseAuthorization
                       : LocationServiceAsk::requestLocation;
  if (hooks_.askLocationService) hooks_.askLocationService(ask);
  trace("event: location permission or immediate provider request: unforced fetch");
  requestFetch(false);
}

void ContentView::dataSourceChanged(WeatherDataSource chosen) {
  const auto cached = deps_.cache.latest();
  std::optional<WeatherDataSource> cachedSource;
  if (cached) cachedSource = weatherDataSource(cached->weather);
  const bool pending = deps_.settings.pendingImmediateWeatherProviderFetchRequest().has_value();
  const int changes = hooks_.changesToday ? hooks_.changesToday() : 0;
  const int before = std::max(0, changes - 1);
  const bool force = dataSourceChangeForcesRefetch(cachedSource, chosen, pending, before);
  const bool limited = cachedSource != chosen && !pending && !force;
  trace(
      fmt::format("event: data source changed to {} (cached record from {}, immediate request {}, {} changes "
                  "today): {}{}",
                  weatherDataSourceName(chosen), cachedSource ? weatherDataSourceName(*cachedSource) : "nothing",
                  pending ? "pending" : "none", changes, force ? "forced fetch" : "unforced fetch",
                  limited ? fmt::format(" ({})", DataSourceChangeTracker::kLimitReachedMessage) : ""));
  requestFetch(force);
}

void ContentView::dismissAPILimitSorryMessage() {
  state_.isShowingAPILimitSorryMessage = false;
  changed();
}

// The pipeline -------------------------------------------------------------------------------

bool ContentView::isActive(const WeatherFetchRequest& request) const {
  return state_.activeFetchRequest && state_.activeFetchRequest->id == request.id;
}

void ContentView::setActiveFetchRequest(std::optional<WeatherFetchRequest> request) {
  // The running task belongs to the request being replaced: changing the key cancels it.
  if (activeTask_) activeTask_.cancel();
  activeTask_ = SpawnedTask();
  const bool wasActive = state_.activeFetchRequest.has_value();
  state_.activeFetchRequest = request;
  if (!request || shutDown_) {
    state_.activeFetchRequest.reset();
    if (wasActive && hooks_.requestEnded) hooks_.requestEnded();
    return;
  }
  ++runningTasks_;
  auto completion = [this](std::exception_ptr) { --runningTasks_; };
  activeTask_ = spawnCancellable(main_, performFetch(*request), completion);
}

void ContentView::requestFetch(bool force) {
  const auto immediate = deps_.settings.pendingImmediateWeatherProviderFetchRequest();
  std::optional<Uuid> immediateID;
  if (immediate) immediateID = immediate->id;
  std::optional<Uuid> activeImmediateID;
  if (state_.activeFetchRequest) activeImmediateID = state_.activeFetchRequest->immediateProviderFetchRequestID;

  const bool restart = force || (immediate && immediateID != activeImmediateID);
  if (!restart) {
    const auto location = resolvedFetchLocation(state_.location);
    if (!location) {
      trace("gate: no location to fetch for");
      return;
    }
    if (state_.activeFetchRequest) {
      trace(fmt::format("gate: request {} is running: no second request", shortId(state_.activeFetchRequest->id)));
      return;
    }
  } else if (state_.activeFetchRequest) {
    const WeatherFetchRequest running = *state_.activeFetchRequest;
    trace(fmt::format("restart: cancelling request {}", shortId(running.id)));
    resetLastFetchIfOwned(running);
    state_.fetchRecoveryState.cancel(running.id);
    state_.isFetchingData = false;
    changed();
  }
  const auto location = resolvedFetchLocation(state_.location);
  if (!location) {
    trace("gate: no location to fetch for");
    setActiveFetchRequest(std::nullopt);
    return;
  }
  WeatherFetchRequest request;
  request.id = Uuid::random();
  request.location = *location;
  request.provider = immediate ? immediate->provider : deps_.settings.dataSource();
  request.force = restart;
  request.immediateProviderFetchRequestID = immediateID;
  trace(fmt::format("request {}: {} fetch with {}{}", shortId(request.id), request.force ? "forced" : "unforced",
                    weatherDataSourceName(request.provider), immediate ? " (immediate provider request)" : ""));
  setActiveFetchRequest(request);
}

void ContentView::finishFetch(const WeatherFetchRequest& request) {
  if (!isActive(request)) return;
  setActiveFetchRequest(std::nullopt);
  const bool wished = state_.fetchRecoveryState.consume(request.id);
  trace(fmt::format("request {} finished", shortId(request.id)));
  if (wished && state_.sceneIsActive && state_.networkIsSatisfied) {
    trace("recovery: an event asked for a fetch while it ran: unforced fetch");
    requestFetch(false);
  }
}

void ContentView::handleFetchCancelled(const WeatherFetchRequest& request) {
  if (!isActive(request)) return;
  resetLastFetchIfOwned(request);
  state_.fetchRecoveryState.cancel(request.id);
  state_.isFetchingData = false;
  setActiveFetchRequest(std::nullopt);
  changed();
}

void ContentView::resetLastFetchIfOwned(const WeatherFetchRequest& request) {
  if (state_.lastFetchOwnerRequestID != request.id) return;
  state_.lastFetchOwnerRequestID.reset();
  state_.lastFetch.reset();
}

void ContentView::clearLastFetchOwner(const WeatherFetchRequest& request) {
  if (state_.lastFetchOwnerRequestID == request.id) state_.lastFetchOwnerRequestID.reset();
}

void ContentView::completeImmediateRequest(const WeatherFetchRequest& request) {
  if (request.immediateProviderFetchRequestID) {
    deps_.settings.completeImmediateFetch(*request.immediateProviderFetchRequestID);
  }
}

void ContentView::publish(const std::optional<std::string>& name, const OneCallWeather& weather,
                          const std::optional<Region>& region) {
  state_.isFetchingData = false;
  state_.name = name;
  state_.currentWeather = weather;
  state_.region = region;
  changed();
}

Task<void> ContentView::performFetch(WeatherFetchRequest request) {
  std::exception_ptr failure;
  try {
    if (!isActive(request)) co_return;
    const Date now = Date::fromSystem(deps_.clock.now());
    if (!request.force && state_.lastFetch && now - *state_.lastFetch <= kMinimumFetchInterval) {
      trace(fmt::format("gate: last network fetch began {:.0f} s ago (not over 300 s): no fetch",
                        now - *state_.lastFetch));
      finishFetch(request);
      co_return;
    }
    if (!request.force) {
      const auto cached = deps_.cache.latest();
      if (cached) {
        const double distance = request.location.distance(cached->location);
        const bool fresh = deps_.cache.isFresh(cached->weather, now);
        if (fresh && distance < kCachedRecordReuseDistance) {
          trace(fmt::format("gate: fresh cached record ({:.0f} s old, {:.0f} m away): shown without a request",
                            now - cached->weather.current.dt, distance));
          publish(cached->name, cached->weather, cached->region);
          finishFetch(request);
          co_return;
        }
        trace(fmt::format("gate: cached record {} ({:.0f} s old, {:.0f} m away): fetching",
                          fresh ? "fresh but too far" : "not fresh", now - cached->weather.current.dt, distance));
      }
    }

    state_.isFetchingData = true;
    state_.lastFetch = now;
    state_.lastFetchOwnerRequestID = request.id;
    changed();

    const GeoDetails details = co_await deps_.namer.name(request.location);
    co_await throwIfCancelled();
    if (!isActive(request)) co_return;
    trace(fmt::format("fetch: {} ({}) with {}", details.name, details.region.identifier,
                      providerPathName(providerPath(request.provider, details.region))));

    OneCallWeather weather =
        co_await deps_.network.fetchOneCall(request.location, details.region, details.timeZone, request.provider, true);
    co_await throwIfCancelled();
    if (!isActive(request)) co_return;

    const Date fetched = Date::fromSystem(deps_.clock.now());
    const auto cached = deps_.cache.latest();
    const bool hasBackdrop = cached && deps_.cache.isUsableBackdrop(*cached, request.location, fetched);
    const auto placeholderDay = firstDailyDate(state_.placeholderWeather);
    const bool sameDayAsPlaceholder = placeholderDay && placeholderDay == firstDailyDate(weather);
    if (hooks_.showsPlaceholder && !hasBackdrop && !sameDayAsPlaceholder) {
      trace("first appearance: pausing 0.45 s before the record replaces the placeholder");
      state_.placeholderWeather = weather;
      changed();
      co_await deps_.clock.sleep(kFirstAppearancePause);
      co_await throwIfCancelled();
      if (!isActive(request)) co_return;
    }
    const std::optional<Region> region = details.region;
    publish(details.name, weather, region);
    trace("published the new record");

    PlacedWeather placed{details.name, request.location, region, std::move(weather)};
    try {
      co_await deps_.cache.storeLatest(std::move(placed));
    } catch (...) {
      const auto error = std::current_exception();
      rethrowIfCancellation(error);
      log("Could not write the weather cache: " + exceptionMessage(error));
    }

    completeImmediateRequest(request);
    clearLastFetchOwner(request);
    if (hooks_.fetchHappened) hooks_.fetchHappened();
    if (widgetReload_) widgetReload_.cancel();
    if (deps_.widgets && !shutDown_) {
      ++runningTasks_;
      widgetReloadPending_ = true;
      auto reloaded = [this](std::exception_ptr) { --runningTasks_; };
      widgetReload_ = spawnCancellable(main_, reloadWidgetsLater(), reloaded);
    }
    finishFetch(request);
    co_return;
  } catch (...) {
    failure = std::current_exception();
  }
  auto cancellation = co_await asio::this_coro::cancellation_state;
  const bool cancelled = cancellation.cancelled() != asio::cancellation_type::none;
  handleFetchError(request, failure, cancelled);
}

void ContentView::handleFetchError(const WeatherFetchRequest& request, std::exception_ptr error, bool cancelled) {
  if (isAPILimit(error) && !cancelled) {
    if (!isActive(request)) return;
    log(exceptionMessage(error));
    trace("provider answered 429: API-limit alert; no unforced fetch for 300 s");
    state_.hasHitAPILimit = true;
    state_.isShowingAPILimitSorryMessage = true;
    state_.isFetchingData = false;
    completeImmediateRequest(request);
    clearLastFetchOwner(request);
    changed();
    if (hooks_.fetchFailed) hooks_.fetchFailed(error);
    finishFetch(request);
    return;
  }
  if (isCancellation(error) || cancelled) {
    log("Fetch was cancelled: " + exceptionMessage(error));
    handleFetchCancelled(request);
    return;
  }
  if (!isActive(request)) return;
  log("Error fetching weather data: " + exceptionMessage(error));
  resetLastFetchIfOwned(request);
  state_.isFetchingData = false;
  completeImmediateRequest(request);
  changed();
  if (hooks_.fetchFailed) hooks_.fetchFailed(error);
  finishFetch(request);
}

Task<void> ContentView::reloadWidgetsLater() {
  co_await deps_.clock.sleep(kWidgetReloadDelay);
  if (!widgetReloadPending_) co_return;
  widgetReloadPending_ = false;
  trace("widgets: reloading all timelines");
  deps_.widgets->reloadAllTimelines();
}

void ContentView::shutdown() {
  shutDown_ = true;
  if (widgetReload_ && widgetReloadPending_) {
    // A process that ends before the delay tells the widgets now rather than never.
    widgetReload_.cancel();
    widgetReloadPending_ = false;
    trace("widgets: reloading all timelines (shutting down)");
    deps_.widgets->reloadAllTimelines();
  }
  if (state_.activeFetchRequest) handleFetchCancelled(*state_.activeFetchRequest);
  if (activeTask_) activeTask_.cancel();
}

}  // namespace ombrine
