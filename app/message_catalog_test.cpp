#include "app/message_catalog.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.hpp"

namespace ombrine::app {
namespace {

// A .mo file with `entries` (msgid, msgstr) in the given byte order.
std::string moFile(const std::vector<std::pair<std::string, std::string>>& entries, bool bigEndian = false) {
  std::string out;
  auto u32 = [&](std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>(value >> (bigEndian ? 24 - 8 * i : 8 * i));
  };
  const auto count = static_cast<std::uint32_t>(entries.size());
  const std::uint32_t originals = 28;
  const std::uint32_t translations = originals + 8 * count;
  std::uint32_t offset = translations + 8 * count;
  std::string strings;
  std::vector<std::uint32_t> table;
  for (const bool original : {true, false}) {
    for (const auto& [id, text] : entries) {
      const std::string& s = original ? id : text;
      table.push_back(static_cast<std::uint32_t>(s.size()));
      table.push_back(offset + static_cast<std::uint32_t>(strings.size()));
      strings += s;
      strings += '\0';
    }
  }
  for (const std::uint32_t header : {0x950412deu, 0u, count, originals, translations, 0u, 0u}) u32(header);
  for (const std::uint32_t value : table) u32(value);
  return out + strings;
}

TEST(MessageCatalogTest, TranslatesWhatItHoldsAndKeepsTheRest) {
  const std::vector<std::pair<std::string, std::string>> entries = {
      {"", "Content-Type: text/plain; charset=UTF-8\n"},
      {"Days", "Tage"},
      {"menu\x04Now", "Sofort"},                                             // with a context: not a screen word
      {std::string("hour\0hours", 10), std::string("Stunde\0Stunden", 14)},  // plural forms
      {"Now", "Jetzt"},
      {"Untranslated", ""},
  };
  for (const bool bigEndian : {false, true}) {
    const MessageCatalog tr = MessageCatalog::fromBytes(moFile(entries, bigEndian), "test.mo");
    EXPECT_EQ(tr("Now"), "Jetzt");
    EXPECT_EQ(tr("Days"), "Tage");
    EXPECT_EQ(tr("Untranslated"), "Untranslated");
    EXPECT_EQ(tr("Sunrise"), "Sunrise");
    EXPECT_EQ(tr(""), "");
    EXPECT_EQ(tr.size(), 2u);
  }
}

TEST(MessageCatalogTest, BytesThatAreNoCatalogueAreRefusedWithTheirName) {
  const std::string good = moFile({{"Now", "Jetzt"}});
  struct Row {
    const char* why;
    std::string bytes;
    const char* message;
  };
  std::string wrongMagic = good;
  wrongMagic[0] = 'x';
  std::string revision = good;
  revision[6] = 2;
  std::string farTable = good;
  farTable[12] = static_cast<char>(0xff);
  std::string farString = good;
  farString[28 + 4] = static_cast<char>(0xf0);  // the first original's offset
  const Row rows[] = {
      {"empty", "", "shorter than its header"},
      {"a text file", std::string(40, 'a'), "wrong magic number"},
      {"wrong magic", wrongMagic, "wrong magic number"},
      {"revision 2", revision, "unknown revision"},
      {"a table past the end", farTable, "a table is outside"},
      {"a string past the end", farString, "a string is outside"},
      {"cut before the last NUL", good.substr(0, good.size() - 1), "a string is outside"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    try {
      MessageCatalog::fromBytes(row.bytes, "bad.mo");
      ADD_FAILURE() << "accepted";
    } catch (const FileError& error) {
      EXPECT_NE(std::string(error.what()).find(std::string("bad.mo: not a message catalogue: ") + row.message),
                std::string::npos)
          << error.what();
    }
  }
}

// The catalogues msgfmt compiled from resources/locale: every language has the screen's words.
TEST(MessageCatalogTest, TheBuiltCataloguesTranslateTheScreen) {
  const struct {
    const char* locale;
    const char* now;
    const char* days;
  } rows[] = {{"de_DE", "Jetzt", "Tage"}, {"fr_FR", "Maintenant", "Jours"}, {"es_ES", "Ahora", "Días"},
              {"it_IT", "Ora", "Giorni"}, {"ja_JP", "現在", "日別"},        {"en_US", "Now", "Days"},
              {"sv_SE", "Now", "Days"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.locale);
    const MessageCatalog& tr = screenMessages(icu::Locale(row.locale));
    EXPECT_EQ(tr("Now"), row.now);
    EXPECT_EQ(tr("Days"), row.days);
  }
}

}  // namespace
}  // namespace ombrine::app
