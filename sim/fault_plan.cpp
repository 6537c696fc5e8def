#include "sim/fault_plan.hpp"

#include <fmt/format.h>

#include <charconv>
#include <stdexcept>
#include <vector>

namespace ombrine::sim {

namespace {

[[noreturn]] void reject(std::string_view spec, std::string_view why) {
  throw std::invalid_argument(fmt::format("bad fault \"{}\": {}", spec, why));
}

// A whole non-negative decimal number, or nothing.
std::optional<long> wholeNumber(std::string_view text) {
  long value = 0;
  if (text.empty() || text.size() > 9) return std::nullopt;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

const char* answerName(Fault::Answer answer) {
  switch (answer) {
    case Fault::Answer::normal: return "normal";
    case Fault::Answer::status: return "status";
    case Fault::Answer::hang: return "hang";
    case Fault::Answer::truncate: return "truncate";
    case Fault::Answer::error200: return "error200";
    case Fault::Answer::malformed: return "malformed";
  }
  return "?";
}

}  // namespace

Fault parseFault(std::string_view spec) {
  if (spec.empty())
    reject(spec, "empty; expected e.g. latency=50, status=503, hang=5000, truncate, error200, malformed, times=2");
  Fault fault;
  bool sawLatency = false, sawTimes = false, sawBehind = false;
  auto setAnswer = [&](Fault::Answer answer) {
    if (fault.answer != Fault::Answer::normal) {
      reject(spec,
             fmt::format("combines two answers ({} and {}); give one", answerName(fault.answer), answerName(answer)));
    }
    fault.answer = answer;
  };
  std::size_t start = 0;
  while (start <= spec.size()) {
    const std::size_t comma = spec.find(',', start);
    const std::string_view item =
        spec.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
    start = comma == std::string_view::npos ? spec.size() + 1 : comma + 1;
    const std::size_t equals = item.find('=');
    const std::string_view key = item.substr(0, equals);
    const std::string_view value = equals == std::string_view::npos ? std::string_view{} : item.substr(equals + 1);
    const bool hasValue = equals != std::string_view::npos;
    auto number = [&](long low, long high, std::string_view what) {
      const auto parsed = hasValue ? wholeNumber(value) : std::nullopt;
      if (!parsed || *parsed < low || *parsed > high) {
        reject(spec, fmt::format("{} needs {} ({}..{}), got \"{}\"", key, what, low, high, value));
      }
      return *parsed;
    };
    auto flag = [&] {
      if (hasValue) reject(spec, fmt::format("{} takes no value", key));
    };
    if (key == "latency") {
      if (sawLatency) reject(spec, "latency given twice");
      sawLatency = true;
      fault.latency = std::chrono::milliseconds(number(0, 600000, "milliseconds"));
    } else if (key == "status") {
      setAnswer(Fault::Answer::status);
      fault.status = static_cast<int>(number(400, 599, "an HTTP error status"));
    } else if (key == "retry-after") {
      if (fault.retryAfter || fault.withoutRetryAfter) reject(spec, "retry-after given twice");
      if (hasValue && value == "none") {
        fault.withoutRetryAfter = true;
      } else {
        fault.retryAfter = std::chrono::seconds(number(0, 86400, "seconds"));
      }
    } else if (key == "hang") {
      setAnswer(Fault::Answer::hang);
      fault.hang = std::chrono::milliseconds(number(1, 600000, "milliseconds"));
    } else if (key == "truncate") {
      flag();
      setAnswer(Fault::Answer::truncate);
    } else if (key == "error200") {
      flag();
      setAnswer(Fault::Answer::error200);
    } else if (key == "malformed") {
      flag();
      setAnswer(Fault::Answer::malformed);
    } else if (key == "behind") {
      if (sawBehind) reject(spec, "behind given twice");
      sawBehind = true;
      fault.behind = std::chrono::seconds(number(1, 31536000, "seconds"));
    } else if (key == "times") {
      if (sawTimes) reject(spec, "times given twice");
      sawTimes = true;
      fault.times = static_cast<int>(number(1, 1000000, "a count of requests"));
    } else {
      reject(spec, fmt::format("unknown item \"{}\"; expected latency=MS, status=CODE, retry-after=S, hang=MS, "
                               "truncate, error200, malformed, behind=S or times=K",
                               item));
    }
  }
  if ((fault.retryAfter || fault.withoutRetryAfter) && fault.answer != Fault::Answer::status) {
    reject(spec, "retry-after needs status=CODE");
  }
  if (fault.answer == Fault::Answer::status && !fault.retryAfter && !fault.withoutRetryAfter &&
      (fault.status == 429 || fault.status == 503)) {
    fault.retryAfter = std::chrono::seconds(1);
  }
  if (fault.answer == Fault::Answer::normal && fault.latency == std::chrono::milliseconds::zero() &&
      fault.behind == std::chrono::seconds::zero()) {
    reject(spec, "injects nothing; give latency=MS, behind=S or an answer");
  }
  return fault;
}

std::string describeFault(const Fault& fault) {
  std::vector<std::string> items;
  if (fault.latency.count() > 0) items.push_back(fmt::format("latency={}", fault.latency.count()));
  switch (fault.answer) {
    case Fault::Answer::normal: break;
    case Fault::Answer::status:
      items.push_back(fmt::format("status={}", fault.status));
      if (fault.retryAfter) items.push_back(fmt::format("retry-after={}", fault.retryAfter->count()));
      if (fault.withoutRetryAfter) items.push_back("retry-after=none");
      break;
    case Fault::Answer::hang: items.push_back(fmt::format("hang={}", fault.hang.count())); break;
    default: items.push_back(answerName(fault.answer)); break;
  }
  if (fault.behind.count() > 0) items.push_back(fmt::format("behind={}", fault.behind.count()));
  if (fault.times) items.push_back(fmt::format("times={}", *fault.times));
  return fmt::format("{}", fmt::join(items, ","));
}

void FaultPlan::set(std::string route, Fault fault) {
  std::lock_guard lock(mutex_);
  faults_.insert_or_assign(std::move(route), fault);
}

void FaultPlan::clear(std::string_view route) {
  std::lock_guard lock(mutex_);
  if (auto found = faults_.find(route); found != faults_.end()) faults_.erase(found);
}

void FaultPlan::clearAll() {
  std::lock_guard lock(mutex_);
  faults_.clear();
}

std::string serviceWildcard(std::string_view route) {
  const std::size_t dot = route.find('.');
  return dot == std::string_view::npos ? std::string() : std::string(route.substr(0, dot)) + ".*";
}

namespace {

// The fault that applies to `route`: its own, its service's, the default; end() when none.
template <class Faults>
auto lookup(Faults& faults, std::string_view route) {
  auto found = faults.find(route);
  if (found == faults.end()) {
    const std::string service = serviceWildcard(route);
    if (!service.empty()) found = faults.find(service);
  }
  if (found == faults.end()) found = faults.find("*");
  return found;
}

}  // namespace

std::optional<Fault> FaultPlan::find(std::string_view route) const {
  std::lock_guard lock(mutex_);
  const auto found = lookup(faults_, route);
  if (found == faults_.end()) return std::nullopt;
  return found->second;
}

std::optional<Fault> FaultPlan::take(std::string_view route) {
  std::lock_guard lock(mutex_);
  auto found = lookup(faults_, route);
  if (found == faults_.end()) return std::nullopt;
  Fault fault = found->second;
  if (found->second.times && --*found->second.times <= 0) faults_.erase(found);
  return fault;
}

}  // namespace ombrine::sim
