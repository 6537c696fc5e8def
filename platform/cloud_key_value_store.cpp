#include "platform/cloud_key_value_store.hpp"

#include <exception>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "platform/key_value_store_json.hpp"
#include "platform/log.hpp"

namespace ombrine {

namespace {

const StoreValue* find(const StoreDictionary& values, std::string_view key) {
  auto it = values.find(key);
  return it == values.end() ? nullptr : &it->second;
}

bool same(const StoreValue* a, const StoreValue* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return *a == *b;
}

std::optional<StoreValue> copyOf(const StoreValue* value) {
  return value ? std::optional<StoreValue>(*value) : std::nullopt;
}

}  // namespace

std::size_t cloudStoreEntryBytes(std::string_view key, const StoreValue& value) {
  return key.size() + encodeStoreValueJson(value).size();
}

std::optional<std::string> cloudStoreLimitViolation(const StoreDictionary& values, std::size_t totalBytes,
                                                    std::string_view key, const std::optional<StoreValue>& value) {
  if (!value) return std::nullopt;
  if (key.size() > CloudKeyValueStore::kMaximumKeyBytes) {
    return fmt::format("the key is {} bytes long, more than {}", key.size(), CloudKeyValueStore::kMaximumKeyBytes);
  }
  const StoreValue* old = find(values, key);
  if (old == nullptr && values.size() >= CloudKeyValueStore::kMaximumKeyCount) {
    return fmt::format("the store already holds {} keys", CloudKeyValueStore::kMaximumKeyCount);
  }
  const std::size_t oldBytes = old ? cloudStoreEntryBytes(key, *old) : 0;
  const std::size_t newTotal = totalBytes - oldBytes + cloudStoreEntryBytes(key, *value);
  if (newTotal > CloudKeyValueStore::kMaximumTotalBytes) {
    return fmt::format("the store would hold {} bytes, more than {}", newTotal, CloudKeyValueStore::kMaximumTotalBytes);
  }
  return std::nullopt;
}

SynchronizingCloudKeyValueStore::SynchronizingCloudKeyValueStore() = default;

SynchronizingCloudKeyValueStore::~SynchronizingCloudKeyValueStore() = default;

void SynchronizingCloudKeyValueStore::load(bool raiseFailure) {
  const Merge keepRemote = [](const StoreDictionary*) { return std::optional<StoreDictionary>(); };
  try {
    StoreDictionary remote = exchange(keepRemote);
    MutexLock guard(mutex_);
    for (const auto& [key, value] : remote) assign(key, value);
    baseline_ = std::move(remote);
  } catch (const std::exception& error) {
    if (raiseFailure) throw;
    logf("Cloud key-value store could not be read: {}", error.what());
  }
}

std::optional<StoreValue> SynchronizingCloudKeyValueStore::value(std::string_view key) const {
  MutexLock guard(mutex_);
  return copyOf(find(values_, key));
}

StoreDictionary SynchronizingCloudKeyValueStore::dictionaryRepresentation() const {
  MutexLock guard(mutex_);
  return values_;
}

void SynchronizingCloudKeyValueStore::setValue(std::string_view key, std::optional<StoreValue> value) {
  std::optional<std::string> violation;
  {
    MutexLock guard(mutex_);
    violation = cloudStoreLimitViolation(values_, totalBytes_, key, value);
    if (!violation) {
      const std::string name(key);
      assign(name, value);
      pending_.insert_or_assign(name, PendingWrite{std::move(value), nextSequence_++});
    }
  }
  if (violation) {
    logf("Cloud key-value store refused \"{}\": {}", key, *violation);
    notify(CloudStoreChange{CloudStoreChangeReason::quotaViolation, {std::string(key)}});
  }
}

bool SynchronizingCloudKeyValueStore::synchronize() { return exchangeAndApply(true); }

bool SynchronizingCloudKeyValueStore::refresh() { return exchangeAndApply(false); }

bool SynchronizingCloudKeyValueStore::exchangeAndApply(bool writeOut) {
  MutexLock exchanging(exchangeMutex_);
  PendingWrites sent;
  const Merge merge = [&](const StoreDictionary* remote) -> std::optional<StoreDictionary> {
    MutexLock guard(mutex_);
    if (remote == nullptr) {
      // The remote lost its content to garbage: memory is the best copy there is.
      sent = pending_;
      return values_;
    }
    if (!writeOut || pending_.empty()) return std::nullopt;
    sent = pending_;
    StoreDictionary merged = *remote;
    for (const auto& [key, write] : sent) {
      if (write.value) {
        merged.insert_or_assign(key, *write.value);
      } else if (auto it = merged.find(key); it != merged.end()) {
        merged.erase(it);
      }
    }
    return merged;
  };

  StoreDictionary remote;
  try {
    remote = exchange(merge);
  } catch (const std::exception& error) {
    logf("Cloud key-value store could not synchronize: {}", error.what());
    return false;
  }

  std::vector<std::string> changed;
  {
    MutexLock guard(mutex_);
    changed = applyRemote(std::move(remote), sent, std::nullopt);
  }
  if (!changed.empty()) notify(CloudStoreChange{CloudStoreChangeReason::serverChange, std::move(changed)});
  return true;
}

std::vector<std::string> SynchronizingCloudKeyValueStore::applyRemote(StoreDictionary remote, const PendingWrites& sent,
                                                                      std::optional<std::string_view> own) {
  std::vector<std::string> changed;
  std::set<std::string, std::less<>> keys;
  for (const auto& entry : remote) keys.insert(entry.first);
  for (const auto& entry : baseline_) keys.insert(entry.first);
  for (const std::string& key : keys) {
    // A local write, sent now or still pending, wins over the remote.
    if (key == own || sent.contains(key) || pending_.contains(key)) continue;
    const StoreValue* now = find(remote, key);
    if (same(now, find(baseline_, key)) || same(now, find(values_, key))) continue;
    assign(key, copyOf(now));
    changed.push_back(key);
  }
  for (const auto& [key, write] : sent) {
    auto it = pending_.find(key);
    if (it != pending_.end() && it->second.sequence == write.sequence) pending_.erase(it);
  }
  baseline_ = std::move(remote);
  return changed;
}

std::optional<StoreValue> SynchronizingCloudKeyValueStore::changeValue(std::string_view key,
                                                                       const ValueChange& change) {
  MutexLock exchanging(exchangeMutex_);
  PendingWrites sent;
  std::optional<StoreValue> outcome;
  std::optional<std::string> violation;
  const Merge merge = [&](const StoreDictionary* remote) -> std::optional<StoreDictionary> {
    StoreDictionary merged;
    {
      MutexLock guard(mutex_);
      sent = pending_;
      // An unreadable remote has been set aside: memory is the best copy there is.
      merged = remote ? *remote : values_;
    }
    for (const auto& [name, write] : sent) {
      if (write.value) {
        merged.insert_or_assign(name, *write.value);
      } else if (auto it = merged.find(name); it != merged.end()) {
        merged.erase(it);
      }
    }
    const StoreValue* stored = find(merged, key);
    outcome = change(copyOf(stored));
    const bool unchanged = outcome ? same(stored, &*outcome) : stored == nullptr;
    if (unchanged && sent.empty() && remote != nullptr) return std::nullopt;
    std::size_t totalBytes = 0;
    for (const auto& [name, value] : merged) totalBytes += cloudStoreEntryBytes(name, value);
    violation = cloudStoreLimitViolation(merged, totalBytes, key, outcome);
    if (violation) throw CloudStoreQuotaError(fmt::format("the synced store refused \"{}\": {}", key, *violation));
    if (outcome) {
      merged.insert_or_assign(std::string(key), *outcome);
    } else if (auto it = merged.find(key); it != merged.end()) {
      merged.erase(it);
    }
    return merged;
  };

  StoreDictionary remote;
  try {
    remote = exchange(merge);
  } catch (const CloudStoreQuotaError&) {
    logf("Cloud key-value store refused \"{}\": {}", key, violation.value_or(""));
    exchanging.unlock();
    notify(CloudStoreChange{CloudStoreChangeReason::quotaViolation, {std::string(key)}});
    throw;
  }

  std::vector<std::string> changed;
  {
    MutexLock guard(mutex_);
    changed = applyRemote(std::move(remote), sent, key);
    // A write of the same key made meanwhile by another thread of this process stays the newer.
    if (!pending_.contains(key)) assign(std::string(key), outcome);
  }
  // Observers may change values of their own in turn.
  exchanging.unlock();
  if (!changed.empty()) notify(CloudStoreChange{CloudStoreChangeReason::serverChange, std::move(changed)});
  return outcome;
}

void SynchronizingCloudKeyValueStore::assign(const std::string& key, const std::optional<StoreValue>& value) {
  if (auto it = entryBytes_.find(key); it != entryBytes_.end()) {
    totalBytes_ -= it->second;
    entryBytes_.erase(it);
  }
  if (value) {
    const std::size_t bytes = cloudStoreEntryBytes(key, *value);
    entryBytes_.emplace(key, bytes);
    totalBytes_ += bytes;
    values_.insert_or_assign(key, *value);
  } else if (auto it = values_.find(key); it != values_.end()) {
    values_.erase(it);
  }
}

Subscription SynchronizingCloudKeyValueStore::observeExternalChanges(Observer observer) {
  // A failing observer is logged and does not keep the others from hearing of the change.
  auto guarded = [observer = std::move(observer)](const CloudStoreChange& change) {
    try {
      observer(change);
    } catch (const std::exception& error) {
      logf("Cloud key-value store observer failed: {}", error.what());
    }
  };
  return observers_.add(std::move(guarded));
}

void SynchronizingCloudKeyValueStore::notify(const CloudStoreChange& change) { observers_.notify(change); }

}  // namespace ombrine
