#include "radar/radar_caching_tile_overlay.hpp"

#include <boost/url/parse.hpp>

#include <vector>

#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "radar/caching_tile_overlay_renderer.hpp"
#include "radar/tile_errors.hpp"
#include "radar/tile_image.hpp"

namespace ombrine {

namespace {

bool isSuccess(int status) { return status >= 200 && status <= 299; }

// Runs the caller's completion at most once; later deliveries are dropped without a word.
class TileResultHandler {
 public:
  explicit TileResultHandler(TileCompletion handler) : handler_(std::move(handler)) {}

  void deliver(std::optional<std::string> data, std::exception_ptr error) {
    TileCompletion handler;
    {
      std::lock_guard guard(lock_);
      if (hasDeliveredResult_) return;
      hasDeliveredResult_ = true;
      handler = std::move(handler_);
    }
    if (handler) handler(std::move(data), std::move(error));
  }
  void fail(std::exception_ptr error) { deliver(std::nullopt, std::move(error)); }
  void fail(TileURLError::Code code) { fail(std::make_exception_ptr(TileURLError(code))); }

 private:
  std::mutex lock_;
  bool hasDeliveredResult_ = false;
  TileCompletion handler_;
};

// The image check: a 2xx HTTP reply whose bytes decode to an image (decoded, then dropped).
bool passesImageCheck(const HttpResponse& response) {
  return isSuccess(response.status) && decodeTileImage(response.body) != nullptr;
}

std::string replaceAll(std::string text, std::string_view from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

}  // namespace

struct RadarCachingTileOverlay::Load {
  std::string key;
  std::string url;
  Uuid id;
  std::shared_ptr<TileResultHandler> handler;
  std::optional<HttpResponse> response;
};

namespace {

Task<void> download(TileSession& session, std::shared_ptr<RadarCachingTileOverlay::Load> load, bool proxy,
                    CachePolicy policy);

}  // namespace

RadarCachingTileOverlay::RadarCachingTileOverlay(TileSession& session, int tileSize, int minimumZ, int maximumZ,
                                                 CachePolicy cachePolicy)
    : session_(session),
      tileSize_(tileSize),
      minimumZ_(minimumZ),
      maximumZ_(maximumZ),
      cachePolicy_(cachePolicy),
      registry_(std::make_shared<Registry>()) {}

RadarCachingTileOverlay::~RadarCachingTileOverlay() { cancelAllLoads(); }

std::string RadarCachingTileOverlay::tileKey(const TilePath& path) {
  const auto normal = normalizedTilePath(path);
  if (!normal) return invalidTileKey(path);
  return urlFor(*normal) + "@" + scaleText(path.contentScaleFactor);
}

std::optional<std::string> RadarCachingTileOverlay::cachedTile(const TilePath& path) {
  const auto normal = normalizedTilePath(path);
  if (!normal) return std::nullopt;
  const std::string url = urlFor(*normal);
  if (auto stored = session_.responseCache.cachedResponse(url); stored && isSuccess(stored->response.status)) {
    return std::move(stored->response.body);
  }
  return session_.memoryCache.data(url);
}

bool RadarCachingTileOverlay::onProxy(const std::string& url) const {
  std::string base(session_.tileProxy.buffer());
  while (!base.empty() && base.back() == '/') base.pop_back();
  return !base.empty() && url.starts_with(base) && (url.size() == base.size() || url[base.size()] == '/');
}

void RadarCachingTileOverlay::loadTile(const TilePath& path, std::optional<std::string> expectedKey,
                                       TileCompletion completion) {
  auto handler = std::make_shared<TileResultHandler>(std::move(completion));
  const auto normal = normalizedTilePath(path);
  if (!normal) return handler->fail(TileURLError::badURL);
  const std::string url = urlFor(*normal);
  const std::string key = url + "@" + scaleText(path.contentScaleFactor);
  if (expectedKey && *expectedKey != key) return handler->fail(TileURLError::cancelled);
  if (!boost::urls::parse_uri(url)) return handler->fail(TileURLError::badURL);

  if (auto stored = session_.responseCache.cachedResponse(url)) {
    if (passesImageCheck(stored->response)) return handler->deliver(std::move(stored->response.body), nullptr);
    session_.responseCache.removeCachedResponse(url);
  }
  if (auto bytes = session_.memoryCache.data(url)) return handler->deliver(std::move(bytes), nullptr);

  auto load = std::make_shared<Load>(Load{key, url, Uuid::random(), handler, std::nullopt});
  SpawnedTask replaced;
  {
    std::lock_guard guard(registry_->lock);
    auto& entry = registry_->entriesByKey[key];
    replaced = std::move(entry.task);
    entry = Registry::Entry{load->id, SpawnedTask{}};
  }
  if (replaced) replaced.cancel();

  const SpawnedTask task = SpawnedTask::prepare(session_.executor);
  bool stillOurs = false;
  {
    std::lock_guard guard(registry_->lock);
    const auto found = registry_->entriesByKey.find(key);
    stillOurs = found != registry_->entriesByKey.end() && found->second.id == load->id;
    if (stillOurs) found->second.task = task;
  }
  if (!stillOurs) task.cancel();
  auto downloading = download(session_, load, onProxy(url), cachePolicy_);
  auto finished = [registry = registry_, &session = session_, load](std::exception_ptr failure) {
    complete(*registry, session, *load, std::move(failure));
  };
  task.start(std::move(downloading), std::move(finished));
}

void RadarCachingTileOverlay::complete(Registry& registry, TileSession& session, Load& load,
                                       std::exception_ptr failure) {
  bool mine = false;
  {
    std::lock_guard guard(registry.lock);
    const auto found = registry.entriesByKey.find(load.key);
    mine = found != registry.entriesByKey.end() && found->second.id == load.id;
    if (mine) registry.entriesByKey.erase(found);
  }
  if (!mine) return load.handler->fail(TileURLError::cancelled);
  if (failure) {
    if (isTileLoadCancellation(failure)) return load.handler->fail(TileURLError::cancelled);
    return load.handler->fail(std::move(failure));
  }
  HttpResponse& response = *load.response;
  if (!isSuccess(response.status)) {
    session.responseCache.removeCachedResponse(load.url);
    const Date now = Date::fromSystem(session.clock.now());
    return load.handler->fail(
        std::make_exception_ptr(TileHTTPError(response.status, parseRetryAfter(response.header("Retry-After"), now))));
  }
  if (!passesImageCheck(response)) {
    session.responseCache.removeCachedResponse(load.url);
    return load.handler->fail(TileURLError::cannotDecodeContentData);
  }
  if (auto stored = session.responseCache.cachedResponse(load.url); stored && isSuccess(stored->response.status)) {
    return load.handler->deliver(std::move(stored->response.body), nullptr);
  }
  std::string bytes = response.body;
  if (!session.memoryCache.insert(load.url, std::move(response.body))) {
    return load.handler->fail(TileURLError::dataLengthExceedsMaximum);
  }
  load.handler->deliver(std::move(bytes), nullptr);
}

void RadarCachingTileOverlay::cancelAllLoads() {
  std::unordered_map<std::string, Registry::Entry> entries;
  {
    std::lock_guard guard(registry_->lock);
    entries.swap(registry_->entriesByKey);
  }
  for (auto& [key, entry] : entries) {
    if (entry.task) entry.task.cancel();
  }
}

std::size_t RadarCachingTileOverlay::activeLoadCount() const {
  std::lock_guard guard(registry_->lock);
  return registry_->entriesByKey.size();
}

namespace {

Task<HttpResponse> sendPaced(TileSession& session, const HttpRequest& request) {
  if (session.pacer) co_await session.pacer->wait();
  auto sending = session.http.send(request);
  co_return co_await std::move(sending);
}

Task<void> download(TileSession& session, std::shared_ptr<RadarCachingTileOverlay::Load> load, bool proxy,
                    CachePolicy policy) {
  HttpRequest request;
  request.url = boost::urls::url(load->url);
  request.timeout = RadarCachingTileOverlay::kRequestTimeout;
  request.cachePolicy = policy;
  if (!proxy) {
    auto sending = sendPaced(session, request);
    load->response = co_await std::move(sending);
    co_return;
  }
  auto obtaining = session.tokens.token();
  std::string token = co_await std::move(obtaining);
  request.headers.push_back({TileTokenManager::kTokenHeader, token});
  auto sending = sendPaced(session, request);
  HttpResponse response = co_await std::move(sending);
  if (response.status == 401 || response.status == 403) {
    logDetail("tile proxy refused the token ({}); retrying once with a fresh one", response.status);
    session.responseCache.removeCachedResponse(load->url);
    auto invalidating = session.tokens.invalidateToken();
    co_await std::move(invalidating);
    auto renewing = session.tokens.token();
    request.headers.back().value = co_await std::move(renewing);
    auto resending = sendPaced(session, request);
    response = co_await std::move(resending);
  }
  load->response = std::move(response);
}

}  // namespace

AnimatedTemplateTileOverlay::AnimatedTemplateTileOverlay(TileSession& session, std::string urlTemplate, int tileSize,
                                                         int minimumZ, int maximumZ)
    : RadarCachingTileOverlay(session, tileSize, minimumZ, maximumZ), storedTemplate_(std::move(urlTemplate)) {}

void AnimatedTemplateTileOverlay::setTemplate(std::string urlTemplate) {
  std::shared_ptr<CachingTileOverlayRenderer> renderer;
  {
    std::lock_guard guard(templateLock_);
    if (urlTemplate == storedTemplate_) return;
  }
  cancelAllLoads();
  {
    std::lock_guard guard(templateLock_);
    storedTemplate_ = std::move(urlTemplate);
    renderer = renderer_.lock();
  }
  if (renderer) renderer->setNeedsDisplay();
}

void AnimatedTemplateTileOverlay::setRenderer(std::weak_ptr<CachingTileOverlayRenderer> renderer) {
  std::lock_guard guard(templateLock_);
  renderer_ = std::move(renderer);
}

std::string AnimatedTemplateTileOverlay::urlFor(const TilePath& path) {
  std::string text;
  {
    std::lock_guard guard(templateLock_);
    text = storedTemplate_;
  }
  text = replaceAll(std::move(text), "{x}", std::to_string(path.x));
  text = replaceAll(std::move(text), "{y}", std::to_string(path.y));
  text = replaceAll(std::move(text), "{z}", std::to_string(path.z));
  return replaceAll(std::move(text), "{scale}", scaleText(path.contentScaleFactor));
}

AnimatedRadarTileOverlay::AnimatedRadarTileOverlay(TileSession& session, std::string host, std::string framePath,
                                                   bool isRadar, int maximumZ)
    : RadarCachingTileOverlay(session, 512, 0, maximumZ),
      host_(std::move(host)),
      framePath_(std::move(framePath)),
      isRadar_(isRadar) {}

std::string AnimatedRadarTileOverlay::urlFor(const TilePath& path) {
  return host_ + framePath_ + "/512/" + std::to_string(path.z) + "/" + std::to_string(path.x) + "/" +
         std::to_string(path.y) + "/" + (isRadar_ ? "2/1_1.png" : "0/0_0.png");
}

}  // namespace ombrine
