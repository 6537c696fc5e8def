#include "platform/key_value_store.hpp"

#include <cmath>
#include <limits>

namespace ombrine {

namespace {

template <class T>
std::optional<T> ofKind(const std::optional<StoreValue>& stored) {
  if (!stored) return std::nullopt;
  if (const T* value = std::get_if<T>(&stored->value)) return *value;
  return std::nullopt;
}

}  // namespace

std::optional<bool> KeyValueStore::boolValue(std::string_view key) const { return ofKind<bool>(value(key)); }

std::optional<std::int64_t> KeyValueStore::integerValue(std::string_view key) const {
  const auto stored = value(key);
  if (auto integer = ofKind<std::int64_t>(stored)) return integer;
  if (auto number = ofKind<double>(stored)) {
    // Truncation toward zero; a double with no integer value in range (NaN, ±inf, beyond
    // ±2^63) has no integer reading.
    const double truncated = std::trunc(*number);
    if (std::isnan(truncated) || truncated < -9223372036854775808.0 || truncated >= 9223372036854775808.0) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(truncated);
  }
  return std::nullopt;
}

std::optional<double> KeyValueStore::doubleValue(std::string_view key) const {
  const auto stored = value(key);
  if (auto number = ofKind<double>(stored)) return number;
  if (auto integer = ofKind<std::int64_t>(stored)) return static_cast<double>(*integer);
  return std::nullopt;
}

std::optional<std::string> KeyValueStore::stringValue(std::string_view key) const {
  return ofKind<std::string>(value(key));
}

std::optional<StoreDate> KeyValueStore::dateValue(std::string_view key) const { return ofKind<StoreDate>(value(key)); }

std::optional<StoreData> KeyValueStore::dataValue(std::string_view key) const { return ofKind<StoreData>(value(key)); }

}  // namespace ombrine
