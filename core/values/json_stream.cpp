#include "core/values/json_stream.hpp"

#include <boost/json/basic_parser_impl.hpp>

namespace ombrine {

// Adapts the parser's events to the stream: values inside a skipped value are dropped, values
// inside a captured one go to the capture, everything else to the innermost frame.
class JsonStreamHandler {
 public:
  static constexpr size_t max_object_size = boost::json::object::max_size();
  static constexpr size_t max_array_size = boost::json::array::max_size();
  static constexpr size_t max_key_size = boost::json::string::max_size();
  static constexpr size_t max_string_size = boost::json::string::max_size();

  using error_code = boost::json::error_code;
  using string_view = boost::json::string_view;

  explicit JsonStreamHandler(JsonStream& stream) : s_(stream) {}

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_object_begin(error_code&) {
    s_.beginContainer(true);
    return true;
  }
  bool on_object_end(size_t n, error_code&) {
    s_.endContainer(true, n);
    return true;
  }
  bool on_array_begin(error_code&) {
    s_.beginContainer(false);
    return true;
  }
  bool on_array_end(size_t n, error_code&) {
    s_.endContainer(false, n);
    return true;
  }

  bool on_key_part(string_view s, size_t, error_code&) {
    part(s);
    return true;
  }
  bool on_key(string_view s, size_t, error_code&) {
    if (s_.skipDepth_ > 0) return true;
    if (s_.captureDepth_ > 0) {
      s_.capture_.push_key(s);
      return true;
    }
    if (!s_.frames_[s_.depth_]->key(s_, assemble(s))) s_.skipNext_ = true;
    s_.text_.clear();
    return true;
  }

  bool on_string_part(string_view s, size_t, error_code&) {
    part(s);
    return true;
  }
  bool on_string(string_view s, size_t, error_code&) {
    if (s_.skipDepth_ > 0) return true;
    if (s_.captureDepth_ > 0) {
      s_.capture_.push_string(s);
      return true;
    }
    JsonScalar value;
    value.kind = boost::json::kind::string;
    value.string = assemble(s);
    s_.deliver(value);
    s_.text_.clear();
    return true;
  }

  bool on_number_part(string_view s, error_code&) {
    number_.part(s);
    return true;
  }
  bool on_int64(std::int64_t i, string_view, error_code&) {
    number_.clear();
    JsonScalar value;
    value.kind = boost::json::kind::int64;
    value.int64 = i;
    scalar(value, [&](boost::json::value_stack& capture) { capture.push_int64(i); });
    return true;
  }
  bool on_uint64(std::uint64_t u, string_view, error_code&) {
    number_.clear();
    JsonScalar value;
    value.kind = boost::json::kind::uint64;
    value.uint64 = u;
    scalar(value, [&](boost::json::value_stack& capture) { capture.push_uint64(u); });
    return true;
  }
  bool on_double(double approximate, string_view s, error_code& ec) {
    // Converted even inside skipped values: a number out of range is bad JSON wherever it is.
    JsonScalar value;
    value.kind = boost::json::kind::double_;
    if (!number_.finish(s, approximate, value.number)) {
      ec = boost::json::error::exponent_overflow;
      return false;
    }
    scalar(value, [&](boost::json::value_stack& capture) { capture.push_double(value.number); });
    return true;
  }
  bool on_bool(bool b, error_code&) {
    JsonScalar value;
    value.kind = boost::json::kind::bool_;
    value.boolean = b;
    scalar(value, [&](boost::json::value_stack& capture) { capture.push_bool(b); });
    return true;
  }
  bool on_null(error_code&) {
    scalar(JsonScalar{}, [](boost::json::value_stack& capture) { capture.push_null(); });
    return true;
  }
  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

 private:
  // A number, boolean or null: dropped, captured, or delivered to the innermost frame.
  template <class Capture>
  void scalar(const JsonScalar& value, Capture&& capture) {
    if (s_.skipDepth_ > 0) return;
    if (s_.captureDepth_ > 0) {
      capture(s_.capture_);
      return;
    }
    s_.deliver(value);
  }

  // Part of a key or string that continues in the next event.
  void part(string_view s) {
    if (s_.skipDepth_ > 0) return;
    if (s_.captureDepth_ > 0) {
      s_.capture_.push_chars(s);
    } else {
      s_.text_.append(s.data(), s.size());
    }
  }

  // The whole key or string: the last part, or all parts joined.
  std::string_view assemble(string_view last) {
    if (s_.text_.empty()) return std::string_view(last.data(), last.size());
    s_.text_.append(last.data(), last.size());
    return s_.text_;
  }

  JsonStream& s_;
  JsonNumberText number_;
};

JsonStream::~JsonStream() {
  while (depth_ != static_cast<size_t>(-1)) pop();
}

void JsonStream::pop() noexcept {
  frames_[depth_]->~JsonStreamFrame();
  frames_[depth_] = nullptr;
  --depth_;
}

void JsonStream::deliver(const JsonScalar& value) {
  if (skipNext_) {
    skipNext_ = false;
    return;
  }
  if (captureTarget_ != nullptr) {
    boost::json::value& target = *captureTarget_;
    captureTarget_ = nullptr;
    switch (value.kind) {
      case boost::json::kind::bool_: target = value.boolean; break;
      case boost::json::kind::int64: target = value.int64; break;
      case boost::json::kind::uint64: target = value.uint64; break;
      case boost::json::kind::double_: target = value.number; break;
      case boost::json::kind::string: target = boost::json::string(value.string); break;
      default: target = nullptr; break;
    }
    return;
  }
  frames_[depth_]->scalar(*this, value);
}

void JsonStream::beginContainer(bool object) {
  if (skipDepth_ > 0) {
    ++skipDepth_;
  } else if (captureDepth_ > 0) {
    ++captureDepth_;
  } else if (skipNext_) {
    skipNext_ = false;
    skipDepth_ = 1;
  } else if (captureTarget_ != nullptr) {
    capture_.reset(boost::json::storage_ptr());
    captureDepth_ = 1;
  } else if (object) {
    frames_[depth_]->beginObject(*this);
  } else {
    frames_[depth_]->beginArray(*this);
  }
}

void JsonStream::endContainer(bool object, size_t size) {
  if (skipDepth_ > 0) {
    --skipDepth_;
  } else if (captureDepth_ > 0) {
    if (object) {
      capture_.push_object(size);
    } else {
      capture_.push_array(size);
    }
    if (--captureDepth_ == 0) finishCapture();
  } else {
    frames_[depth_]->end(*this);
    pop();
  }
}

void JsonStream::finishCapture() {
  *captureTarget_ = capture_.release();
  captureTarget_ = nullptr;
}

void JsonStream::read(std::string_view text) {
  boost::json::parse_options options;
  options.max_depth = kMaxDepth;
  boost::json::basic_parser<JsonStreamHandler> parser(options, *this);
  boost::json::error_code ec;
  const size_t consumed = parser.write_some(false, text.data(), text.size(), ec);
  if (!ec && consumed < text.size()) ec = boost::json::error::extra_data;
  if (ec) throw DecodingError("invalid JSON at byte " + std::to_string(consumed) + ": " + ec.message());
}

}  // namespace ombrine
