#pragma once
// Small persistent dictionaries of plain values.
//
// `KeyValueStore` is the local defaults of one suite (one machine, shared by the processes of
// one user); `CloudKeyValueStore` is the dictionary that follows the user between machines.
// Both hold property-list values: booleans, integers, doubles, strings, dates, bytes, arrays
// and dictionaries (`StoreValue`).
//
// Readers by kind follow the usual defaults semantics: an absent key, or a value of another
// kind, reads as nothing (`std::nullopt`); callers that want "absent reads as 0/false" write
// `value_or`. Integers and doubles read as each other (a double truncates toward zero); no other
// conversion happens.
//
// Context: every member may be called from any thread; implementations serialise internally and
// never call back while holding their lock.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ombrine {

// An instant as seconds since 2001-01-01T00:00:00Z (the cache files' convention).
struct StoreDate {
  double secondsSince2001 = 0.0;
  bool operator==(const StoreDate&) const = default;
};

// Opaque bytes (for example a JSON document stored "as data").
struct StoreData {
  std::string bytes;
  bool operator==(const StoreData&) const = default;
};

struct StoreValue;
using StoreArray = std::vector<StoreValue>;
using StoreDictionary = std::map<std::string, StoreValue, std::less<>>;

struct StoreValue {
  std::variant<bool, std::int64_t, double, std::string, StoreDate, StoreData, StoreArray, StoreDictionary> value;
  bool operator==(const StoreValue&) const = default;
};

class KeyValueStore {
 public:
  virtual ~KeyValueStore() = default;

  // The stored value, reloaded from disk when another process changed it since the last read.
  virtual std::optional<StoreValue> value(std::string_view key) const = 0;
  // Stores (or, with nothing, removes) one key. Durable when it returns: the whole suite is
  // replaced atomically under a cross-process lock, merged with what other processes wrote, so
  // no other key's change is lost. Raises FileError when the suite cannot be written.
  virtual void setValue(std::string_view key, std::optional<StoreValue> value) = 0;
  // Every key and value, freshly read.
  virtual StoreDictionary dictionaryRepresentation() const = 0;

  void removeValue(std::string_view key) { setValue(key, std::nullopt); }

  std::optional<bool> boolValue(std::string_view key) const;
  std::optional<std::int64_t> integerValue(std::string_view key) const;
  std::optional<double> doubleValue(std::string_view key) const;
  std::optional<std::string> stringValue(std::string_view key) const;
  std::optional<StoreDate> dateValue(std::string_view key) const;
  std::optional<StoreData> dataValue(std::string_view key) const;
};

}  // namespace ombrine
