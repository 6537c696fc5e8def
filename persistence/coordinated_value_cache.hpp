#pragma once
// The read-merge-write transaction of a cache that holds one JSON value in one file, and the
// one-shot migration of a legacy dictionary file to one file per key.
//
// Both commits run under the coordination lock of their file (performCoordinatedWrite), block on
// file input and output, and may run on any thread; so do the functions they are handed.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "core/values/date.hpp"
#include "persistence/coordinated_file.hpp"
#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"

namespace ombrine {

// How a value is written to and read from its file. `decode` raises (any std::exception) for
// bytes that are not a value: an empty, truncated, corrupt or foreign file.
template <class V>
struct ValueCodec {
  std::function<std::string(const V&)> encode;
  std::function<V(std::string_view)> decode;
};

namespace detail {

// The decoded value, or nothing when the bytes are not one. Cancellation is never a decoding
// failure and passes through.
template <class V>
std::optional<V> decodeOrNothing(const ValueCodec<V>& codec, std::string_view bytes) {
  try {
    return codec.decode(bytes);
  } catch (const CancellationError&) {
    throw;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// Removes `file`; a missing file is fine. Raises FileError for any other failure.
void removeFileIfExists(const std::filesystem::path& file);

}  // namespace detail

template <class V>
struct StoreValue {
  V value;
  bool operator==(const StoreValue&) const = default;
};

struct RemoveValue {
  bool operator==(const RemoveValue&) const = default;
};

// What a transaction wants done: store a value, or remove the file.
template <class V>
using CoordinatedValueCacheMutation = std::variant<StoreValue<V>, RemoveValue>;

// One coordinated read-merge-write of `fileURL`.
//
// `commit` (under the lock):
//  1. `shouldCommit` false: nothing at all happens.
//  2. Reads and decodes the file. A missing or undecodable file is "nothing persisted" (and is
//     replaced by the next store); any other read failure raises FileError with no change.
//  3. Remove: deletes the file (missing is fine); the outcome is nothing.
//     Store: outcome = `preferredValue(persisted, candidate)`. Equal to what is persisted: no
//     write at all, so the modification date stays and no reader reloads. Otherwise the outcome
//     is encoded and replaces the file atomically (FileError on failure).
//  4. `applyPersistedValue(outcome, date)` with the file's modification date, or `now()` when
//     it cannot be had (after a remove, as a rule).
// V must be equality-comparable.
template <class V>
struct CoordinatedValueCacheTransaction {
  CoordinatedValueCacheMutation<V> mutation;
  std::filesystem::path fileURL;
  ValueCodec<V> codec;
  std::function<bool()> shouldCommit = [] { return true; };
  std::function<V(const std::optional<V>& persisted, const V& candidate)> preferredValue =
      [](const std::optional<V>&, const V& candidate) { return candidate; };
  std::function<void(const std::optional<V>& persisted, Date date)> applyPersistedValue = [](const std::optional<V>&,
                                                                                             Date) {};
  // The current time, for the date of a file that cannot be looked at.
  std::function<Date()> now;

  void commit() const {
    if (!shouldCommit()) return;
    std::optional<V> persisted;
    if (auto bytes = readFileIfExists(fileURL)) persisted = detail::decodeOrNothing(codec, *bytes);
    std::optional<V> outcome;
    if (const auto* store = std::get_if<StoreValue<V>>(&mutation)) {
      outcome = preferredValue(persisted, store->value);
      if (!(persisted && *persisted == *outcome)) writeFileAtomically(fileURL, codec.encode(*outcome));
    } else {
      detail::removeFileIfExists(fileURL);
    }
    const std::optional<Date> date = fileModificationDate(fileURL);
    applyPersistedValue(outcome, date ? *date : now());
  }
};

// Runs `transaction.commit()` under the lock of the transaction's coordination file.
// Raises as performCoordinatedWrite and commit.
template <class V>
Task<void> performCoordinatedTransaction(CoordinatedValueCacheTransaction<V> transaction) {
  auto coordinationFile = coordinationFilePath(transaction.fileURL);
  std::function<void()> operation = [transaction = std::move(transaction)] { transaction.commit(); };
  co_await performCoordinatedWrite<void>(std::move(coordinationFile), std::move(operation));
}

// Moves the entries of a legacy dictionary file into one file per key, once.
//
// `commit` (under the lock of the migration's coordination file):
//  - no legacy file: done (the other process finished it);
//  - a legacy file that does not decode is worthless: it is removed, no key file is written;
//  - otherwise, in the dictionary's order, each key's file is kept when it decodes (it is newer
//    than anything in the legacy file) and written from the legacy value when it is missing or
//    does not decode; then the legacy file is removed.
// A migration that dies halfway is finished by the next run, which skips the keys already done.
// Raises FileError for read failures other than a missing file, and for failed writes and
// removals; the legacy file then stays for the next run.
template <class K, class V>
struct DictionaryCacheFileMigrationTransaction {
  std::filesystem::path legacyFileURL;
  std::filesystem::path destinationDirectoryURL;
  std::function<std::filesystem::path(const K&)> destinationURL;
  // Decodes the legacy file into its entries in file order; raises for bytes that are not one.
  std::function<std::vector<std::pair<K, V>>(std::string_view)> decodeDictionary;
  ValueCodec<V> codec;

  void commit() const {
    const auto legacy = readFileIfExists(legacyFileURL);
    if (!legacy) return;
    std::optional<std::vector<std::pair<K, V>>> entries;
    try {
      entries = decodeDictionary(*legacy);
    } catch (const CancellationError&) {
      throw;
    } catch (const std::exception&) {
      detail::removeFileIfExists(legacyFileURL);
      return;
    }
    std::error_code ec;
    std::filesystem::create_directories(destinationDirectoryURL, ec);
    if (ec) throw FileError("cannot create folder " + destinationDirectoryURL.string() + ": " + ec.message());
    for (const auto& [key, value] : *entries) {
      const std::filesystem::path file = destinationURL(key);
      const auto existing = readFileIfExists(file);
      if (existing && detail::decodeOrNothing(codec, *existing)) continue;
      writeFileAtomically(file, codec.encode(value));
    }
    detail::removeFileIfExists(legacyFileURL);
  }
};

}  // namespace ombrine
