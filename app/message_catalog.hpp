#pragma once
// The translations of the screen's own words ("Now", "Sunrise", "Days"), from GNU gettext
// message catalogues: resources/locale/<language>.po, compiled to
// <locale directory>/<language>/LC_MESSAGES/ombrine.mo by msgfmt at build time.
//
// A .mo file (little- or big-endian, by its magic number 0x950412de): u32 magic, u32 revision
// (major 0 or 1), u32 string count N, u32 offset of the original strings' table, u32 offset of
// the translations' table, then a hash table this reader does not need. Each table holds N
// {u32 length, u32 offset} pairs naming NUL-terminated strings. Entries with a context or
// plural forms and the header (empty msgid) are not used by the screen and are skipped.
// Immutable after loading, so any thread may read a catalogue.

#include <unicode/locid.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace ombrine::app {

class MessageCatalog {
 public:
  // No translations: every message reads as written (English).
  MessageCatalog() = default;

  // Reads a .mo file's bytes. Raises FileError("<label>: not a message catalogue: <why>") for a
  // wrong magic number, an unknown revision, or a table or string outside the bytes.
  static MessageCatalog fromBytes(std::string_view bytes, std::string_view label);

  // The translation of `message`, or `message` itself when the catalogue has none.
  std::string_view operator()(std::string_view message) const;

  std::size_t size() const noexcept { return translations_.size(); }

 private:
  std::unordered_map<std::string, std::string> translations_;
};

// Where the compiled catalogues are: $OMBRINE_LOCALE_DIR, else the build's locale folder.
std::filesystem::path messageDirectory();

// The catalogue of `locale`'s language in messageDirectory(), loaded once per process and kept;
// an empty catalogue for English, for a language without one, and for an unreadable file (which
// is logged with -v). Thread-safe.
const MessageCatalog& screenMessages(const icu::Locale& locale);

}  // namespace ombrine::app
