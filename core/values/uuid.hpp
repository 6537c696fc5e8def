#pragma once
// A 128-bit universally unique identifier, as records and cache files name things.
//
// Text form: the canonical 36-character form, upper case ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
// which is also its JSON form (a string). Parsing accepts either case. Ordering is by bytes, which
// agrees with the order of the canonical strings. Values are plain and thread-safe; `random()`
// may be called from any thread.

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/values/value_json.hpp"

namespace ombrine {

struct Uuid {
  std::array<std::uint8_t, 16> bytes{};

  // A version-4 identifier from the operating system's random source.
  static Uuid random();
  // Nothing unless `text` is exactly the 8-4-4-4-12 hexadecimal form.
  static std::optional<Uuid> parse(std::string_view text) noexcept;

  // Canonical upper-case text.
  std::string text() const;

  auto operator<=>(const Uuid&) const = default;
  bool operator==(const Uuid&) const = default;
};

// JSON: the canonical string. Decoding raises DecodingError "<path>: not a UUID" for other text.
void decodeScalar(const JsonScalar& value, const JsonPath& path, Uuid& out);
void writeJson(JsonWriter& writer, const Uuid& value);

}  // namespace ombrine

template <>
struct std::hash<ombrine::Uuid> {
  size_t operator()(const ombrine::Uuid& id) const noexcept {
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    for (int i = 0; i < 8; ++i) a = a << 8 | id.bytes[i];
    for (int i = 8; i < 16; ++i) b = b << 8 | id.bytes[i];
    return std::hash<std::uint64_t>{}(a ^ (b * 0x9E3779B97F4A7C15ull));
  }
};
