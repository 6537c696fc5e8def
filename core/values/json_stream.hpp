#pragma once
// Decoding JSON records while the text is read, without building a document first.
//
// The streaming decoder gives the same results and messages as the DOM decoders of
// core/values/value_json.hpp for the same record descriptions (`jsonMembers` tables and the scalar
// rules), at a fraction of the cost: no document is allocated, and every value goes straight to
// its field. Use it for whole documents held as text; use the DOM decoders for records embedded
// in larger documents. Two differences, both on invalid input: a fault is reported where it is
// met in the text (the DOM decoders report the first fault in declaration order), and with a
// key given twice every occurrence must be valid (the DOM keeps only the last).
//
// Frames. Each open object or array being decoded has a frame on the stream's stack: records
// (`JsonRecordFrame`), arrays (`JsonVectorFrame`) and hand-written frames for types with a shape
// of their own. A frame receives the events of its own members or elements; a value it does not
// want is skipped, a value kept as raw JSON is captured into a DOM value.
//
// Not thread-safe; one stream per decode. Raises DecodingError.

#include <boost/json/value.hpp>
#include <boost/json/value_stack.hpp>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/values/value_json.hpp"

namespace ombrine {

class JsonStream;

// One open object or array of the document. Frames are created by `JsonStream::push` and live
// until their object or array ends.
class JsonStreamFrame {
 public:
  virtual ~JsonStreamFrame() = default;

  // An object member's key: true when the frame takes it, false to skip its value.
  virtual bool key(JsonStream& stream, std::string_view key) { return false; }
  // A scalar value: the value of the last key, or the next array element.
  virtual void scalar(JsonStream& stream, const JsonScalar& value) = 0;
  // An object or array value opens; the frame pushes the frame that decodes it (or raises).
  virtual void beginObject(JsonStream& stream) = 0;
  virtual void beginArray(JsonStream& stream) = 0;
  // The frame's own object or array closed.
  virtual void end(JsonStream& stream) {}
};

class JsonStream {
 public:
  static constexpr size_t kMaxDepth = 64;

  JsonStream() = default;
  JsonStream(const JsonStream&) = delete;
  JsonStream& operator=(const JsonStream&) = delete;
  ~JsonStream();

  // The path of the document value.
  const JsonPath& rootPath() const noexcept { return root_; }

  // Opens a frame for the value that is starting. The first frame pushed receives the document
  // value itself (it is never ended).
  template <class Frame, class... Args>
  void push(Args&&... args) {
    static_assert(sizeof(Frame) <= kSlotSize && alignof(Frame) <= alignof(std::max_align_t));
    ++depth_;
    frames_[depth_] = new (slots_[depth_].bytes) Frame(std::forward<Args>(args)...);
  }

  // The next value (after the key just taken) is read and dropped.
  void skipNextValue() noexcept { skipNext_ = true; }
  // The next value, whatever it is, is stored into `target` as a DOM value in the default
  // storage (a null stays null).
  void captureNextValue(boost::json::value& target) noexcept { captureTarget_ = &target; }

  // Reads `text` (one JSON document, white space around it allowed). Raises DecodingError for
  // bad JSON ("invalid JSON at byte N: ...") or whatever the frames raise.
  void read(std::string_view text);

 private:
  friend class JsonStreamHandler;

  static constexpr size_t kSlotSize = 192;
  struct Slot {
    alignas(std::max_align_t) unsigned char bytes[kSlotSize];
  };

  void pop() noexcept;
  void deliver(const JsonScalar& value);
  void beginContainer(bool object);
  void endContainer(bool object, size_t size);
  void finishCapture();

