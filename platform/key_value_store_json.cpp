#include "platform/key_value_store_json.hpp"

#include "platform/json/json_text.hpp"

#include <boost/json/basic_parser_impl.hpp>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace ombrine {

namespace {

constexpr std::string_view kDateTag = "$date";
constexpr std::string_view kDataTag = "$data";
constexpr std::string_view kDoubleTag = "$double";

// ---- writing --------------------------------------------------------------------------------

void appendKey(std::string& out, std::string_view key) {
  if (!key.empty() && key.front() == '$') {
    std::string escaped = "$";
    escaped.append(key);
    appendJsonString(out, escaped);
  } else {
    appendJsonString(out, key);
  }
  out.push_back(':');
}

void appendDouble(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out.append("{\"$double\":");
    appendJsonString(out, std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf"));
    out.push_back('}');
    return;
  }
  appendJsonNumber(out, value, true);
}

void appendValue(std::string& out, const StoreValue& value);

void appendDictionary(std::string& out, const StoreDictionary& values) {
  out.push_back('{');
  bool first = true;
  for (const auto& [key, member] : values) {
    if (!first) out.push_back(',');
    first = false;
    appendKey(out, key);
    appendValue(out, member);
  }
  out.push_back('}');
}

struct ValueWriter {
  std::string& out;
  void operator()(bool b) const { out.append(b ? "true" : "false"); }
  void operator()(std::int64_t i) const { out.append(std::to_string(i)); }
  void operator()(double d) const { appendDouble(out, d); }
  void operator()(const std::string& s) const { appendJsonString(out, s); }
  void operator()(const StoreDate& date) const {
    out.append("{\"$date\":");
    appendDouble(out, date.secondsSince2001);
    out.push_back('}');
  }
  void operator()(const StoreData& data) const {
    out.append("{\"$data\":");
    appendJsonString(out, encodeBase64(data.bytes));
    out.push_back('}');
  }
  void operator()(const StoreArray& array) const {
    out.push_back('[');
    for (size_t i = 0; i < array.size(); ++i) {
      if (i != 0) out.push_back(',');
      appendValue(out, array[i]);
    }
    out.push_back(']');
  }
  void operator()(const StoreDictionary& dictionary) const { appendDictionary(out, dictionary); }
};

void appendValue(std::string& out, const StoreValue& value) { std::visit(ValueWriter{out}, value.value); }

// ---- reading --------------------------------------------------------------------------------

double exactDouble(std::string_view text) {
  double out = 0.0;
  auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), out);
  if (status != std::errc() || end != text.data() + text.size()) {
    throw std::invalid_argument("number out of range: " + std::string(text));
  }
  return out;
}

// The value of a finished JSON object: a tag, or a dictionary with its keys unescaped.
StoreValue objectValue(std::vector<std::pair<std::string, StoreValue>>& members) {
  if (members.size() == 1) {
    const std::string& key = members.front().first;
    const auto& inner = members.front().second.value;
    if (key == kDateTag) {
      if (const auto* d = std::get_if<double>(&inner)) return StoreValue{StoreDate{*d}};
      if (const auto* i = std::get_if<std::int64_t>(&inner)) return StoreValue{StoreDate{static_cast<double>(*i)}};
      throw std::invalid_argument("\"$date\" needs a number");
    }
    if (key == kDataTag) {
      if (const auto* s = std::get_if<std::string>(&inner)) return StoreValue{StoreData{decodeBase64(*s)}};
      throw std::invalid_argument("\"$data\" needs a base64 string");
    }
    if (key == kDoubleTag) {
      const auto* s = std::get_if<std::string>(&inner);
      if (s && *s == "nan") return StoreValue{std::numeric_limits<double>::quiet_NaN()};
      if (s && *s == "inf") return StoreValue{std::numeric_limits<double>::infinity()};
      if (s && *s == "-inf") return StoreValue{-std::numeric_limits<double>::infinity()};
      throw std::invalid_argument("\"$double\" needs \"nan\", \"inf\" or \"-inf\"");
    }
  }
  StoreDictionary dictionary;
  for (auto& [key, member] : members) {
    std::string name = key.size() >= 2 && key[0] == '$' && key[1] == '$' ? key.substr(1) : std::move(key);
    dictionary.insert_or_assign(std::move(name), std::move(member));
  }
  return StoreValue{std::move(dictionary)};
}

// Builds StoreValues straight from the parser's events; numbers are converted from their text
// with std::from_chars, which rounds correctly (the parser's own conversion may not).
class StoreValueHandler {
 public:
  static constexpr size_t max_object_size = std::numeric_limits<std::uint32_t>::max();
  static constexpr size_t max_array_size = std::numeric_limits<std::uint32_t>::max();
  static constexpr size_t max_key_size = std::numeric_limits<std::uint32_t>::max();
  static constexpr size_t max_string_size = std::numeric_limits<std::uint32_t>::max();

