#pragma once
// Runs one command and turns what it raises into the exit code and one line on stderr,
// "ombrine <command>: <text>".
//
// The command's own result is the exit code when it returns. A failure is worded by the first
// of the command's `wordings` that takes it; else, when `wordOthers`, by failureText for
// `service`, with exit code 1; else it propagates (main's last resort). Runs on the caller's
// thread; never raises what a wording takes.

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/failure_text.hpp"

namespace ombrine::app {

struct FailureLine {
  int exitCode = 1;
  std::string text;
};

// Words the failures of one type (or nothing for any other).
using FailureWording = std::function<std::optional<FailureLine>(const std::exception&)>;

// Rewrites a failure's own text before it is shown (to neutralise what the user typed, say).
using FailureTextTransform = std::function<std::string(std::string_view)>;

// Failures of type `Error` exit with `exitCode` and read `prefix` + their own text (as
// `transform` rewrites it, when given), or only `fixedText` when one is given.
template <class Error>
FailureWording wordAs(int exitCode, std::string prefix = {}, std::optional<std::string> fixedText = std::nullopt,
                      FailureTextTransform transform = {}) {
  return [exitCode, prefix = std::move(prefix), fixedText = std::move(fixedText),
          transform = std::move(transform)](const std::exception& error) -> std::optional<FailureLine> {
    if (dynamic_cast<const Error*>(&error) == nullptr) return std::nullopt;
    if (fixedText) return FailureLine{exitCode, *fixedText};
    return FailureLine{exitCode, prefix + (transform ? transform(error.what()) : std::string(error.what()))};
  };
}

// Failures of type `Error` exit with `exitCode` and read their own text as `transform` rewrites it.
template <class Error>
FailureWording wordAs(int exitCode, FailureTextTransform transform) {
  return wordAs<Error>(exitCode, {}, std::nullopt, std::move(transform));
}

// Failures of type `Error` exit 1, worded by failureText for `service`.
template <class Error>
FailureWording wordByFailureText(std::string_view service = "the weather service") {
  return [service](const std::exception& error) -> std::optional<FailureLine> {
    if (dynamic_cast<const Error*>(&error) == nullptr) return std::nullopt;
    return FailureLine{1, failureText(std::current_exception(), service)};
  };
}

struct CommandReporting {
  std::vector<FailureWording> wordings;
  std::string_view service = "the weather service";
  bool wordOthers = true;
};

void runReporting(std::string_view command, const std::function<int()>& run, const CommandReporting& reporting);

// The wording of the commands that ask a service about a place (alerts, daemon): a bad place
// query is a usage failure (exit 2), an HTTP failure "could not reach <reached>: <what>", the
// rest by failureText for `service`.
CommandReporting placeCommandReporting(std::string_view reached, std::string_view service);

}  // namespace ombrine::app
