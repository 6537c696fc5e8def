#pragma once
// A screen's words from the reader's language's message catalogue (message_catalog.hpp), its
// numbers in the locale's own digits (core/values/screen_words.hpp). Cheap to build: catalogues and
// formatters are kept per process.

#include <unicode/locid.h>

#include "app/message_catalog.hpp"
#include "core/values/screen_words.hpp"

namespace ombrine::app {

class ScreenText : public ScreenWords {
 public:
  // The catalogue of `locale`'s language.
  explicit ScreenText(const icu::Locale& locale) : ScreenText(locale, screenMessages(locale)) {}
  // `messages` instead (an empty catalogue: English words). `messages` outlives this.
  ScreenText(const icu::Locale& locale, const MessageCatalog& messages) : ScreenWords(locale), messages_(messages) {}

 protected:
  std::string_view translate(std::string_view message) const override { return messages_(message); }

 private:
  const MessageCatalog& messages_;
};

}  // namespace ombrine::app