  JsonPath root_;
  std::array<Slot, kMaxDepth + 2> slots_;
  std::array<JsonStreamFrame*, kMaxDepth + 2> frames_{};
  size_t depth_ = static_cast<size_t>(-1);  // the first push makes it 0
  bool skipNext_ = false;
  size_t skipDepth_ = 0;
  boost::json::value* captureTarget_ = nullptr;
  size_t captureDepth_ = 0;
  boost::json::value_stack capture_;
  std::string text_;  // a key or string delivered in parts
};

// The index of `key` in `keys`, searching from `hint` onwards first: members usually come in
// declaration order, with absent optional ones left out. keys.size() when it is not there.
inline size_t findJsonKey(std::span<const std::string_view> keys, std::string_view key, size_t hint) noexcept {
  for (size_t i = hint; i < keys.size(); ++i) {
    if (jsonKeyEquals(keys[i], key)) return i;
  }
  for (size_t i = 0; i < hint && i < keys.size(); ++i) {
    if (jsonKeyEquals(keys[i], key)) return i;
  }
  return keys.size();
}

// -- How a field of each kind takes its value --------------------------------------------------

template <class T>
inline constexpr bool kIsJsonVector = false;
template <class T>
inline constexpr bool kIsJsonVector<std::vector<T>> = true;

template <JsonRecord T>
class JsonRecordFrame;
template <class T>
class JsonVectorFrame;

// A scalar arrives for `field` (at `path`).
template <class T>
void streamScalar(JsonStream& stream, const JsonScalar& value, const JsonPath& path, T& field) {
  if constexpr (kIsJsonOptional<T>) {
    if (value.kind == boost::json::kind::null) {
      field.reset();
    } else {
      streamScalar(stream, value, path, field.emplace());
    }
  } else if constexpr (JsonScalarType<T>) {
    decodeScalar(value, path, field);
  } else if constexpr (kIsJsonVector<T>) {
    failExpected(value.kind, path, "an array");
  } else {
    failExpected(value.kind, path, "an object");
  }
}

// An object starts for `field`.
template <class T>
void streamObject(JsonStream& stream, const JsonPath& path, T& field) {
  if constexpr (kIsJsonOptional<T>) {
    streamObject(stream, path, field.emplace());
  } else if constexpr (JsonRecord<T>) {
    field = T{};
    stream.push<JsonRecordFrame<T>>(path, field);
  } else if constexpr (kIsJsonVector<T>) {
    failExpected(boost::json::kind::object, path, "an array");
  } else {
    JsonScalar container;
    container.kind = boost::json::kind::object;
    decodeScalar(container, path, field);  // raises the type's own "expected ..." message
  }
}

// An array starts for `field`.
template <class T>
void streamArray(JsonStream& stream, const JsonPath& path, T& field) {
  if constexpr (kIsJsonOptional<T>) {
    streamArray(stream, path, field.emplace());
  } else if constexpr (kIsJsonVector<T>) {
    field.clear();
    stream.push<JsonVectorFrame<typename T::value_type>>(path, field);
  } else if constexpr (JsonScalarType<T>) {
    JsonScalar container;
    container.kind = boost::json::kind::array;
    decodeScalar(container, path, field);
  } else {
    failExpected(boost::json::kind::array, path, "an object");
  }
}

// -- Frames ---------------------------------------------------------------------------------

// The document value, decoded into `target`.
template <class T>
class JsonDocumentFrame final : public JsonStreamFrame {
 public:
  JsonDocumentFrame(const JsonPath& path, T& target) : path_(path), target_(target) {}
  void scalar(JsonStream& stream, const JsonScalar& value) override { streamScalar(stream, value, path_, target_); }
  void beginObject(JsonStream& stream) override { streamObject(stream, path_, target_); }
  void beginArray(JsonStream& stream) override { streamArray(stream, path_, target_); }

 private:
  const JsonPath& path_;
  T& target_;
};

// The elements of an array field.
template <class T>
class JsonVectorFrame final : public JsonStreamFrame {
 public:
  JsonVectorFrame(const JsonPath& path, std::vector<T>& target) : path_(path), target_(target) {}

  void scalar(JsonStream& stream, const JsonScalar& value) override {
    nextElement();
    streamScalar(stream, value, elementPath_, target_.emplace_back());
  }
  void beginObject(JsonStream& stream) override {
    nextElement();
    streamObject(stream, elementPath_, target_.emplace_back());
  }
  void beginArray(JsonStream& stream) override {
    nextElement();
    streamArray(stream, elementPath_, target_.emplace_back());
  }

 private:
  void nextElement() { elementPath_ = path_.index(target_.size()); }

