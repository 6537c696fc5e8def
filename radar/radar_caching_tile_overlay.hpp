#pragma once
// The tile source of every animated map layer. It answers from the shared HTTP cache or the
// tile memory cache, else downloads the tile (with a tile token when the URL lies on the tile
// proxy), checks that the bytes are an image and delivers exactly one result per load.
//
// One load runs per tile key: a newer load of the same key replaces (and cancels) the older,
// which then delivers TileURLError `cancelled`. Replies outside 200 to 299 deliver TileHTTPError
// (with "Retry-After"); bytes that are no image deliver `cannotDecodeContentData`; a 401 or 403
// from the proxy invalidates the token and retries once with a fresh one.
//
// Context: thread-safe; each structure has its own lock (the registry's, the template's) and
// no two are held together, nor any across a callback or while a download is cancelled.
// Downloads run as cancellable tasks on the session's executor; completions come on any
// thread. The session's references must outlive the overlay and its downloads.

#include <boost/url/url.hpp>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "core/values/uuid.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/clock.hpp"
#include "platform/http_cache.hpp"
#include "platform/http_client.hpp"
#include "radar/caching_tile_overlay.hpp"
#include "radar/tile_data_memory_cache.hpp"
#include "radar/tile_request_pacer.hpp"
#include "radar/tile_token_manager.hpp"

namespace ombrine {

class CachingTileOverlayRenderer;

// The shared tile session: what every overlay downloads through and caches in.
struct TileSession {
  HttpClient& http;  // stores what it receives in `responseCache`
  HttpCache& responseCache;
  TileDataMemoryCache& memoryCache;
  TileTokenManager& tokens;
  boost::urls::url tileProxy;  // requests under this base URL carry the tile token
  Executor executor;           // where downloads run
  const Clock& clock;
  TileRequestPacer* pacer = nullptr;  // spaces the downloads when set
};

class RadarCachingTileOverlay : public CachingTileOverlay {
 public:
  static constexpr std::chrono::seconds kRequestTimeout{60};

  RadarCachingTileOverlay(TileSession& session, int tileSize, int minimumZ, int maximumZ,
                          CachePolicy cachePolicy = CachePolicy::useProtocolCachePolicy);
  ~RadarCachingTileOverlay() override;

  std::optional<std::string> cachedTile(const TilePath& path) override;
  void loadTile(const TilePath& path, std::optional<std::string> expectedKey, TileCompletion completion) override;
  // The tile's URL, "@", the scale ("…/3/4/2/2/1_1.png@1.0"); "invalid/z/x/y" outside the world.
  std::string tileKey(const TilePath& path) override;
  int tileSize() const override { return tileSize_; }
  int minimumZ() const override { return minimumZ_; }
  int maximumZ() const override { return maximumZ_; }

  // Cancels every running download; each delivers `cancelled`.
  void cancelAllLoads();
  // Downloads running now.
  std::size_t activeLoadCount() const;

 protected:
  // The URL of a normalised path.
  virtual std::string urlFor(const TilePath& path) = 0;

 public:
  struct Load;  // one download, shared by its task and its completion

 private:
  // Running loads by tile key; shared with the completions, which may outlive the overlay.
  struct Registry {
    struct Entry {
      Uuid id;
      SpawnedTask task;
    };
    std::mutex lock;
    std::unordered_map<std::string, Entry> entriesByKey;
  };
  static void complete(Registry& registry, TileSession& session, Load& load, std::exception_ptr failure);
  bool onProxy(const std::string& url) const;

  TileSession& session_;
  const int tileSize_;
  const int minimumZ_;
  const int maximumZ_;
  const CachePolicy cachePolicy_;
  std::shared_ptr<Registry> registry_;
};

// An overlay whose URL comes from a template with "{x}", "{y}", "{z}" and "{scale}" that the
// map coordinator changes from frame to frame.
class AnimatedTemplateTileOverlay final : public RadarCachingTileOverlay {
 public:
  AnimatedTemplateTileOverlay(TileSession& session, std::string urlTemplate, int tileSize, int minimumZ, int maximumZ);

  // A new template cancels the running loads and asks the renderer (held weakly) to redraw.
  void setTemplate(std::string urlTemplate);
  void setRenderer(std::weak_ptr<CachingTileOverlayRenderer> renderer);

 protected:
  std::string urlFor(const TilePath& path) override;

 private:
  std::mutex templateLock_;
  std::string storedTemplate_;
  std::weak_ptr<CachingTileOverlayRenderer> renderer_;
};

// A RainViewer frame: "<host><framePath>/512/<z>/<x>/<y>/" then "2/1_1.png" for the radar and
// "0/0_0.png" for any other layer. 512-point tiles.
class AnimatedRadarTileOverlay final : public RadarCachingTileOverlay {
 public:
  AnimatedRadarTileOverlay(TileSession& session, std::string host, std::string framePath, bool isRadar, int maximumZ);

 protected:
  std::string urlFor(const TilePath& path) override;

 private:
  const std::string host_;
  const std::string framePath_;
  const bool isRadar_;
};

}  // namespace ombrine
