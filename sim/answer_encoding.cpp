#include "sim/answer_encoding.hpp"

#include <libdeflate.h>

#include <memory>

namespace ombrine::sim {

namespace {

// A web server's usual default: most of the size gain at a small fraction of the time.
constexpr int kGzipLevel = 1;
// Below this the gzip header and trailer eat the gain.
constexpr std::size_t kMinimumCompressedLength = 256;

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool equalsLower(std::string_view text, std::string_view lower) {
  if (text.size() != lower.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != lower[i]) return false;
  }
  return true;
}

// "q=0", "q=0.0", "q=0.000": the coding is refused.
bool refused(std::string_view parameters) {
  while (!parameters.empty()) {
    const auto semicolon = parameters.find(';');
    const auto item = trimmed(parameters.substr(0, semicolon));
    parameters = semicolon == std::string_view::npos ? std::string_view() : parameters.substr(semicolon + 1);
    if (item.size() < 2 || (item[0] != 'q' && item[0] != 'Q') || item[1] != '=') continue;
    const auto value = item.substr(2);
    return !value.empty() && value.find_first_not_of("0.") == std::string_view::npos;
  }
  return false;
}

struct CompressorDeleter {
  void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};

}  // namespace

bool acceptsGzip(std::string_view acceptEncoding) {
  while (!acceptEncoding.empty()) {
    const auto comma = acceptEncoding.find(',');
    const auto item = acceptEncoding.substr(0, comma);
    acceptEncoding = comma == std::string_view::npos ? std::string_view() : acceptEncoding.substr(comma + 1);
    const auto semicolon = item.find(';');
    const auto coding = trimmed(item.substr(0, semicolon));
    if (!equalsLower(coding, "gzip") && !equalsLower(coding, "x-gzip") && coding != "*") continue;
    if (semicolon == std::string_view::npos || !refused(item.substr(semicolon + 1))) return true;
  }
  return false;
}

bool isCompressible(std::string_view contentType) {
  const auto type = trimmed(contentType.substr(0, contentType.find(';')));
  return type.starts_with("text/") || type.ends_with("/json") || type.ends_with("+json") || type.ends_with("/xml") ||
         type.ends_with("+xml");
}

std::optional<std::string> gzipped(std::string_view body) {
  if (body.size() < kMinimumCompressedLength) return std::nullopt;
  thread_local std::unique_ptr<libdeflate_compressor, CompressorDeleter> compressor(
      libdeflate_alloc_compressor(kGzipLevel));
  if (!compressor) return std::nullopt;
  std::string out(libdeflate_gzip_compress_bound(compressor.get(), body.size()), '\0');
  const std::size_t written =
      libdeflate_gzip_compress(compressor.get(), body.data(), body.size(), out.data(), out.size());
  if (written == 0 || written >= body.size()) return std::nullopt;
  out.resize(written);
  return out;
}

}  // namespace ombrine::sim
