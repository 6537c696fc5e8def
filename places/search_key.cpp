#include "places/search_key.hpp"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <stdexcept>

namespace ombrine {

namespace {

bool isSpace(UChar32 c) {
  switch (c) {
    case 0x09:
    case 0x0a:
    case 0x0b:
    case 0x0c:
    case 0x0d:
    case 0x20:
    case 0x85:
    case 0xa0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202f:
    case 0x205f:
    case 0x3000:
    case 0xfeff:
    case 0x2d:
    case 0x5f:
    case 0x2212: return true;
    default: return (c >= 0x2000 && c <= 0x200a) || (c >= 0x2010 && c <= 0x2015);
  }
}

bool isApostrophe(UChar32 c) { return c == 0x60 || c == 0xb4 || c == 0x2bc || c == 0x2018 || c == 0x2019; }

const icu::Normalizer2& normalizer(bool compose) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* instance =
      compose ? icu::Normalizer2::getNFCInstance(status) : icu::Normalizer2::getNFDInstance(status);
  if (U_FAILURE(status) || !instance) throw std::runtime_error("ICU normalization data is missing");
  return *instance;
}

}  // namespace

std::string searchKey(std::string_view text) {
  icu::UnicodeString folded =
      icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  folded.foldCase(U_FOLD_CASE_DEFAULT);

  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString decomposed = normalizer(false).normalize(folded, status);
  icu::UnicodeString unmarked;
  for (int32_t i = 0; i < decomposed.length(); i = decomposed.moveIndex32(i, 1)) {
    const UChar32 c = decomposed.char32At(i);
    if (u_charType(c) != U_NON_SPACING_MARK) unmarked.append(c);
  }
  const icu::UnicodeString composed = normalizer(true).normalize(unmarked, status);
  if (U_FAILURE(status)) throw std::runtime_error("ICU normalization failed");

  std::string key;
  key.reserve(text.size());
  bool pendingSpace = false;
  for (int32_t i = 0; i < composed.length(); i = composed.moveIndex32(i, 1)) {
    UChar32 c = composed.char32At(i);
    if (isSpace(c)) {
      pendingSpace = !key.empty();
      continue;
    }
    if (c == '.') continue;
    if (pendingSpace) key.push_back(' ');
    pendingSpace = false;
    if (isApostrophe(c)) c = '\'';
    char buffer[U8_MAX_LENGTH];
    int32_t length = 0;
    UBool error = false;
    U8_APPEND(reinterpret_cast<uint8_t*>(buffer), length, U8_MAX_LENGTH, c, error);
    key.append(buffer, static_cast<std::size_t>(length));
  }
  return key;
}

}  // namespace ombrine
