#include "persistence/trip_cache_store.hpp"

#include <boost/json.hpp>

#include <algorithm>
#include <exception>
#include <unordered_map>

#include "core/values/location_json.hpp"
#include "core/values/value_json.hpp"
#include "persistence/coordinated_value_cache.hpp"
#include "platform/async/coroutines.hpp"
#include "platform/atomic_file.hpp"

namespace ombrine {

// -- Stamps and merges -----------------------------------------------------------------------

TripCacheOperationOrder TripCacheOperationOrder::begin(Date now) { return {now, Uuid::random()}; }

TripCacheOperationOrder TripCacheOperationOrder::legacy() { return {Date::distantPast(), Uuid{}}; }

namespace {

bool near(const Location& a, const Location& b) { return a.distance(b) < kTripCacheRadius; }

int providerRank(const std::optional<WeatherDataSource>& provider) {
  if (!provider) return -1;
  switch (*provider) {
    case WeatherDataSource::dynamic: return 0;
    case WeatherDataSource::apple: return 1;
    case WeatherDataSource::ow: return 2;
    case WeatherDataSource::foreca: return 3;
  }
  return 4;
}

}  // namespace

std::optional<TripCacheOperationOrder> laterOrder(const std::optional<TripCacheOperationOrder>& a,
                                                  const std::optional<TripCacheOperationOrder>& b) {
  if (!a) return b;
  if (!b) return a;
  return *b < *a ? a : b;
}

TripCacheEntry mergedEntry(const TripCacheEntry& a, const TripCacheEntry& b) {
  const bool aIsNewer = b.operationOrder < a.operationOrder;
  if (!near(a.requestedLocation, b.requestedLocation)) return aIsNewer ? a : b;
  const TripCacheEntry& newer = aIsNewer ? a : b;
  const TripCacheEntry& older = aIsNewer ? b : a;

  // The freshest observation beats the newest operation, as long as both observe one spot.
  const TripCacheEntry* winner = &newer;
  bool tie = false;
  if (near(a.cachedWeather.location, b.cachedWeather.location)) {
    const Date aTime = a.cachedWeather.weather.current.dt;
    const Date bTime = b.cachedWeather.weather.current.dt;
    if (bTime > aTime) {
      winner = &b;
    } else if (aTime > bTime) {
      winner = &a;
    } else {
      tie = true;
    }
  }

  TripCacheEntry merged;
  merged.cachedWeather.name = newer.cachedWeather.name;
  merged.cachedWeather.location = winner->cachedWeather.location;
  merged.cachedWeather.region = newer.cachedWeather.region ? newer.cachedWeather.region : older.cachedWeather.region;
  merged.cachedWeather.weather = winner->cachedWeather.weather;
  if (tie && !merged.cachedWeather.weather.tideData) {
    merged.cachedWeather.weather.tideData = older.cachedWeather.weather.tideData;
  }
  merged.requestedLocation = newer.requestedLocation;
  merged.requestedProvider = newer.requestedProvider;
  merged.operationOrder = aIsNewer ? a.operationOrder : b.operationOrder;
  return merged;
}

TripCacheRecord mergedRecord(const std::optional<TripCacheRecord>& existing, const TripCacheRecord& incoming) {
  std::vector<TripCacheEntry> entries = existing ? existing->entries : std::vector<TripCacheEntry>{};
  const std::optional<TripCacheOperationOrder> removal =
      laterOrder(existing ? existing->removalOrder : std::nullopt, incoming.removalOrder);
  auto diesBy = [](const TripCacheOperationOrder& stamp, const TripCacheOperationOrder& removal) {
    return !(removal < stamp);
  };
  if (removal) {
    std::erase_if(entries, [&](const TripCacheEntry& entry) { return diesBy(entry.operationOrder, *removal); });
  }

  std::vector<TripCacheEntry> arriving = incoming.entries;
  std::stable_sort(arriving.begin(), arriving.end(), [](const TripCacheEntry& x, const TripCacheEntry& y) {
    return x.operationOrder < y.operationOrder;
  });
  for (const TripCacheEntry& entry : arriving) {
    if (removal && diesBy(entry.operationOrder, *removal)) continue;
    if (!entries.empty()) {
      auto last = entries.begin();
      for (auto it = entries.begin(); it != entries.end(); ++it) {
        if (last->operationOrder < it->operationOrder) last = it;
      }
      if (!near(last->requestedLocation, entry.requestedLocation)) {
        // An old fetch for a place the trip has left is dropped; a newer one means the trip has
        // moved, and everything for the old place goes.
        if (entry.operationOrder < last->operationOrder) continue;
        std::erase_if(entries, [&](const TripCacheEntry& other) {
          return !near(other.requestedLocation, entry.requestedLocation);
        });
      }
    }
    if (entry.requestedProvider) {
      std::erase_if(entries, [&](const TripCacheEntry& other) {
        return !other.requestedProvider && !(entry.operationOrder < other.operationOrder);
      });
    }
    auto found = std::find_if(entries.begin(), entries.end(), [&](const TripCacheEntry& other) {
      return other.requestedProvider == entry.requestedProvider;
    });
    if (found != entries.end()) {
      *found = mergedEntry(*found, entry);
    } else {
      entries.push_back(entry);
    }
  }
  std::stable_sort(entries.begin(), entries.end(), [](const TripCacheEntry& x, const TripCacheEntry& y) {
    const int xRank = providerRank(x.requestedProvider);
    const int yRank = providerRank(y.requestedProvider);
    if (xRank != yRank) return xRank < yRank;
    return x.operationOrder < y.operationOrder;
  });
  return TripCacheRecord{std::move(entries), removal};
}

// -- JSON ------------------------------------------------------------------------------------

namespace {

constexpr std::string_view kProviderNames[] = {"dynamic", "apple", "foreca", "ow"};

std::string_view providerName(WeatherDataSource provider) { return kProviderNames[static_cast<int>(provider)]; }

WeatherDataSource decodeProvider(const boost::json::value& value, const JsonPath& path) {
  const std::string_view name = jsonString(value, path);
  for (int i = 0; i < 4; ++i) {
    if (kProviderNames[i] == name) return static_cast<WeatherDataSource>(i);
  }
  path.fail("unknown provider \"" + std::string(name) + "\"");
}

Uuid decodeUuid(const boost::json::value& value, const JsonPath& path) {
  const auto id = Uuid::parse(jsonString(value, path));
  if (!id) path.fail("not a UUID");
  return *id;
}

const boost::json::value& member(JsonObjectReader& reader, const JsonPath& path, std::string_view key) {
  const boost::json::value* value = reader.find(key);
  if (value == nullptr) path.fail("missing key");
  return *value;
}

void writeOrder(JsonWriter& writer, const TripCacheOperationOrder& order) {
  writer.beginObject();
  writer.key("startedAt");
  // Always a JSON double ("2.0", never "2"), the form stamps have had on disk from the start.
  writer.value(boost::json::value(order.startedAt.timeIntervalSinceReferenceDate));
  writer.key("tieBreaker");
  writer.string(order.tieBreaker.text());
  writer.endObject();
}

TripCacheOperationOrder decodeOrder(const boost::json::value& value, const JsonPath& path) {
  JsonObjectReader reader(value, path);
  TripCacheOperationOrder order;
  reader.read("startedAt", order.startedAt);
  const JsonPath tiePath = path.key("tieBreaker");
  order.tieBreaker = decodeUuid(member(reader, tiePath, "tieBreaker"), tiePath);
  return order;
}

void writeEntry(JsonWriter& writer, const TripCacheEntry& entry, Date encodingMoment) {
  writer.beginObject();
  writer.key("cachedWeather");
  writeCachedWeather(writer, entry.cachedWeather, encodingMoment);
  writer.key("requestedLocation");
  writeJson(writer, entry.requestedLocation);
  if (entry.requestedProvider) {
    writer.key("requestedProvider");
    writer.string(providerName(*entry.requestedProvider));
  }
  writer.key("operationOrder");
  writeOrder(writer, entry.operationOrder);
  writer.endObject();
}

TripCacheEntry decodeEntry(const boost::json::value& value, const JsonPath& path) {
  JsonObjectReader reader(value, path);
  TripCacheEntry entry;
  const JsonPath weatherPath = path.key("cachedWeather");
  entry.cachedWeather = decodeCachedWeather(member(reader, weatherPath, "cachedWeather"), weatherPath);
  if (const boost::json::value* location = reader.find("requestedLocation")) {
    decodeJson(*location, path.key("requestedLocation"), entry.requestedLocation);
  } else {
    entry.requestedLocation = entry.cachedWeather.location;
  }
  if (const boost::json::value* provider = reader.find("requestedProvider"); provider && !provider->is_null()) {
    const JsonPath providerPath = path.key("requestedProvider");
    entry.requestedProvider = decodeProvider(*provider, providerPath);
  }
  const JsonPath orderPath = path.key("operationOrder");
  entry.operationOrder = decodeOrder(member(reader, orderPath, "operationOrder"), orderPath);
  return entry;
}

void writeRecord(JsonWriter& writer, const TripCacheRecord& record, Date encodingMoment) {
  writer.beginObject();
  writer.key("version");
  writer.integer(1);
  writer.key("entries");
  writer.beginArray();
  for (const TripCacheEntry& entry : record.entries) writeEntry(writer, entry, encodingMoment);
  writer.endArray();
  if (record.removalOrder) {
    writer.key("removalOrder");
    writeOrder(writer, *record.removalOrder);
  }
  writer.endObject();
}

TripCacheRecord decodeRecord(const boost::json::value& value, const JsonPath& path) {
  JsonObjectReader reader(value, path);
  const boost::json::value* entries = reader.find("entries");
  if (entries == nullptr) {
    // The oldest format: the whole object is the weather of the one place.
    TripCacheEntry entry;
    entry.cachedWeather = decodeCachedWeather(value, path);
    entry.requestedLocation = entry.cachedWeather.location;
    entry.operationOrder = TripCacheOperationOrder::legacy();
    return TripCacheRecord{{std::move(entry)}, std::nullopt};
  }
  if (const boost::json::value* version = reader.find("version"); version && !version->is_null()) {
    const JsonPath versionPath = path.key("version");
    const std::int64_t number = jsonInteger(*version, versionPath);
    if (number != 1) versionPath.fail("Unsupported trip cache record version " + std::to_string(number));
  }
  TripCacheRecord record;
  const JsonPath entriesPath = path.key("entries");
  const boost::json::array& array = jsonArray(*entries, entriesPath);
  record.entries.reserve(array.size());
  for (std::size_t i = 0; i < array.size(); ++i) {
    const JsonPath entryPath = entriesPath.index(i);
    record.entries.push_back(decodeEntry(array[i], entryPath));
  }
  if (const boost::json::value* removal = reader.find("removalOrder"); removal && !removal->is_null()) {
    const JsonPath removalPath = path.key("removalOrder");
    record.removalOrder = decodeOrder(*removal, removalPath);
  }
  return record;
}

}  // namespace

std::string encodeTripCacheRecord(const TripCacheRecord& record, Date encodingMoment) {
  std::string out;
  JsonWriter writer(out);
  writeRecord(writer, record, encodingMoment);
  return out;
}

TripCacheRecord decodeTripCacheRecord(std::string_view json) {
  boost::json::monotonic_resource arena;  // the document dies here; the record copies what it keeps
  const boost::json::value document = parseJson(json, &arena);
  const JsonPath root;
  return decodeRecord(document, root);
}

std::string encodeLegacyTripCache(const std::vector<std::pair<Uuid, TripCacheRecord>>& records, Date encodingMoment) {
  std::string out;
  JsonWriter writer(out);
  writer.beginArray();
  for (const auto& [id, record] : records) {
    writer.string(id.text());
    writeRecord(writer, record, encodingMoment);
  }
  writer.endArray();
  return out;
}

std::vector<std::pair<Uuid, TripCacheRecord>> decodeLegacyTripCache(std::string_view json) {
  boost::json::monotonic_resource arena;
  const boost::json::value document = parseJson(json, &arena);
  const JsonPath root;
  const boost::json::array& array = jsonArray(document, root);
  if (array.size() % 2 != 0) root.fail("a key without a value");
  std::vector<std::pair<Uuid, TripCacheRecord>> records;
  for (std::size_t i = 0; i < array.size(); i += 2) {
    const JsonPath keyPath = root.index(i);
    const JsonPath valuePath = root.index(i + 1);
    Uuid id = decodeUuid(array[i], keyPath);
    TripCacheRecord record = decodeRecord(array[i + 1], valuePath);
    auto same = std::find_if(records.begin(), records.end(), [&](const auto& pair) { return pair.first == id; });
    if (same != records.end()) {
      same->second = std::move(record);
    } else {
      records.emplace_back(id, std::move(record));
    }
  }
  return records;
}

// -- The store -------------------------------------------------------------------------------

namespace detail {

// The trip state of one process. Every member below `mutex` is guarded by it; file reads of
// `refreshRecord` happen under it, file commits never do.
class TripCacheCore : public std::enable_shared_from_this<TripCacheCore> {
 public:
  explicit TripCacheCore(TripCacheContext context) : context_(std::move(context)) {
    directory_ = context_.cacheDirectory / std::string(WeatherCache::tripCacheDirectoryName);
    legacyFile_ = context_.cacheDirectory / std::string(WeatherCache::legacyTripCacheKey);
    try {
      if (auto bytes = readFileIfExists(legacyFile_)) {
        for (auto& [id, record] : decodeLegacyTripCache(*bytes)) {
          legacyTripCache_[id] = record;
          tripCache_[id] = std::move(record);
        }
      }
    } catch (const std::exception&) {
      legacyTripCache_.clear();
      tripCache_.clear();
    }
  }

