#pragma once
// A line of progress on stderr while the user waits ("waiting for the weather service… 3 s"):
// each `show` replaces the line in place and `wipe` (or destruction) removes it, so the outcome
// prints on a clean line. Only on a terminal; elsewhere it writes nothing. One thread at a time.

#include <cstddef>
#include <string_view>

namespace ombrine::app {

class ProgressLine {
 public:
  // `wanted` false (e.g. with -v, whose lines would be torn by it) shows nothing either.
  explicit ProgressLine(bool wanted = true);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(std::string_view text);
  void wipe();

 private:
  bool enabled_;
  std::size_t width_ = 0;  // terminal columns of what is on the line now
};

}  // namespace ombrine::app
