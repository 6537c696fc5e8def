#include "sim/answer_encoding.hpp"

#include <gtest/gtest.h>
#include <libdeflate.h>

#include <string>

namespace ombrine::sim {
namespace {

TEST(AnswerEncoding, AcceptEncodingAdmitsGzipUnlessRefused) {
  const struct {
    const char* header;
    bool gzip;
  } cases[] = {
      {"", false},
      {"gzip", true},
      {"deflate, gzip, br, zstd", true},
      {"br", false},
      {"GZIP;q=0.5", true},
      {"gzip;q=0", false},
      {"gzip; q=0.000, br", false},
      {"x-gzip", true},
      {"*", true},
      {"*;q=0", false},
      {"gzipped", false},
  };
  for (const auto& c : cases) EXPECT_EQ(acceptsGzip(c.header), c.gzip) << c.header;
}

TEST(AnswerEncoding, OnlyTextualTypesAreCompressed) {
  EXPECT_TRUE(isCompressible("application/json"));
  EXPECT_TRUE(isCompressible("application/json; charset=utf-8"));
  EXPECT_TRUE(isCompressible("application/geo+json"));
  EXPECT_TRUE(isCompressible("text/xml"));
  EXPECT_FALSE(isCompressible("image/png"));
  EXPECT_FALSE(isCompressible("application/zip"));
}

TEST(AnswerEncoding, GzipRoundTripsAndSkipsShortBodies) {
  EXPECT_FALSE(gzipped(R"({"a":1})").has_value());
  std::string body;
  for (int i = 0; i < 500; ++i)
    body += R"({"time":"2026-01-15T12:00+01:00","temperature":)" + std::to_string(i % 30) + "},";
  const auto encoded = gzipped(body);
  ASSERT_TRUE(encoded.has_value());
  EXPECT_LT(encoded->size(), body.size());
  auto* decompressor = libdeflate_alloc_decompressor();
  std::string decoded(body.size(), '\0');
  std::size_t length = 0;
  EXPECT_EQ(libdeflate_gzip_decompress(decompressor, encoded->data(), encoded->size(), decoded.data(), decoded.size(),
                                       &length),
            LIBDEFLATE_SUCCESS);
  libdeflate_free_decompressor(decompressor);
  decoded.resize(length);
  EXPECT_EQ(decoded, body);
}

}  // namespace
}  // namespace ombrine::sim