  std::filesystem::path recordFile(const Uuid& id) const { return directory_ / (id.text() + ".json"); }

  Date now() const { return Date::fromSystem(context_.clock->now()); }

  std::optional<TripCacheEntry> cachedWeather(const Uuid& id, const Location& location, bool includeFallback,
                                              std::optional<WeatherDataSource> provider) {
    // The record is read in place under the lock; only the chosen entry is copied out.
    std::lock_guard guard(*context_.mutex);
    const TripCacheRecord* record = refreshRecord(id);
    std::optional<TripCacheRecord> merged;
    if (includeFallback) {
      if (auto fallback = tripPresentationFallbacks_.find(id); fallback != tripPresentationFallbacks_.end()) {
        merged = mergedRecord(optionalOf(record), fallback->second);
        if (record != nullptr && *record == *merged) tripPresentationFallbacks_.erase(fallback);
        record = &*merged;
      }
    }
    if (record == nullptr) return std::nullopt;
    const TripCacheEntry* best = nullptr;
    for (const TripCacheEntry& entry : record->entries) {
      if (!near(entry.requestedLocation, location) || !near(entry.cachedWeather.location, location)) continue;
      if (provider && entry.requestedProvider != provider) continue;
      if (best == nullptr) {
        best = &entry;
        continue;
      }
      const Date bestTime = best->cachedWeather.weather.current.dt;
      const Date time = entry.cachedWeather.weather.current.dt;
      if (time > bestTime || (time == bestTime && best->operationOrder < entry.operationOrder)) best = &entry;
    }
    if (best == nullptr) return std::nullopt;
    return *best;
  }

