#include "storms/zip_reader.hpp"

#include <gtest/gtest.h>

#include "storms/test_archive.hpp"

namespace ombrine {
namespace {

using testing_zip::buildArchive;
using testing_zip::Entry;

const std::string kKml = "<kml><Document><name>x</name></Document></kml>";

std::vector<std::string> names(const std::vector<std::pair<std::string, std::string>>& texts) {
  std::vector<std::string> out;
  for (const auto& [name, text] : texts) out.push_back(name);
  return out;
}

TEST(ZipReaderTest, KmlEntriesInReadingOrder) {
  const std::string archive = buildArchive({
      {.name = "b.KML", .data = kKml},
      {.name = "images/icon.png", .data = "png"},
      {.name = "a.kml", .data = kKml, .deflate = false},  // stored: no inflating needed
      {.name = "files/doc.kml", .data = kKml, .dataDescriptor = true},
  });
  const auto texts = kmlTexts(archive);
  EXPECT_EQ(names(texts), (std::vector<std::string>{"files/doc.kml", "a.kml", "b.KML"}));
  for (const auto& [name, text] : texts) EXPECT_EQ(text, kKml) << name;
}

TEST(ZipReaderTest, EndRecordSearchReachesTheLongestComment) {
  std::string archive = buildArchive({{.name = "doc.kml", .data = kKml}}, 65535);
  EXPECT_EQ(kmlTexts(archive).size(), 1u);
  archive.push_back('x');  // the record now lies one byte beyond the search
  EXPECT_TRUE(kmlTexts(archive).empty());
}

TEST(ZipReaderTest, HostileEntriesAreRefused) {
  const std::string big(300'000, 'a');  // compresses about 1000:1
  struct Row {
    const char* why;
    Entry entry;
    std::optional<ZipRefusal> refusal;
  };
  const Row rows[] = {
      // clang-format off
      {"a plain deflated entry", {.name = "doc.kml", .data = kKml}, std::nullopt},
      {"parent folder in the name", {.name = "../doc.kml", .data = kKml}, ZipRefusal::unsafeName},
      {"nested parent folder", {.name = "a/../../doc.kml", .data = kKml}, ZipRefusal::unsafeName},
      {"absolute name", {.name = "/etc/doc.kml", .data = kKml}, ZipRefusal::unsafeName},
      {"drive letter", {.name = "C:doc.kml", .data = kKml}, ZipRefusal::unsafeName},
      {"backslash", {.name = "a\\doc.kml", .data = kKml}, ZipRefusal::unsafeName},
      {"declares more than it holds", {.name = "doc.kml", .data = kKml, .declaredSize = 10'000}, ZipRefusal::sizeMismatch},
      {"holds more than it declares", {.name = "doc.kml", .data = kKml, .declaredSize = 5}, ZipRefusal::sizeMismatch},
      {"stored sizes differ", {.name = "doc.kml", .data = kKml, .deflate = false, .declaredSize = 4}, ZipRefusal::sizeMismatch},
      {"declares over 16 MiB", {.name = "doc.kml", .data = kKml, .declaredSize = (16u << 20) + 1}, ZipRefusal::tooLarge},
      {"bomb ratio", {.name = "doc.kml", .data = big}, ZipRefusal::suspiciousRatio},
      {"ZIP64 marker", {.name = "doc.kml", .data = kKml, .declaredSize = 0xffffffff}, ZipRefusal::zip64},
      {"unknown method", {.name = "doc.kml", .data = kKml, .method = 12}, ZipRefusal::unsupportedMethod},
      // clang-format on
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    const std::string archive = buildArchive({row.entry});
    const auto entries = zipEntries(archive);
    ASSERT_EQ(entries.size(), 1u);
    const auto data = zipEntryData(archive, entries.front());
    if (row.refusal) {
      ASSERT_TRUE(std::holds_alternative<ZipRefusal>(data));
      EXPECT_EQ(std::get<ZipRefusal>(data), *row.refusal) << describe(std::get<ZipRefusal>(data));
    } else {
      EXPECT_EQ(std::get<std::string>(data), row.entry.data);
    }
  }
}

TEST(ZipReaderTest, DamagedArchivesGiveWhatIsReadable) {
  const std::string good = buildArchive({{.name = "doc.kml", .data = kKml}, {.name = "b.kml", .data = kKml}});
  struct Row {
    const char* why;
    std::string archive;
    std::size_t texts;
  };
  std::string flipped = good;
  flipped[40] = static_cast<char>(flipped[40] ^ 0x55);  // inside the first entry's deflate data
  std::string badText = buildArchive({{.name = "doc.kml", .data = "\xff\xfe<kml/>"}, {.name = "b.kml", .data = kKml}});
  const Row rows[] = {
      {"whole", good, 2},
      {"truncated before the end record", good.substr(0, good.size() - 10), 0},
      {"truncated to the first half", good.substr(0, good.size() / 2), 0},
      {"empty", "", 0},
      {"a corrupt entry skips that entry only", flipped, 1},
      {"an entry that is not UTF-8 is skipped", badText, 1},
      {"no ZIP at all", std::string(100, 'P'), 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(kmlTexts(row.archive).size(), row.texts);
  }
  bool asked = false;
  EXPECT_TRUE(zipEntries(good, [&] { return asked = true; }).empty());
  EXPECT_TRUE(asked);
}

TEST(ZipReaderTest, Utf8Validity) {
  EXPECT_TRUE(isValidUtf8("Typhoon \xe5\x8f\xb0\xe9\xa2\xa8"));
  EXPECT_FALSE(isValidUtf8("\xc0\xaf"));          // overlong '/'
  EXPECT_FALSE(isValidUtf8("\xed\xa0\x80"));      // a surrogate
  EXPECT_FALSE(isValidUtf8("\xe5\x8f"));          // cut short
  EXPECT_FALSE(isValidUtf8("\xf4\x90\x80\x80"));  // above U+10FFFF
}

}  // namespace
}  // namespace ombrine
