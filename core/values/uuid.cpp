#include "core/values/uuid.hpp"

#include <sys/random.h>

#include <cerrno>
#include <random>

namespace ombrine {

namespace {

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isDashPosition(size_t i) noexcept { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

Uuid Uuid::random() {
  Uuid id;
  size_t filled = 0;
  while (filled < id.bytes.size()) {
    const ssize_t n = getrandom(id.bytes.data() + filled, id.bytes.size() - filled, 0);
    if (n > 0) {
      filled += static_cast<size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      // No kernel source (very old kernels, seccomp): the library's random device still differs
      // per process, which is all identifiers need.
      std::random_device device;
      for (auto& byte : id.bytes) byte = static_cast<std::uint8_t>(device());
      filled = id.bytes.size();
    }
  }
  id.bytes[6] = static_cast<std::uint8_t>((id.bytes[6] & 0x0F) | 0x40);
  id.bytes[8] = static_cast<std::uint8_t>((id.bytes[8] & 0x3F) | 0x80);
  return id;
}

std::optional<Uuid> Uuid::parse(std::string_view text) noexcept {
  if (text.size() != 36) return std::nullopt;
  Uuid id;
  size_t nibble = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (isDashPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0) return std::nullopt;
    auto& byte = id.bytes[nibble / 2];
    byte = static_cast<std::uint8_t>(nibble % 2 == 0 ? value << 4 : byte | value);
    ++nibble;
  }
  return id;
}

std::string Uuid::text() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kDigits[bytes[i] >> 4]);
    text.push_back(kDigits[bytes[i] & 0x0F]);
  }
  return text;
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Uuid& out) {
  const std::string_view text = jsonString(value, path);
  const std::optional<Uuid> id = Uuid::parse(text);
  if (!id) path.fail("not a UUID");
  out = *id;
}

void writeJson(JsonWriter& writer, const Uuid& value) { writer.string(value.text()); }

}  // namespace ombrine