  struct PendingTripCacheStore {
    Uuid cacheID;
    TripCacheRecord record;
    Uuid mutation;
  };

  Task<void> store(std::vector<TripCacheWrite> writes) {
    co_await throwIfCancelled();
    if (writes.empty()) co_return;
    std::vector<std::pair<Uuid, TripCacheRecord>> incoming;
    for (const TripCacheWrite& write : writes) {
      TripCacheEntry entry{write.cachedWeather, write.cachedWeather.location, write.requestedProvider,
                           write.operationOrder};
      TripCacheRecord single{{std::move(entry)}, std::nullopt};
      auto same =
          std::find_if(incoming.begin(), incoming.end(), [&](const auto& pair) { return pair.first == write.cacheID; });
      if (same == incoming.end()) {
        incoming.emplace_back(write.cacheID, std::move(single));
      } else {
        same->second = mergedRecord(same->second, single);
      }
    }
    std::vector<PendingTripCacheStore> pending;
    bool changed = false;
    {
      std::lock_guard guard(*context_.mutex);
      const Date stamp = now();
      for (const auto& [id, record] : incoming) {
        TripCacheRecord merged = mergedRecord(optionalOf(refreshRecord(id)), record);
        const Uuid mutation = Uuid::random();
        pending.push_back(PendingTripCacheStore{id, record, mutation});
        pendingTripCacheMutationIDs_[id] = mutation;
        tripCacheTimestamps_[id] = stamp;
        changed = setRecord(id, std::move(merged)) || changed;
      }
    }
    // The screen sees the new weather before the disk has it.
    if (changed) context_.notifyWillChange();
    std::exception_ptr failure;
    try {
      co_await migrateLegacyTripCacheIfNeeded();
      std::vector<Task<void>> commits;
      auto firstError = std::make_shared<ErrorSlot>();
      for (const PendingTripCacheStore& store : pending) commits.push_back(commitCollecting(store, firstError));
      co_await whenAll(std::move(commits));
      if (auto error = firstError->take()) std::rethrow_exception(error);
    } catch (...) {
      failure = std::current_exception();
    }
    if (!failure) co_return;
    const auto state = co_await asio::this_coro::cancellation_state;
    failWith(failure, state.cancelled() != asio::cancellation_type::none, pending, true);
  }

