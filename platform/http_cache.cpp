#include "platform/http_cache.hpp"

#include <sqlite3.h>

#include <chrono>
#include <thread>

#include <list>
#include <mutex>
#include <unordered_map>

#include "platform/log.hpp"
#include "platform/paths.hpp"
#include "platform/thread_annotations.hpp"

namespace ombrine {

namespace {

// Headers are stored one per line as "name: value"; values never hold CR or LF.
std::string encodeHeaders(const HttpHeaders& headers) {
  std::string text;
  for (const auto& header : headers) {
    text += header.name;
    text += ": ";
    text += header.value;
    text += '\n';
  }
  return text;
}

HttpHeaders decodeHeaders(std::string_view text) {
  HttpHeaders headers;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos) continue;
    headers.push_back({std::string(line.substr(0, colon)), std::string(line.substr(colon + 2))});
  }
  return headers;
}

}  // namespace

std::size_t cachedCost(const std::string& url, const CachedResponse& cached) {
  std::size_t cost = url.size() + cached.response.body.size();
  for (const auto& header : cached.response.headers) cost += header.name.size() + header.value.size() + 4;
  return cost;
}

class HttpCache::Memory {
 public:
  explicit Memory(std::size_t capacity) : capacity_(capacity) {}

  std::optional<CachedResponse> find(const std::string& url) {
    MutexLock lock(mutex_);
    const auto found = index_.find(url);
    if (found == index_.end()) return std::nullopt;
    order_.splice(order_.begin(), order_, found->second);
    return found->second->cached;
  }

  void put(const std::string& url, const CachedResponse& cached, std::size_t cost) {
    MutexLock lock(mutex_);
    eraseLocked(url);
    order_.push_front(Entry{url, cached, cost});
    index_[url] = order_.begin();
    usage_ += cost;
    while (usage_ > capacity_ && !order_.empty()) eraseLocked(order_.back().url);
  }

  void erase(const std::string& url) {
    MutexLock lock(mutex_);
    eraseLocked(url);
  }

  void clear() {
    MutexLock lock(mutex_);
    order_.clear();
    index_.clear();
    usage_ = 0;
  }

  std::size_t usage() const {
    MutexLock lock(mutex_);
    return usage_;
  }

 private:
  struct Entry {
    std::string url;
    CachedResponse cached;
    std::size_t cost;
  };

  void eraseLocked(const std::string& url) REQUIRES(mutex_) {
    const auto found = index_.find(url);
    if (found == index_.end()) return;
    usage_ -= found->second->cost;
    order_.erase(found->second);
    index_.erase(found);
  }

  mutable Mutex mutex_;
  std::size_t capacity_;
  std::size_t usage_ GUARDED_BY(mutex_) = 0;
  std::list<Entry> order_ GUARDED_BY(mutex_);  // most recently used first
  std::unordered_map<std::string, std::list<Entry>::iterator> index_ GUARDED_BY(mutex_);
};

