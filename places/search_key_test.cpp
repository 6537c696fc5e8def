#include "places/search_key.hpp"

#include <gtest/gtest.h>

#include <unicode/translit.h>
#include <unicode/unistr.h>

#include <memory>

namespace ombrine {
namespace {

TEST(SearchKeyTest, FoldsCaseAccentsSpacingAndPunctuation) {
  struct Row {
    const char* text;
    const char* key;
  };
  const Row rows[] = {
      {"Zürich", "zurich"},
      {"ZÜRICH", "zurich"},
      {"São Paulo", "sao paulo"},
      {"Straße", "strasse"},  // full folding: ß and ẞ become ss
      {"GROẞ", "gross"},
      {"İstanbul", "istanbul"},      // the dot that folding leaves is a mark, and goes
      {"Diyarbakır", "diyarbakır"},  // dotless ı is a letter of its own
      {"Łódź", "łodz"},              // Ł has no decomposition; ó loses its accent
      {"St. Louis", "st louis"},
      {"Baden-Baden", "baden baden"},
      {"  Saint \t Ouen  ", "saint ouen"},
      {"L’Aquila", "l'aquila"},
      {"ΣΑΣ", "σασ"},  // no final-sigma form in keys
      {"Москва", "москва"},
      {"東京", "東京"},
      {"Nuuk\u00a0–\u00a0Godthåb", "nuuk godthab"},
      {"", ""},
      {" - . ", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(searchKey(row.text), row.key);
  }
}

// Mark removal is done with normalizers (thread-safe, no per-call setup); it must behave as
// the ICU transliterator named in the index's documentation.
TEST(SearchKeyTest, MarkRemovalMatchesTheIcuTransliterator) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Transliterator> strip(
      icu::Transliterator::createInstance("NFD; [:Nonspacing Mark:] Remove; NFC", UTRANS_FORWARD, status));
  ASSERT_TRUE(U_SUCCESS(status));
  for (const char* name : {"Zürich", "Ḩalab", "Hà_Nội", "Ṣanʿāʾ", "Ærøskøbing", "Reykjavík", "Çanakkale", "Malmö",
                           "Ciudad_Juárez", "Thành_phố_Hồ_Chí_Minh", "Kraków", "Besançon", "Ōsaka"}) {
    icu::UnicodeString expected = icu::UnicodeString::fromUTF8(name);
    expected.foldCase(U_FOLD_CASE_DEFAULT);
    strip->transliterate(expected);
    expected.findAndReplace("_", " ");
    std::string utf8;
    expected.toUTF8String(utf8);
    EXPECT_EQ(searchKey(name), utf8) << name;
  }
}

}  // namespace
}  // namespace ombrine