  Task<void> removeTripCache(Uuid id) {
    co_await throwIfCancelled();
    PendingTripCacheStore removal;
    bool changed = false;
    {
      std::lock_guard guard(*context_.mutex);
      const Date stamp = now();
      removal = PendingTripCacheStore{id, TripCacheRecord{{}, TripCacheOperationOrder::begin(stamp)}, Uuid::random()};
      TripCacheRecord merged = mergedRecord(optionalOf(refreshRecord(id)), removal.record);
      tripCacheTimestamps_[id] = stamp;
      pendingTripCacheMutationIDs_[id] = removal.mutation;
      changed = setRecord(id, std::move(merged));
    }
    if (changed) context_.notifyWillChange();
    std::exception_ptr failure;
    try {
      co_await migrateLegacyTripCacheIfNeeded();
      co_await commit(removal);
    } catch (...) {
      failure = std::current_exception();
    }
    if (!failure) co_return;
    const auto state = co_await asio::this_coro::cancellation_state;
    // A failed removal leaves nothing to show: only the pending mark is undone.
    const std::vector<PendingTripCacheStore> stores{removal};
    failWith(failure, state.cancelled() != asio::cancellation_type::none, stores, false);
  }

  Task<void> migrateLegacyTripCacheIfNeeded() {
    std::error_code ec;
    if (!std::filesystem::exists(legacyFile_, ec)) co_return;
    DictionaryCacheFileMigrationTransaction<Uuid, TripCacheRecord> migration;
    migration.legacyFileURL = legacyFile_;
    migration.destinationDirectoryURL = directory_;
    const std::filesystem::path directory = directory_;
    migration.destinationURL = [directory](const Uuid& id) { return directory / (id.text() + ".json"); };
    migration.decodeDictionary = [](std::string_view bytes) { return decodeLegacyTripCache(bytes); };
    migration.codec = recordCodec(now());
    std::function<void()> operation = [migration = std::move(migration)] { migration.commit(); };
    const std::filesystem::path lock = directory_ / "migration.coordination";
    co_await performCoordinatedWrite<void>(lock, std::move(operation));
    std::lock_guard guard(*context_.mutex);
    legacyTripCache_.clear();
  }

