#include "persistence/property_list.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace ombrine {

namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr int kMaximumDepth = 512;
// Shared objects let a small file describe a huge tree; decoding stops beyond this many values.
constexpr std::size_t kMaximumDecodedValues = std::size_t{1} << 20;

// ---- writing --------------------------------------------------------------------------------

void appendBigEndian(std::string& out, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) out.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

int widthFor(std::uint64_t largest) {
  if (largest <= 0xFF) return 1;
  if (largest <= 0xFFFF) return 2;
  if (largest <= 0xFFFFFFFF) return 4;
  return 8;
}

void appendInteger(std::string& out, std::int64_t value) {
  if (value < 0) {
    out.push_back('\x13');
    appendBigEndian(out, static_cast<std::uint64_t>(value), 8);
    return;
  }
  const int width = widthFor(static_cast<std::uint64_t>(value));
  out.push_back(static_cast<char>(0x10 | std::countr_zero(static_cast<unsigned>(width))));
  appendBigEndian(out, static_cast<std::uint64_t>(value), width);
}

void appendMarker(std::string& out, unsigned type, std::size_t count) {
  if (count < 15) {
    out.push_back(static_cast<char>(type << 4 | count));
  } else {
    out.push_back(static_cast<char>(type << 4 | 0xF));
    appendInteger(out, static_cast<std::int64_t>(count));
  }
}

void appendDouble(std::string& out, unsigned char marker, double value) {
  out.push_back(static_cast<char>(marker));
  appendBigEndian(out, std::bit_cast<std::uint64_t>(value), 8);
}

// Code points of UTF-8 text, U+FFFD for each byte that starts no valid sequence.
std::vector<char32_t> codePoints(std::string_view s) {
  std::vector<char32_t> out;
  out.reserve(s.size());
  std::size_t i = 0;
  auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  auto follows = [&](std::size_t k) { return k < s.size() && (byte(k) & 0xC0) == 0x80; };
  while (i < s.size()) {
    const unsigned char lead = byte(i);
    char32_t cp = 0xFFFD;
    std::size_t length = 1;
    if (lead < 0x80) {
      cp = lead;
    } else if (lead >= 0xC2 && lead <= 0xDF && follows(i + 1)) {
      cp = (lead & 0x1Fu) << 6 | (byte(i + 1) & 0x3Fu);
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF && follows(i + 1) && follows(i + 2) &&
               !(lead == 0xE0 && byte(i + 1) < 0xA0) && !(lead == 0xED && byte(i + 1) >= 0xA0)) {
      cp = (lead & 0x0Fu) << 12 | (byte(i + 1) & 0x3Fu) << 6 | (byte(i + 2) & 0x3Fu);
      length = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4 && follows(i + 1) && follows(i + 2) && follows(i + 3) &&
               !(lead == 0xF0 && byte(i + 1) < 0x90) && !(lead == 0xF4 && byte(i + 1) >= 0x90)) {
      cp = (lead & 0x07u) << 18 | (byte(i + 1) & 0x3Fu) << 12 | (byte(i + 2) & 0x3Fu) << 6 | (byte(i + 3) & 0x3Fu);
      length = 4;
    }
    out.push_back(cp);
    i += length;
  }
  return out;
}