class HttpCache::Disk {
 public:
  Disk(const std::filesystem::path& directory, std::size_t capacity) : capacity_(capacity) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    const std::string file = (directory / "Cache.db").string();
    if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
      logf("HTTP cache: cannot open {}: {}", file, db_ ? sqlite3_errmsg(db_) : "out of memory");
      close();
      return;
    }
    sqlite3_busy_timeout(db_, 5000);
    if (!switchToWriteAheadLog() || !execute("PRAGMA synchronous=NORMAL") ||
        !execute("CREATE TABLE IF NOT EXISTS responses(url TEXT PRIMARY KEY, status INTEGER NOT NULL, "
                 "headers TEXT NOT NULL, body BLOB NOT NULL, response_time REAL NOT NULL, "
                 "last_access REAL NOT NULL, cost INTEGER NOT NULL)") ||
        !execute("CREATE INDEX IF NOT EXISTS responses_by_access ON responses(last_access)")) {
      close();
    }
  }

  ~Disk() { close(); }

  std::optional<CachedResponse> find(const std::string& url) {
    MutexLock lock(mutex_);
    if (!db_) return std::nullopt;
    Statement select(db_, "SELECT status, headers, body, response_time FROM responses WHERE url = ?1");
    if (!select) return fail("read");
    sqlite3_bind_text(select.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
    const int step = sqlite3_step(select.get());
    if (step == SQLITE_DONE) return std::nullopt;
    if (step != SQLITE_ROW) return fail("read");
    CachedResponse cached;
    cached.response.status = sqlite3_column_int(select.get(), 0);
    cached.response.headers = decodeHeaders(text(select.get(), 1));
    cached.response.body = text(select.get(), 2);
    cached.responseTime = sqlite3_column_double(select.get(), 3);
    Statement touch(db_, "UPDATE responses SET last_access = ?2 WHERE url = ?1");
    if (touch) {
      sqlite3_bind_text(touch.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
      sqlite3_bind_double(touch.get(), 2, nextAccess());
      sqlite3_step(touch.get());  // a lost touch only makes eviction order slightly older
    }
    return cached;
  }

  void put(const std::string& url, const CachedResponse& cached, std::size_t cost) {
    MutexLock lock(mutex_);
    if (!db_ || !execute("BEGIN IMMEDIATE")) return;
    Statement insert(db_,
                     "INSERT OR REPLACE INTO responses(url, status, headers, body, response_time, last_access, cost) "
                     "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    const std::string headers = encodeHeaders(cached.response.headers);
    bool ok = static_cast<bool>(insert);
    if (ok) {
      sqlite3_bind_text(insert.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
      sqlite3_bind_int(insert.get(), 2, cached.response.status);
      sqlite3_bind_text(insert.get(), 3, headers.data(), static_cast<int>(headers.size()), SQLITE_TRANSIENT);
      sqlite3_bind_blob(insert.get(), 4, cached.response.body.data(), static_cast<int>(cached.response.body.size()),
                        SQLITE_TRANSIENT);
      sqlite3_bind_double(insert.get(), 5, cached.responseTime);
      sqlite3_bind_double(insert.get(), 6, nextAccess());
      sqlite3_bind_int64(insert.get(), 7, static_cast<sqlite3_int64>(cost));
      ok = sqlite3_step(insert.get()) == SQLITE_DONE;
    }
    ok = ok && evictLocked();
    if (!ok) {
      fail("write");
      execute("ROLLBACK");
      return;
    }
    if (!execute("COMMIT")) execute("ROLLBACK");
  }

  void erase(const std::string& url) {
    MutexLock lock(mutex_);
    if (!db_) return;
    Statement remove(db_, "DELETE FROM responses WHERE url = ?1");
    if (!remove) return;
    sqlite3_bind_text(remove.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(remove.get()) != SQLITE_DONE) fail("remove");
  }

  void clear() {
    MutexLock lock(mutex_);
    if (db_) execute("DELETE FROM responses");
  }

  std::size_t usage() const {
    MutexLock lock(mutex_);
    return db_ ? usageLocked() : 0;
  }

 private:
  // A prepared statement, finalised when it goes.
  class Statement {
   public:
    Statement(sqlite3* db, const char* sql) { sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr); }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    sqlite3_stmt* get() const { return statement_; }
    explicit operator bool() const { return statement_ != nullptr; }

   private:
    sqlite3_stmt* statement_ = nullptr;
  };

  static std::string text(sqlite3_stmt* statement, int column) {
    const void* bytes = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return bytes ? std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(size)) : std::string();
  }

  // Access order across processes: wall time, made strictly increasing within this process.
  double nextAccess() REQUIRES(mutex_) {
    const double now = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    lastAccess_ = std::max(now, lastAccess_ + 1e-6);
    return lastAccess_;
  }

  std::size_t usageLocked() const REQUIRES(mutex_) {
    Statement total(db_, "SELECT total(cost) FROM responses");
    if (!total || sqlite3_step(total.get()) != SQLITE_ROW) return 0;
    return static_cast<std::size_t>(sqlite3_column_double(total.get(), 0));
  }

  // Within the open write transaction: drops the least recently used replies beyond capacity.
  bool evictLocked() REQUIRES(mutex_) {
    std::size_t usage = usageLocked();
    while (usage > capacity_) {
      Statement oldest(db_, "SELECT url, cost FROM responses ORDER BY last_access ASC LIMIT 1");
      if (!oldest || sqlite3_step(oldest.get()) != SQLITE_ROW) return false;
      const std::string url = text(oldest.get(), 0);
      const auto cost = static_cast<std::size_t>(sqlite3_column_int64(oldest.get(), 1));
      Statement remove(db_, "DELETE FROM responses WHERE url = ?1");
      if (!remove) return false;
      sqlite3_bind_text(remove.get(), 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
      if (sqlite3_step(remove.get()) != SQLITE_DONE) return false;
      usage -= std::min(usage, cost);
    }
    return true;
  }

  // Two processes opening a new database at once both ask for the write-ahead log; SQLite may
  // answer one of them "database is locked" at once, without waiting through the busy timeout,
  // when waiting could deadlock. The mode is stored in the file, so asking again after the other
  // process is through succeeds (or finds it already set). Gives up after the busy timeout.
  bool switchToWriteAheadLog() REQUIRES(mutex_) {
    static constexpr char kSql[] = "PRAGMA journal_mode=WAL";
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (;;) {
      if (sqlite3_exec(db_, kSql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
      const int code = sqlite3_errcode(db_) & 0xff;
      if ((code != SQLITE_BUSY && code != SQLITE_LOCKED) || std::chrono::steady_clock::now() > giveUp) {
        fail(kSql);
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  bool execute(const char* sql) REQUIRES(mutex_) {
    char* message = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
    logf("HTTP cache: {} failed: {}", sql, message ? message : "unknown error");
    sqlite3_free(message);
    return false;
  }

  std::nullopt_t fail(const char* what) REQUIRES(mutex_) {
    logf("HTTP cache: {} failed: {}", what, sqlite3_errmsg(db_));
    return std::nullopt;
  }

  void close() REQUIRES(mutex_) {
    if (db_) sqlite3_close_v2(db_);
    db_ = nullptr;
  }

  mutable Mutex mutex_;
  sqlite3* db_ GUARDED_BY(mutex_) = nullptr;
  std::size_t capacity_;
  double lastAccess_ GUARDED_BY(mutex_) = 0.0;
};

HttpCache::HttpCache(std::filesystem::path directory, std::size_t memoryCapacity, std::size_t diskCapacity)
    : memory_(std::make_unique<Memory>(memoryCapacity)),
      disk_(std::make_unique<Disk>(directory, diskCapacity)),
      memoryEntryLimit_(memoryCapacity / 20),
      diskEntryLimit_(diskCapacity / 20) {}

HttpCache::~HttpCache() = default;

std::filesystem::path HttpCache::defaultDirectory() { return cachesDirectory() / "URLCache"; }

std::optional<CachedResponse> HttpCache::cachedResponse(const std::string& url) {
  if (auto hit = memory_->find(url)) return hit;
  auto stored = disk_->find(url);
  if (!stored) return std::nullopt;
  stored->response.effectiveUrl = boost::urls::url(url);
  if (const std::size_t cost = cachedCost(url, *stored); cost <= memoryEntryLimit_) memory_->put(url, *stored, cost);
  return stored;
}

void HttpCache::storeCachedResponse(const std::string& url, const CachedResponse& cached) {
  const std::size_t cost = cachedCost(url, cached);
  if (cost <= memoryEntryLimit_) {
    memory_->put(url, cached, cost);
  } else {
    memory_->erase(url);
  }
  if (cost <= diskEntryLimit_) {
    disk_->put(url, cached, cost);
  } else {
    disk_->erase(url);
  }
}

void HttpCache::removeCachedResponse(const std::string& url) {
  memory_->erase(url);
  disk_->erase(url);
}

void HttpCache::removeAllCachedResponses() {
  memory_->clear();
  disk_->clear();
}

std::size_t HttpCache::currentMemoryUsage() const { return memory_->usage(); }

std::size_t HttpCache::currentDiskUsage() const { return disk_->usage(); }

void HttpCache::purgeMemory() { memory_->clear(); }

}  // namespace ombrine