 private:
  // The first error of a set of children that must all run to their end.
  struct ErrorSlot {
    std::mutex mutex;
    std::exception_ptr error;
    void offer(std::exception_ptr candidate) {
      std::lock_guard guard(mutex);
      if (!error) error = std::move(candidate);
    }
    std::exception_ptr take() {
      std::lock_guard guard(mutex);
      return error;
    }
  };

  static ValueCodec<TripCacheRecord> recordCodec(Date encodingMoment) {
    ValueCodec<TripCacheRecord> codec;
    codec.encode = [encodingMoment](const TripCacheRecord& record) {
      return encodeTripCacheRecord(record, encodingMoment);
    };
    codec.decode = [](std::string_view bytes) { return decodeTripCacheRecord(bytes); };
    return codec;
  }

  // Sets memory for `id` (nothing erases it); true when that changed it. Caller holds the lock.
  bool setRecord(const Uuid& id, std::optional<TripCacheRecord> record) {
    auto found = tripCache_.find(id);
    const bool had = found != tripCache_.end();
    if (!record) {
      if (had) tripCache_.erase(found);
      return had;
    }
    if (had && found->second == *record) return false;
    tripCache_[id] = std::move(*record);
    return true;
  }

  static std::optional<TripCacheRecord> optionalOf(const TripCacheRecord* record) {
    if (record == nullptr) return std::nullopt;
    return *record;
  }