  const JsonPath& path_;
  std::vector<T>& target_;
  JsonPath elementPath_;
};

// The members of a record, by its `jsonMembers` table. Missing required keys are reported at the
// end of the object, the first in declaration order.
template <JsonRecord T>
class JsonRecordFrame final : public JsonStreamFrame {
  static constexpr const auto& kMembers = jsonMembers(static_cast<const T*>(nullptr));
  static constexpr size_t kCount = std::tuple_size_v<std::remove_cvref_t<decltype(kMembers)>>;
  static_assert(kCount <= 64, "a record frame tracks at most 64 members");

  using ScalarFn = void (*)(JsonStream&, const JsonScalar&, const JsonPath&, T&);
  using ContainerFn = void (*)(JsonStream&, const JsonPath&, T&);

  template <size_t I>
  using FieldType = std::remove_cvref_t<decltype(std::declval<T&>().*(std::get<I>(kMembers).field))>;

  template <size_t... I>
  static constexpr std::array<std::string_view, kCount> keys(std::index_sequence<I...>) {
    return {std::get<I>(kMembers).key...};
  }
  template <size_t... I>
  static constexpr std::uint64_t required(std::index_sequence<I...>) {
    return ((kIsJsonOptional<FieldType<I>> ? std::uint64_t{0} : std::uint64_t{1} << I) | ... | std::uint64_t{0});
  }
  template <size_t... I>
  static constexpr std::array<ScalarFn, kCount> scalarTable(std::index_sequence<I...>) {
    return {[](JsonStream& s, const JsonScalar& v, const JsonPath& p, T& t) {
      streamScalar(s, v, p, t.*(std::get<I>(kMembers).field));
    }...};
  }
  template <size_t... I>
  static constexpr std::array<ContainerFn, kCount> objectTable(std::index_sequence<I...>) {
    return {[](JsonStream& s, const JsonPath& p, T& t) { streamObject(s, p, t.*(std::get<I>(kMembers).field)); }...};
  }
  template <size_t... I>
  static constexpr std::array<ContainerFn, kCount> arrayTable(std::index_sequence<I...>) {
    return {[](JsonStream& s, const JsonPath& p, T& t) { streamArray(s, p, t.*(std::get<I>(kMembers).field)); }...};
  }

  static constexpr auto kIndices = std::make_index_sequence<kCount>();
  static constexpr std::array<std::string_view, kCount> kKeys = keys(kIndices);
  static constexpr std::uint64_t kRequired = required(kIndices);

 public:
  JsonRecordFrame(const JsonPath& path, T& target) : path_(path), target_(target) {}

  bool key(JsonStream&, std::string_view key) override {
    const size_t index = findJsonKey(kKeys, key, next_);
    if (index == kCount) return false;
    pending_ = index;
    next_ = index + 1;
    seen_ |= std::uint64_t{1} << index;
    memberPath_ = path_.key(kKeys[index]);
    return true;
  }

  void scalar(JsonStream& stream, const JsonScalar& value) override {
    static constexpr auto kScalar = scalarTable(kIndices);
    kScalar[pending_](stream, value, memberPath_, target_);
  }
  void beginObject(JsonStream& stream) override {
    static constexpr auto kObject = objectTable(kIndices);
    kObject[pending_](stream, memberPath_, target_);
  }
  void beginArray(JsonStream& stream) override {
    static constexpr auto kArray = arrayTable(kIndices);
    kArray[pending_](stream, memberPath_, target_);
  }

  void end(JsonStream&) override {
    if (const std::uint64_t missing = kRequired & ~seen_; missing != 0) {
      path_.key(kKeys[static_cast<size_t>(std::countr_zero(missing))]).fail("missing key");
    }
    finishDecoding(target_);
  }

 private:
  const JsonPath& path_;
  T& target_;
  JsonPath memberPath_;
  std::uint64_t seen_ = 0;
  size_t pending_ = 0;
  size_t next_ = 0;
};

// Decodes the document `text` into `out` with the streaming decoder.
template <class T>
void decodeJsonText(std::string_view text, T& out) {
  JsonStream stream;
  stream.push<JsonDocumentFrame<T>>(stream.rootPath(), out);
  stream.read(text);
}

}  // namespace ombrine
