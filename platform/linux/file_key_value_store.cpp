#include "platform/linux/file_key_value_store.hpp"

#include <exception>
#include <string>
#include <utility>

#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine {

std::filesystem::path FileKeyValueStore::suiteFile(std::string_view suite) {
  return containerDirectory() / "Library" / "Preferences" / (std::string(suite) + ".json");
}

FileKeyValueStore::FileKeyValueStore(std::filesystem::path file) : file_(std::move(file)) { reloadIfChanged(); }

void FileKeyValueStore::reloadIfChanged() const {
  try {
    const detail::FileSignature now = detail::fileSignature(file_);
    {
      MutexLock guard(mutex_);
      if (now == seen_) return;
    }
    detail::DictionaryFile read = detail::readDictionaryFile(file_, false);
    if (!read.values) {
      // Garbage: decide under the writers' lock, where nobody can be replacing it right now.
      const detail::DictionaryFileLock lock(file_);
      read = detail::readDictionaryFile(file_, true);
    }
    // Another thread may have stored a newer version meanwhile; the next read then sees a
    // signature that differs from the file's and reloads, so an older pair never sticks.
    MutexLock guard(mutex_);
    values_ = std::move(read.values).value_or(StoreDictionary{});
    seen_ = read.signature;
  } catch (const FileError& error) {
    logf("Key-value store {} could not be read: {}", file_.string(), error.what());
  }
}

std::optional<StoreValue> FileKeyValueStore::value(std::string_view key) const {
  reloadIfChanged();
  MutexLock guard(mutex_);
  auto it = values_.find(key);
  if (it == values_.end()) return std::nullopt;
  return it->second;
}

StoreDictionary FileKeyValueStore::dictionaryRepresentation() const {
  reloadIfChanged();
  MutexLock guard(mutex_);
  return values_;
}

void FileKeyValueStore::setValue(std::string_view key, std::optional<StoreValue> value) {
  const detail::DictionaryFileLock lock(file_);
  detail::DictionaryFile read = detail::readDictionaryFile(file_, true);
  StoreDictionary values = std::move(read.values).value_or(StoreDictionary{});
  detail::FileSignature signature = read.signature;
  auto it = values.find(key);
  const bool unchanged = value ? (it != values.end() && it->second == *value) : it == values.end();
  if (!unchanged) {
    if (value) {
      values.insert_or_assign(std::string(key), std::move(*value));
    } else {
      values.erase(it);
    }
    signature = detail::writeDictionaryFile(file_, values);
  }
  MutexLock guard(mutex_);
  values_ = std::move(values);
  seen_ = signature;
}

}  // namespace ombrine