  // What memory holds for `id`; valid until memory changes. Caller holds the lock.
  const TripCacheRecord* memory(const Uuid& id) const {
    auto found = tripCache_.find(id);
    return found == tripCache_.end() ? nullptr : &found->second;
  }

  // Memory brought up to date with the file of `id`, in place (valid until memory changes).
  // Caller holds the lock.
  const TripCacheRecord* refreshRecord(const Uuid& id) {
    // A change of this process is in flight: memory is ahead of the disk.
    if (pendingTripCacheMutationIDs_.contains(id)) return memory(id);
    const std::filesystem::path file = recordFile(id);
    // One attributes call: a file that is missing and one whose date cannot be read both fall
    // back to the legacy dictionary.
    const std::optional<Date> fileDate = fileModificationDate(file);
    if (!fileDate || *fileDate == Date::distantPast()) return legacyFallback(id);
    const Date date = *fileDate;
    if (auto held = tripCacheTimestamps_.find(id); held != tripCacheTimestamps_.end() && !(held->second < date)) {
      return memory(id);
    }
    std::optional<TripCacheRecord> decoded;
    try {
      if (auto bytes = readFileIfExists(file)) decoded = decodeTripCacheRecord(*bytes);
    } catch (const std::exception&) {
    }
    if (!decoded) return legacyFallback(id);
    tripCacheTimestamps_[id] = date;
    return &(tripCache_[id] = std::move(*decoded));
  }

  const TripCacheRecord* legacyFallback(const Uuid& id) {
    std::error_code ec;
    auto legacy = legacyTripCache_.find(id);
    tripCacheTimestamps_.erase(id);
    if (legacy != legacyTripCache_.end() && std::filesystem::exists(legacyFile_, ec)) {
      return &(tripCache_[id] = legacy->second);
    }
    tripCache_.erase(id);
    return nullptr;
  }

  // The coordinated commit of one pending store or removal.
  Task<void> commit(PendingTripCacheStore pending) {
    CoordinatedValueCacheTransaction<TripCacheRecord> transaction;
    transaction.mutation = StoreValue<TripCacheRecord>{pending.record};
    transaction.fileURL = recordFile(pending.cacheID);
    const Date stamp = now();
    transaction.codec = recordCodec(stamp);
    transaction.preferredValue = [](const std::optional<TripCacheRecord>& persisted, const TripCacheRecord& candidate) {
      return mergedRecord(persisted, candidate);
    };
    std::weak_ptr<TripCacheCore> weak = weak_from_this();
    transaction.applyPersistedValue = [weak, id = pending.cacheID, mutation = pending.mutation](
                                          const std::optional<TripCacheRecord>& persisted, Date date) {
      if (auto core = weak.lock()) core->applyPersistedValue(id, mutation, persisted, date);
    };
    transaction.now = [stamp] { return stamp; };
    co_await performCoordinatedTransaction(std::move(transaction));
  }

  // Runs one child commit to its end and hands its failure to `slot` instead of raising it, so
  // that one failed identifier never cancels the commits of the others.
  Task<void> commitCollecting(PendingTripCacheStore pending, std::shared_ptr<ErrorSlot> slot) {
    try {
      co_await commit(pending);
    } catch (...) {
      slot->offer(std::current_exception());
    }
  }

