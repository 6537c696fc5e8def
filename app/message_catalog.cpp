#include "app/message_catalog.hpp"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>

#include "platform/errors.hpp"
#include "platform/log.hpp"
#include "platform/paths.hpp"

namespace ombrine::app {

namespace {

constexpr std::uint32_t kMagic = 0x950412de;
constexpr std::uint32_t kSwappedMagic = 0xde120495;

std::uint32_t swapped(std::uint32_t value) {
  return (value >> 24) | ((value >> 8) & 0xff00) | ((value << 8) & 0xff0000) | (value << 24);
}

}  // namespace

MessageCatalog MessageCatalog::fromBytes(std::string_view bytes, std::string_view label) {
  const auto fail = [&](std::string_view why) {
    throw FileError(std::string(label) + ": not a message catalogue: " + std::string(why));
  };
  if (bytes.size() < 20) fail("shorter than its header");
  bool swap = false;
  const auto u32 = [&](std::size_t offset) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<std::uint8_t>(bytes[offset + i]);
    return swap ? swapped(value) : value;
  };
  const std::uint32_t magic = u32(0);
  if (magic == kSwappedMagic) {
    swap = true;
  } else if (magic != kMagic) {
    fail("wrong magic number");
  }
  if ((u32(4) >> 16) > 1) fail("unknown revision");
  const std::uint64_t count = u32(8);
  const std::uint64_t originals = u32(12);
  const std::uint64_t translations = u32(16);
  if (originals + count * 8 > bytes.size() || translations + count * 8 > bytes.size())
    fail("a table is outside the file");
  const auto string = [&](std::uint64_t table, std::uint64_t index) {
    const std::uint64_t length = u32(table + 8 * index);
    const std::uint64_t offset = u32(table + 8 * index + 4);
    if (offset + length >= bytes.size()) fail("a string is outside the file");  // its NUL must be inside too
    return bytes.substr(offset, length);
  };
  MessageCatalog catalog;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::string_view original = string(originals, i);
    const std::string_view translation = string(translations, i);
    // The header (empty msgid), plural forms (NUL inside) and contexts (EOT inside) are skipped.
    if (original.empty() || original.find('\0') != std::string_view::npos ||
        original.find('\x04') != std::string_view::npos) {
      continue;
    }
    if (!translation.empty()) catalog.translations_.emplace(original, translation);
  }
  return catalog;
}

std::string_view MessageCatalog::operator()(std::string_view message) const {
  const auto found = translations_.find(std::string(message));
  return found == translations_.end() ? message : std::string_view(found->second);
}

std::filesystem::path messageDirectory() {
  if (const char* directory = std::getenv("OMBRINE_LOCALE_DIR"); directory && *directory) return directory;
  // An installed tree carries the compiled catalogues beside its other resources; the source
  // tree holds only the .po files, so a run from the build tree reads the build's own.
  std::filesystem::path installed = resourceDirectory() / "locale";
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(installed, error)) {
    if (std::filesystem::exists(entry.path() / "LC_MESSAGES" / "ombrine.mo", error)) return installed;
  }
  return OMBRINE_BUILD_LOCALE_DIR;
}

const MessageCatalog& screenMessages(const icu::Locale& locale) {
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<MessageCatalog>> loaded;
  const std::string language = locale.getLanguage();
  std::lock_guard lock(mutex);
  auto& catalog = loaded[language];
  if (catalog) return *catalog;
  catalog = std::make_unique<MessageCatalog>();
  if (language.empty() || language == "en") return *catalog;
  const auto file = messageDirectory() / language / "LC_MESSAGES" / "ombrine.mo";
  std::ifstream in(file, std::ios::binary);
  if (!in) return *catalog;
  const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  try {
    *catalog = MessageCatalog::fromBytes(bytes, file.string());
  } catch (const FileError& error) {
    logDetailLine(error.what());
  }
  return *catalog;
}

}  // namespace ombrine::app
