#include "app/terminal_text.hpp"

#include <gtest/gtest.h>

#include <string>

namespace ombrine::app {
namespace {

TEST(TerminalTextTest, EchoedInputCannotMoveTheCursorReorderTheLineOrFloodTheScreen) {
  struct Row {
    const char* why;
    std::string input;
    std::string shown;
  };
  const Row rows[] = {
      {"plain text is kept", "Munich", "\"Munich\""},
      {"accents and other scripts are kept", "Zürich 東京 القاهرة", "\"Zürich 東京 القاهرة\""},
      {"an escape sequence loses its escape", "a\x1b[2Jb", "\"a\uFFFD[2Jb\""},
      {"newline, tab and DEL", "a\nb\tc\x7f", "\"a\uFFFDb\uFFFDc\uFFFD\""},
      {"a C1 control (U+009B, CSI)", "a\u009bb", "\"a\uFFFDb\""},
      {"right-to-left override", "abc\u202Edef", "\"abc\uFFFDdef\""},
      {"isolates (FSI, PDI)", "\u2068x\u2069", "\"\uFFFDx\uFFFD\""},
      {"malformed UTF-8: a lone continuation byte", "a\x80z", "\"a\uFFFDz\""},
      {"malformed UTF-8: a cut sequence at the end", "ab\xe6\x9d", "\"ab\uFFFD\uFFFD\""},
      {"overlong encoding of '/'", "\xc0\xaf", "\"\uFFFD\uFFFD\""},
      {"60 characters are echoed whole", std::string(60, 'x'), "\"" + std::string(60, 'x') + "\""},
      {"61 are cut with an ellipsis", std::string(61, 'x'), "\"" + std::string(60, 'x') + "…\""},
      {"the cut counts characters, not bytes", std::string(100, 'x').replace(0, 0, "ü"),
       "\"ü" + std::string(59, 'x') + "…\""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(quotedInput(row.input), row.shown);
  }
  EXPECT_EQ(quotedInput(std::string(100'000, 'q')).size(), 2 + 60 + std::string("…").size());
}

TEST(TerminalTextTest, ColumnsCountWideCharactersTwiceAndMarksNotAtAll) {
  struct Row {
    const char* text;
    std::size_t width;
  };
  const Row rows[] = {
      {"Rain", 4}, {"Regen", 5}, {"晴れ", 4}, {"にわか雨", 8}, {"e\u0301", 1},
      {"😀", 2},    {"°C", 2},    {"서울", 4}, {"ＡＢ", 4},     {"", 0},
  };
  for (const Row& row : rows) EXPECT_EQ(displayWidth(row.text), row.width) << row.text;
  EXPECT_EQ(padRight("晴れ", 6), "晴れ  ");
  EXPECT_EQ(padLeft("晴れ", 6), "  晴れ");
  EXPECT_EQ(padRight("too wide", 3), "too wide");
}

}  // namespace
}  // namespace ombrine::app