  void applyPersistedValue(const Uuid& id, const Uuid& mutation, const std::optional<TripCacheRecord>& persisted,
                           Date date) {
    bool changed = false;
    {
      std::lock_guard guard(*context_.mutex);
      auto pending = pendingTripCacheMutationIDs_.find(id);
      // A later change of this process owns memory now.
      if (pending != pendingTripCacheMutationIDs_.end() && pending->second != mutation) return;
      changed = setRecord(id, persisted);
      tripCacheTimestamps_[id] = date;
      if (pending != pendingTripCacheMutationIDs_.end()) pendingTripCacheMutationIDs_.erase(pending);
      if (auto fallback = tripPresentationFallbacks_.find(id); fallback != tripPresentationFallbacks_.end()) {
        if (mergedRecord(persisted, fallback->second) == persisted) {
          tripPresentationFallbacks_.erase(fallback);
          changed = true;
        }
      }
    }
    if (changed) context_.notifyWillChange();
  }

  // The failure step of every pending store, then raises the error (a fresh one for a
  // cancellation, after which no fallback is kept: the caller no longer wants the result).
  [[noreturn]] void failWith(const std::exception_ptr& failure, bool taskCancelled,
                             const std::vector<PendingTripCacheStore>& stores, bool keepRecords) {
    const bool cancelled = taskCancelled || isCancellation(failure);
    bool changed = false;
    {
      std::lock_guard guard(*context_.mutex);
      for (const PendingTripCacheStore& store : stores) {
        if (keepRecords && !cancelled) {
          auto fallback = tripPresentationFallbacks_.find(store.cacheID);
          std::optional<TripCacheRecord> previous;
          if (fallback != tripPresentationFallbacks_.end()) previous = fallback->second;
          TripCacheRecord merged = mergedRecord(previous, store.record);
          if (previous != merged) {
            tripPresentationFallbacks_[store.cacheID] = std::move(merged);
            changed = true;
          }
        }
        auto pending = pendingTripCacheMutationIDs_.find(store.cacheID);
        if (pending != pendingTripCacheMutationIDs_.end() && pending->second == store.mutation) {
          const std::optional<TripCacheRecord> before = optionalOf(memory(store.cacheID));
          pendingTripCacheMutationIDs_.erase(pending);
          tripCacheTimestamps_[store.cacheID] = Date::distantPast();
          if (optionalOf(refreshRecord(store.cacheID)) != before) changed = true;
        }
      }
    }
    if (changed) context_.notifyWillChange();
    if (cancelled) throw CancellationError();
    std::rethrow_exception(failure);
  }

  TripCacheContext context_;
  std::filesystem::path directory_;
  std::filesystem::path legacyFile_;
  std::unordered_map<Uuid, TripCacheRecord> tripCache_;
  std::unordered_map<Uuid, TripCacheRecord> legacyTripCache_;
  std::unordered_map<Uuid, TripCacheRecord> tripPresentationFallbacks_;
  std::unordered_map<Uuid, Date> tripCacheTimestamps_;
  std::unordered_map<Uuid, Uuid> pendingTripCacheMutationIDs_;
};

std::shared_ptr<TripCacheCore> makeTripCacheCore(TripCacheContext context) {
  return std::make_shared<TripCacheCore>(std::move(context));
}

}  // namespace detail

// -- WeatherCache's trip members -------------------------------------------------------------

std::optional<TripCacheEntry> WeatherCache::cachedWeather(const Uuid& cacheID, const Location& location,
                                                          bool includeFallback,
                                                          std::optional<WeatherDataSource> requestedProvider) {
  return trips_->cachedWeather(cacheID, location, includeFallback, requestedProvider);
}

Task<void> WeatherCache::store(std::vector<TripCacheWrite> writes) {
  const std::shared_ptr<detail::TripCacheCore> trips = trips_;
  co_await trips->store(std::move(writes));
}

Task<void> WeatherCache::removeTripCache(Uuid cacheID) {
  const std::shared_ptr<detail::TripCacheCore> trips = trips_;
  co_await trips->removeTripCache(cacheID);
}

Task<void> WeatherCache::migrateLegacyTripCacheIfNeeded() {
  const std::shared_ptr<detail::TripCacheCore> trips = trips_;
  co_await trips->migrateLegacyTripCacheIfNeeded();
}

std::optional<CachedWeather> WeatherCache::TripCacheStore::cachedWeather(const Uuid& cacheID,
                                                                         const Location& location) const {
  auto entry = cache_->cachedWeather(cacheID, location, false, std::nullopt);
  if (!entry) return std::nullopt;
  return std::move(entry->cachedWeather);
}

}  // namespace ombrine
