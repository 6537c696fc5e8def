#include "sim/zip_writer.hpp"

#include <array>

namespace ombrine::sim {

namespace {

std::array<std::uint32_t, 256> makeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xedb88320u ^ (c >> 1) : c >> 1;
    table[i] = c;
  }
  return table;
}

void put16(std::string& out, std::uint32_t v) {
  out.push_back(static_cast<char>(v & 0xff));
  out.push_back(static_cast<char>((v >> 8) & 0xff));
}

void put32(std::string& out, std::uint32_t v) {
  put16(out, v & 0xffff);
  put16(out, v >> 16);
}

}  // namespace

std::uint32_t crc32(std::string_view data) {
  static const auto table = makeTable();
  std::uint32_t c = 0xffffffffu;
  for (unsigned char byte : data) c = table[(c ^ byte) & 0xff] ^ (c >> 8);
  return c ^ 0xffffffffu;
}

std::string storedZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string out;
  std::string directory;
  for (const auto& [name, data] : entries) {
    const std::uint32_t crc = crc32(data);
    const auto offset = static_cast<std::uint32_t>(out.size());
    const auto size = static_cast<std::uint32_t>(data.size());
    put32(out, 0x04034b50);
    put16(out, 10);  // version needed: stored
    put16(out, 0);   // flags
    put16(out, 0);   // method: stored
    put32(out, 0);   // time and date
    put32(out, crc);
    put32(out, size);
    put32(out, size);
    put16(out, static_cast<std::uint32_t>(name.size()));
    put16(out, 0);
    out += name;
    out += data;

    put32(directory, 0x02014b50);
    put16(directory, 20);
    put16(directory, 10);
    put16(directory, 0);
    put16(directory, 0);
    put32(directory, 0);
    put32(directory, crc);
    put32(directory, size);
    put32(directory, size);
    put16(directory, static_cast<std::uint32_t>(name.size()));
    put16(directory, 0);  // extra
    put16(directory, 0);  // comment
    put16(directory, 0);  // disk
    put16(directory, 0);  // internal attributes
    put32(directory, 0);  // external attributes
    put32(directory, offset);
    directory += name;
  }
  const auto directoryOffset = static_cast<std::uint32_t>(out.size());
  out += directory;
  put32(out, 0x06054b50);
  put16(out, 0);
  put16(out, 0);
  put16(out, static_cast<std::uint32_t>(entries.size()));
  put16(out, static_cast<std::uint32_t>(entries.size()));
  put32(out, static_cast<std::uint32_t>(directory.size()));
  put32(out, directoryOffset);
  put16(out, 0);
  return out;
}

}  // namespace ombrine::sim
