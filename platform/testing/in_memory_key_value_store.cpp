#include "platform/testing/in_memory_key_value_store.hpp"

#include <string>
#include <utility>

#include "platform/errors.hpp"

namespace ombrine {

namespace {

void assignIn(StoreDictionary& values, std::string_view key, std::optional<StoreValue> value) {
  if (value) {
    values.insert_or_assign(std::string(key), std::move(*value));
  } else if (auto it = values.find(key); it != values.end()) {
    values.erase(it);
  }
}

}  // namespace

std::optional<StoreValue> InMemoryKeyValueStore::value(std::string_view key) const {
  MutexLock guard(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

void InMemoryKeyValueStore::setValue(std::string_view key, std::optional<StoreValue> value) {
  if (failWrites_.load()) throw FileError("in-memory store: writes are set to fail");
  MutexLock guard(mutex_);
  assignIn(values_, key, std::move(value));
  ++writeCount_;
}

StoreDictionary InMemoryKeyValueStore::dictionaryRepresentation() const {
  MutexLock guard(mutex_);
  return values_;
}

StoreDictionary InMemoryCloudServer::values() const {
  MutexLock guard(mutex_);
  return values_;
}

void InMemoryCloudServer::setValue(std::string_view key, std::optional<StoreValue> value) {
  MutexLock guard(mutex_);
  assignIn(values_, key, std::move(value));
}

void InMemoryCloudServer::replaceAll(StoreDictionary values) {
  MutexLock guard(mutex_);
  values_ = std::move(values);
}

InMemoryCloudKeyValueStore::InMemoryCloudKeyValueStore(std::shared_ptr<InMemoryCloudServer> server)
    : server_(server ? std::move(server) : std::make_shared<InMemoryCloudServer>()) {
  load();
}

bool InMemoryCloudKeyValueStore::synchronize() {
  ++synchronizeCount_;
  return SynchronizingCloudKeyValueStore::synchronize();
}

void InMemoryCloudKeyValueStore::changeExternally(std::string_view key, std::optional<StoreValue> value) {
  server_->setValue(key, std::move(value));
  refresh();
}

StoreDictionary InMemoryCloudKeyValueStore::exchange(const Merge& merge) {
  if (!server_->reachable()) throw FileError("in-memory cloud server is unreachable");
  MutexLock guard(server_->mutex_);
  if (auto merged = merge(&server_->values_)) server_->values_ = std::move(*merged);
  return server_->values_;
}

}  // namespace ombrine
