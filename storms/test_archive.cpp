#include "storms/test_archive.hpp"

#include <libdeflate.h>

namespace ombrine::testing_zip {

namespace {

void put16(std::string& out, std::uint32_t v) {
  out.push_back(static_cast<char>(v & 0xff));
  out.push_back(static_cast<char>((v >> 8) & 0xff));
}
void put32(std::string& out, std::uint32_t v) {
  put16(out, v & 0xffff);
  put16(out, v >> 16);
}

std::string deflated(const std::string& data) {
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
  std::string out(libdeflate_deflate_compress_bound(compressor, data.size()), '\0');
  out.resize(libdeflate_deflate_compress(compressor, data.data(), data.size(), out.data(), out.size()));
  libdeflate_free_compressor(compressor);
  return out;
}

}  // namespace

std::string buildArchive(const std::vector<Entry>& entries, std::size_t commentLength) {
  std::string body;
  std::string directory;
  for (const auto& entry : entries) {
    const std::string stored = entry.deflate ? deflated(entry.data) : entry.data;
    const std::uint32_t crc = libdeflate_crc32(0, entry.data.data(), entry.data.size());
    const std::uint16_t method = entry.method.value_or(entry.deflate ? 8 : 0);
    const std::uint16_t flags = entry.dataDescriptor ? 0x8 : 0;
    const std::uint32_t offset = static_cast<std::uint32_t>(body.size());
    put32(body, 0x04034b50);
    put16(body, 20);
    put16(body, flags);
    put16(body, method);
    put32(body, 0);
    put32(body, entry.dataDescriptor ? 0 : crc);
    put32(body, entry.dataDescriptor ? 0 : static_cast<std::uint32_t>(stored.size()));
    put32(body, entry.dataDescriptor ? 0 : static_cast<std::uint32_t>(entry.data.size()));
    put16(body, static_cast<std::uint32_t>(entry.name.size()));
    put16(body, 0);
    body += entry.name;
    body += stored;
    if (entry.dataDescriptor) {
      put32(body, 0x08074b50);
      put32(body, crc);
      put32(body, static_cast<std::uint32_t>(stored.size()));
      put32(body, static_cast<std::uint32_t>(entry.data.size()));
    }
    put32(directory, 0x02014b50);
    put16(directory, 20);
    put16(directory, 20);
    put16(directory, flags);
    put16(directory, method);
    put32(directory, 0);
    put32(directory, crc);
    put32(directory, static_cast<std::uint32_t>(stored.size()));
    put32(directory, entry.declaredSize.value_or(static_cast<std::uint32_t>(entry.data.size())));
    put16(directory, static_cast<std::uint32_t>(entry.name.size()));
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0);
    put32(directory, 0);
    put32(directory, offset);
    directory += entry.name;
  }
  std::string out = body + directory;
  put32(out, 0x06054b50);
  put16(out, 0);
  put16(out, 0);
  put16(out, static_cast<std::uint32_t>(entries.size()));
  put16(out, static_cast<std::uint32_t>(entries.size()));
  put32(out, static_cast<std::uint32_t>(directory.size()));
  put32(out, static_cast<std::uint32_t>(body.size()));
  put16(out, static_cast<std::uint32_t>(commentLength));
  out.append(commentLength, 'c');
  return out;
}

}  // namespace ombrine::testing_zip
