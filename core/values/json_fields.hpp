#pragma once
// Reading the members of one object of a decoded JSON document (a DOM value), for the
// decoders of the smaller provider answers.
//
// Missing members and JSON null read alike as absent. Every failure raises DecodingError
// "<path>: <problem>", the path naming the offending value ("list[3].main.temp"). A view refers
// to the value it was made from, which must outlive it. Pure; safe from any thread.

#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/values/errors.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

class JsonFields {
 public:
  // Raises when `value` is not an object.
  JsonFields(const boost::json::value& value, std::string path) : path_(std::move(path)) {
    if (!value.is_object())
      failAt(path_, std::string("expected an object, found ") + std::string(describeJsonKind(value)));
    object_ = &value.get_object();
  }

  // The document root of `text`; raises for text that is not JSON or not an object.
  static boost::json::value parse(std::string_view text) { return parseJson(text); }

  const std::string& path() const noexcept { return path_; }
  std::string pathOf(std::string_view key) const {
    return path_.empty() ? std::string(key) : path_ + "." + std::string(key);
  }

  [[noreturn]] static void failAt(const std::string& path, std::string_view problem) {
    throw DecodingError(path.empty() ? std::string(problem) : path + ": " + std::string(problem));
  }
  [[noreturn]] void fail(std::string_view key, std::string_view problem) const { failAt(pathOf(key), problem); }

  const boost::json::value* optional(std::string_view key) const {
    const boost::json::value* value = object_->if_contains(key);
    return value && !value->is_null() ? value : nullptr;
  }
  const boost::json::value& required(std::string_view key) const {
    const boost::json::value* value = optional(key);
    if (!value) fail(key, "missing key");
    return *value;
  }
  bool has(std::string_view key) const { return optional(key) != nullptr; }

  double number(std::string_view key) const { return asNumber(required(key), key); }
  // A measurement (temperature, speed, ...): the key must be present, but JSON null reads as 0.0.
  double measurement(std::string_view key) const {
    const boost::json::value* value = object_->if_contains(key);
    if (!value) fail(key, "missing key");
    return value->is_null() ? 0.0 : asNumber(*value, key);
  }
  // Whether `key` is present at all, null included.
  bool contains(std::string_view key) const { return object_->contains(key); }
  std::optional<double> optionalNumber(std::string_view key) const {
    const boost::json::value* value = optional(key);
    return value ? std::optional(asNumber(*value, key)) : std::nullopt;
  }
  std::int64_t integer(std::string_view key) const { return asInteger(required(key), key); }
  std::optional<std::int64_t> optionalInteger(std::string_view key) const {
    const boost::json::value* value = optional(key);
    return value ? std::optional(asInteger(*value, key)) : std::nullopt;
  }
  std::string string(std::string_view key) const { return asString(required(key), key); }
  std::optional<std::string> optionalString(std::string_view key) const {
    const boost::json::value* value = optional(key);
    return value ? std::optional(asString(*value, key)) : std::nullopt;
  }
  bool boolean(std::string_view key) const {
    const boost::json::value& value = required(key);
    if (!value.is_bool()) fail(key, "expected a boolean");
    return value.get_bool();
  }
  JsonFields object(std::string_view key) const { return JsonFields(required(key), pathOf(key)); }
  std::optional<JsonFields> optionalObject(std::string_view key) const {
    const boost::json::value* value = optional(key);
    return value ? std::optional(JsonFields(*value, pathOf(key))) : std::nullopt;
  }
  const boost::json::array& array(std::string_view key) const {
    const boost::json::value& value = required(key);
    if (!value.is_array()) fail(key, "expected an array");
    return value.get_array();
  }
  // An absent array reads as empty.
  const boost::json::array& optionalArray(std::string_view key) const {
    static const boost::json::array kEmpty;
    return has(key) ? array(key) : kEmpty;
  }
  // The element `index` of the array `key`, as an object.
  JsonFields element(std::string_view key, const boost::json::value& value, size_t index) const {
    return JsonFields(value, pathOf(key) + "[" + std::to_string(index) + "]");
  }

 private:
  double asNumber(const boost::json::value& value, std::string_view key) const {
    if (value.is_double()) return value.get_double();
    if (value.is_int64()) return static_cast<double>(value.get_int64());
    if (value.is_uint64()) return static_cast<double>(value.get_uint64());
    fail(key, "expected a number");
  }
  std::int64_t asInteger(const boost::json::value& value, std::string_view key) const {
    if (value.is_int64()) return value.get_int64();
    if (value.is_uint64() && value.get_uint64() <= static_cast<std::uint64_t>(INT64_MAX)) {
      return static_cast<std::int64_t>(value.get_uint64());
    }
    if (value.is_double()) {
      double number = value.get_double();
      if (number >= -9.2e18 && number <= 9.2e18 && number == static_cast<double>(static_cast<std::int64_t>(number))) {
        return static_cast<std::int64_t>(number);
      }
    }
    fail(key, "expected an integer");
  }
  std::string asString(const boost::json::value& value, std::string_view key) const {
    if (!value.is_string()) fail(key, "expected a string");
    return std::string(value.get_string());
  }

  const boost::json::object* object_ = nullptr;
  std::string path_;
};

}  // namespace ombrine