void appendString(std::string& out, std::string_view s) {
  bool ascii = true;
  for (char c : s) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  if (ascii) {
    appendMarker(out, 0x5, s.size());
    out.append(s);
    return;
  }
  std::vector<std::uint16_t> units;
  for (char32_t cp : codePoints(s)) {
    if (cp >= 0x10000) {
      units.push_back(static_cast<std::uint16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      units.push_back(static_cast<std::uint16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      units.push_back(static_cast<std::uint16_t>(cp));
    }
  }
  appendMarker(out, 0x6, units.size());
  for (std::uint16_t unit : units) appendBigEndian(out, unit, 2);
}

std::size_t objectCount(const StoreValue& value) {
  if (const auto* array = std::get_if<StoreArray>(&value.value)) {
    std::size_t n = 1;
    for (const StoreValue& element : *array) n += objectCount(element);
    return n;
  }
  if (const auto* dictionary = std::get_if<StoreDictionary>(&value.value)) {
    std::size_t n = 1 + dictionary->size();
    for (const auto& [key, element] : *dictionary) n += objectCount(element);
    return n;
  }
  return 1;
}

class Encoder {
 public:
  explicit Encoder(std::size_t count) : refWidth_(widthFor(count)) { objects_.reserve(count); }

  // Adds `value` and its children in preorder; returns its reference.
  std::uint64_t add(const StoreValue& value) {
    const std::uint64_t ref = objects_.size();
    objects_.emplace_back();
    std::string bytes = std::visit([this](const auto& v) { return encode(v); }, value.value);
    objects_[ref] = std::move(bytes);
    return ref;
  }

  std::string finish() const {
    std::string out(kMagic);
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const std::string& object : objects_) {
      offsets.push_back(out.size());
      out.append(object);
    }
    const std::uint64_t tableOffset = out.size();
    const int offsetWidth = widthFor(offsets.back());
    for (std::uint64_t offset : offsets) appendBigEndian(out, offset, offsetWidth);
    out.append(6, '\0');
    out.push_back('\0');  // sort version
    out.push_back(static_cast<char>(offsetWidth));
    out.push_back(static_cast<char>(refWidth_));
    appendBigEndian(out, objects_.size(), 8);
    appendBigEndian(out, 0, 8);  // the top object is the first
    appendBigEndian(out, tableOffset, 8);
    return out;
  }

 private:
  std::string encode(bool b) { return std::string(1, b ? '\x09' : '\x08'); }
  std::string encode(std::int64_t i) {
    std::string out;
    appendInteger(out, i);
    return out;
  }
  std::string encode(double d) {
    std::string out;
    appendDouble(out, 0x23, d);
    return out;
  }
  std::string encode(const std::string& s) {
    std::string out;
    appendString(out, s);
    return out;
  }
  std::string encode(const StoreDate& date) {
    std::string out;
    appendDouble(out, 0x33, date.secondsSince2001);
    return out;
  }
  std::string encode(const StoreData& data) {
    std::string out;
    appendMarker(out, 0x4, data.bytes.size());
    out.append(data.bytes);
    return out;
  }
  std::string encode(const StoreArray& array) {
    std::vector<std::uint64_t> refs;
    refs.reserve(array.size());
    for (const StoreValue& element : array) refs.push_back(add(element));
    std::string out;
    appendMarker(out, 0xA, array.size());
    for (std::uint64_t ref : refs) appendBigEndian(out, ref, refWidth_);
    return out;
  }
  std::string encode(const StoreDictionary& dictionary) {
    std::vector<std::uint64_t> keys;
    std::vector<std::uint64_t> values;
    for (const auto& [key, element] : dictionary) {
      keys.push_back(add(StoreValue{key}));
      values.push_back(add(element));
    }
    std::string out;
    appendMarker(out, 0xD, dictionary.size());
    for (std::uint64_t ref : keys) appendBigEndian(out, ref, refWidth_);
    for (std::uint64_t ref : values) appendBigEndian(out, ref, refWidth_);
    return out;
  }

  const int refWidth_;
  std::vector<std::string> objects_;
};

// ---- reading --------------------------------------------------------------------------------

[[noreturn]] void fail(const std::string& problem) { throw PropertyListError("binary property list: " + problem); }

void appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | cp >> 6));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | cp >> 12));
    out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | cp >> 18));
    out.push_back(static_cast<char>(0x80 | (cp >> 12 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp >> 6 & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : bytes_(bytes) {
    if (bytes.size() < kMagic.size() + kTrailerSize || bytes.substr(0, kMagic.size()) != kMagic) {
      fail("not a bplist00 document");
    }
    const std::size_t trailer = bytes.size() - kTrailerSize;
    offsetWidth_ = byteAt(trailer + 6);
    refWidth_ = byteAt(trailer + 7);
    count_ = bigEndian(trailer + 8, 8);
    top_ = bigEndian(trailer + 16, 8);
    tableOffset_ = bigEndian(trailer + 24, 8);
    if (offsetWidth_ < 1 || offsetWidth_ > 8 || refWidth_ < 1 || refWidth_ > 8) fail("bad integer widths");
    if (count_ == 0 || top_ >= count_) fail("bad object count or top object");
    if (tableOffset_ < kMagic.size() || tableOffset_ > trailer || count_ > (trailer - tableOffset_) / offsetWidth_) {
      fail("offset table out of bounds");
    }
    end_ = tableOffset_;
    onPath_.assign(count_, false);
  }

  StoreValue decode() { return object(top_, 0); }

 private:
  unsigned byteAt(std::uint64_t at) const { return static_cast<unsigned char>(bytes_[at]); }

  std::uint64_t bigEndian(std::uint64_t at, unsigned width) const {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < width; ++i) value = value << 8 | byteAt(at + i);
    return value;
  }

  // Precondition for reading `length` bytes at `at` of the object area.
  void need(std::uint64_t at, std::uint64_t length) const {
    if (at > end_ || length > end_ - at) fail("object runs past the object area");
  }

  // The element count after a marker with low nibble `info`; advances `at` past it.
  std::uint64_t count(unsigned info, std::uint64_t& at) const {
    if (info != 0xF) return info;
    need(at, 1);
    const unsigned marker = byteAt(at);
    if (marker >> 4 != 0x1 || (marker & 0xF) > 3) fail("bad length marker");
    const unsigned width = 1u << (marker & 0xF);
    need(at + 1, width);
    const std::uint64_t n = bigEndian(at + 1, width);
    at += 1 + width;
    return n;
  }

  std::uint64_t ref(std::uint64_t at) const { return bigEndian(at, refWidth_); }

  StoreValue object(std::uint64_t index, int depth) {
    if (index >= count_) fail("object reference out of range");
    if (depth > kMaximumDepth) fail("nesting too deep");
    if (onPath_[index]) fail("an object contains itself");
    if (++decoded_ > kMaximumDecodedValues) fail("too many values");
    const std::uint64_t offset = bigEndian(tableOffset_ + index * offsetWidth_, offsetWidth_);
    if (offset < kMagic.size()) fail("object offset out of bounds");
    need(offset, 1);
    const unsigned marker = byteAt(offset);
    const unsigned info = marker & 0xF;
    std::uint64_t at = offset + 1;
    switch (marker >> 4) {
      case 0x0:
        if (marker == 0x08) return StoreValue{false};
        if (marker == 0x09) return StoreValue{true};
        fail("unsupported object kind");
      case 0x1: return integer(info, at);
      case 0x2: {
        if (info == 2) {
          need(at, 4);
          return StoreValue{static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(at, 4))))};
        }
        if (info != 3) fail("bad real width");
        need(at, 8);
        return StoreValue{std::bit_cast<double>(bigEndian(at, 8))};
      }
      case 0x3:
        if (marker != 0x33) fail("bad date marker");
        need(at, 8);
        return StoreValue{StoreDate{std::bit_cast<double>(bigEndian(at, 8))}};
      case 0x4: {
        const std::uint64_t n = count(info, at);
        need(at, n);
        return StoreValue{StoreData{std::string(bytes_.substr(at, n))}};
      }
      case 0x5:
      case 0x6: return StoreValue{string(marker, at)};
      case 0xA: {
        const std::uint64_t n = count(info, at);
        if (n > end_ / refWidth_) fail("array runs past the object area");
        need(at, n * refWidth_);
        StoreArray array;
        array.reserve(n);
        onPath_[index] = true;
        for (std::uint64_t i = 0; i < n; ++i) array.push_back(object(ref(at + i * refWidth_), depth + 1));
        onPath_[index] = false;
        return StoreValue{std::move(array)};
      }
      case 0xD: {
        const std::uint64_t n = count(info, at);
        if (n > end_ / refWidth_ / 2) fail("dictionary runs past the object area");
        need(at, 2 * n * refWidth_);
        StoreDictionary dictionary;
        onPath_[index] = true;
        for (std::uint64_t i = 0; i < n; ++i) {
          std::string key = keyString(ref(at + i * refWidth_));
          StoreValue value = object(ref(at + (n + i) * refWidth_), depth + 1);
          dictionary.insert_or_assign(std::move(key), std::move(value));
        }
        onPath_[index] = false;
        return StoreValue{std::move(dictionary)};
      }
      default: fail("unsupported object kind");
    }
  }

  StoreValue integer(unsigned info, std::uint64_t at) const {
    if (info <= 3) {
      const unsigned width = 1u << info;
      need(at, width);
      const std::uint64_t raw = bigEndian(at, width);
      // 1, 2 and 4 bytes are unsigned; 8 bytes are two's complement.
      return StoreValue{static_cast<std::int64_t>(raw)};
    }
    if (info == 4) {
      need(at, 16);
      if (bigEndian(at, 8) != 0) fail("integer beyond 64 bits");
      const std::uint64_t raw = bigEndian(at + 8, 8);
      if (raw <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return StoreValue{static_cast<std::int64_t>(raw)};
      }
      return StoreValue{static_cast<double>(raw)};
    }
    fail("bad integer width");
  }

  std::string keyString(std::uint64_t index) {
    if (index >= count_) fail("object reference out of range");
    const std::uint64_t offset = bigEndian(tableOffset_ + index * offsetWidth_, offsetWidth_);
    if (offset < kMagic.size()) fail("object offset out of bounds");
    need(offset, 1);
    const unsigned marker = byteAt(offset);
    if (marker >> 4 != 0x5 && marker >> 4 != 0x6) fail("dictionary key is not a string");
    std::uint64_t at = offset + 1;
    return string(marker, at);
  }

  std::string string(unsigned marker, std::uint64_t at) const {
    const std::uint64_t n = count(marker & 0xF, at);
    std::string out;
    if (marker >> 4 == 0x5) {
      need(at, n);
      // One byte per character; bytes above 0x7F are taken as Latin-1.
      for (std::uint64_t i = 0; i < n; ++i) appendUtf8(out, byteAt(at + i));
      return out;
    }
    if (n > end_ / 2) fail("string runs past the object area");
    need(at, 2 * n);
    for (std::uint64_t i = 0; i < n; ++i) {
      const auto unit = static_cast<char32_t>(bigEndian(at + 2 * i, 2));
      if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < n) {
        const auto next = static_cast<char32_t>(bigEndian(at + 2 * i + 2, 2));
        if (next >= 0xDC00 && next <= 0xDFFF) {
          appendUtf8(out, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
          ++i;
          continue;
        }
      }
      appendUtf8(out, unit >= 0xD800 && unit <= 0xDFFF ? 0xFFFD : unit);
    }
    return out;
  }

  std::string_view bytes_;
  unsigned offsetWidth_ = 0;
  unsigned refWidth_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::uint64_t tableOffset_ = 0;
  std::uint64_t end_ = 0;
  std::vector<bool> onPath_;
  std::size_t decoded_ = 0;
};

}  // namespace

std::string encodeBinaryPropertyList(const StoreValue& value) {
  const std::size_t count = objectCount(value);
  if (count > std::numeric_limits<std::uint32_t>::max())
    throw PropertyListError("binary property list: too many objects");
  Encoder encoder(count);
  encoder.add(value);
  return encoder.finish();
}

StoreValue decodeBinaryPropertyList(std::string_view bytes) { return Decoder(bytes).decode(); }

}  // namespace ombrine