  using error_code = boost::json::error_code;
  using string_view = boost::json::string_view;

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_object_begin(error_code&) {
    frames_.push_back(Frame{true, {}, {}, {}});
    return true;
  }
  bool on_object_end(size_t, error_code& ec) {
    return guarded(ec, [&] {
      Frame frame = std::move(frames_.back());
      frames_.pop_back();
      push(objectValue(frame.members));
    });
  }
  bool on_array_begin(error_code&) {
    frames_.push_back(Frame{false, {}, {}, {}});
    return true;
  }
  bool on_array_end(size_t, error_code&) {
    Frame frame = std::move(frames_.back());
    frames_.pop_back();
    push(StoreValue{std::move(frame.array)});
    return true;
  }
  bool on_key_part(string_view s, size_t, error_code&) {
    chars_.append(s.data(), s.size());
    return true;
  }
  bool on_key(string_view s, size_t, error_code&) {
    chars_.append(s.data(), s.size());
    frames_.back().key = std::exchange(chars_, {});
    return true;
  }
  bool on_string_part(string_view s, size_t, error_code&) {
    chars_.append(s.data(), s.size());
    return true;
  }
  bool on_string(string_view s, size_t, error_code&) {
    chars_.append(s.data(), s.size());
    push(StoreValue{std::exchange(chars_, {})});
    return true;
  }
  bool on_number_part(string_view s, error_code&) {
    number_.append(s.data(), s.size());
    return true;
  }
  bool on_int64(std::int64_t i, string_view, error_code&) {
    number_.clear();
    push(StoreValue{i});
    return true;
  }
  bool on_uint64(std::uint64_t, string_view s, error_code& ec) { return on_double(0.0, s, ec); }
  bool on_double(double, string_view s, error_code& ec) {
    number_.append(s.data(), s.size());
    return guarded(ec, [&] { push(StoreValue{exactDouble(std::exchange(number_, {}))}); });
  }
  bool on_bool(bool b, error_code&) {
    push(StoreValue{b});
    return true;
  }
  bool on_null(error_code& ec) {
    return guarded(ec, [] { throw std::invalid_argument("null has no stored value form"); });
  }
  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

  std::optional<StoreValue> root;
  std::string problem;

 private:
  struct Frame {
    bool isObject;
    StoreArray array;
    std::vector<std::pair<std::string, StoreValue>> members;
    std::string key;
  };

  void push(StoreValue value) {
    if (frames_.empty()) {
      root = std::move(value);
    } else if (frames_.back().isObject) {
      frames_.back().members.emplace_back(std::move(frames_.back().key), std::move(value));
    } else {
      frames_.back().array.push_back(std::move(value));
    }
  }

  // Turns a refusal of the value rules into a parser error, keeping its text.
  template <class F>
  bool guarded(error_code& ec, F&& f) {
    try {
      f();
      return true;
    } catch (const std::invalid_argument& e) {
      problem = e.what();
      ec = boost::json::error::syntax;
      return false;
    }
  }

  std::vector<Frame> frames_;
  std::string chars_;
  std::string number_;
};

constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string encodeStoreDictionaryJson(const StoreDictionary& values) {
  std::string out;
  appendDictionary(out, values);
  return out;
}

std::string encodeStoreValueJson(const StoreValue& value) {
  std::string out;
  appendValue(out, value);
  return out;
}

StoreDictionary decodeStoreDictionaryJson(std::string_view json) {
  boost::json::parse_options options;
  options.max_depth = 128;
  boost::json::basic_parser<StoreValueHandler> parser(options);
  boost::json::error_code ec;
  const size_t consumed = parser.write_some(false, json.data(), json.size(), ec);
  if (!ec && consumed < json.size()) ec = boost::json::error::extra_data;
  if (ec) {
    const std::string& problem = parser.handler().problem;
    throw std::invalid_argument("byte " + std::to_string(consumed) + ": " + (problem.empty() ? ec.message() : problem));
  }
  auto& root = parser.handler().root;
  auto* dictionary = root ? std::get_if<StoreDictionary>(&root->value) : nullptr;
  if (dictionary == nullptr) throw std::invalid_argument("the document is not a JSON object");
  return std::move(*dictionary);
}

std::string encodeBase64(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  auto at = [&](size_t k) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[k])); };
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t n = at(i) << 16 | at(i + 1) << 8 | at(i + 2);
    for (int shift = 18; shift >= 0; shift -= 6) out.push_back(kBase64Alphabet[(n >> shift) & 63]);
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    const std::uint32_t n = at(i) << 16 | (rest == 2 ? at(i + 1) << 8 : 0);
    out.push_back(kBase64Alphabet[(n >> 18) & 63]);
    out.push_back(kBase64Alphabet[(n >> 12) & 63]);
    out.push_back(rest == 2 ? kBase64Alphabet[(n >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::string decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) throw std::invalid_argument("base64 text length is not a multiple of 4");
  std::string out;
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    std::uint32_t n = 0;
    int padding = 0;
    for (size_t k = 0; k < 4; ++k) {
      const char c = text[i + k];
      std::uint32_t sextet = 0;
      if (c == '=' && i + 4 == text.size() && k >= 2) {
        ++padding;
      } else {
        const size_t position = kBase64Alphabet.find(c);
        if (position == std::string_view::npos || padding > 0) throw std::invalid_argument("invalid base64 text");
        sextet = static_cast<std::uint32_t>(position);
      }
      n = n << 6 | sextet;
    }
    out.push_back(static_cast<char>(n >> 16 & 0xFF));
    if (padding < 2) out.push_back(static_cast<char>(n >> 8 & 0xFF));
    if (padding < 1) out.push_back(static_cast<char>(n & 0xFF));
  }
  return out;
}

}  // namespace ombrine
