#include "radar/tile_load_retry_state.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "radar/tile_errors.hpp"

namespace ombrine {

namespace {

struct Delay {
  double seconds;
  bool exponential;
  std::optional<Date> serverRetryAfter;
};

Delay delayFor(std::exception_ptr error, int failureCount) {
  const Delay backOff{failureCount <= 3 ? std::ldexp(1.0, failureCount - 1) : TileLoadRetryState::kCooldown,
                      failureCount <= 3, std::nullopt};
  try {
    std::rethrow_exception(error);
  } catch (const TileHTTPError& failure) {
    const int status = failure.statusCode();
    Delay delay =
        (status == 408 || status == 429 || status >= 500) ? backOff : Delay{TileLoadRetryState::kCooldown, false, {}};
    delay.serverRetryAfter = failure.retryAfter();
    return delay;
  } catch (...) {
    return backOff;
  }
}

}  // namespace

std::optional<Uuid> TileLoadRetryState::beginLoading(const std::string& key, Date now) {
  std::lock_guard guard(lock_);
  int failureCount = 0;
  if (const auto found = entries_.find(key); found != entries_.end()) {
    const Entry& old = found->second;
    if (old.isLoading || now < old.retryAfter) return std::nullopt;
    if (now - old.retryAfter < kCooldown) failureCount = old.failureCount;
  }
  const Uuid identifier = Uuid::random();
  entries_[key] = Entry{identifier, true, failureCount, now};
  return identifier;
}

std::optional<double> TileLoadRetryState::finishLoading(const std::string& key, const Uuid& identifier,
                                                        std::exception_ptr error, Date now) {
  std::lock_guard guard(lock_);
  const auto found = entries_.find(key);
  if (found == entries_.end() || found->second.identifier != identifier || !found->second.isLoading) {
    return std::nullopt;
  }
  if (!error || isTileLoadCancellation(error)) {
    entries_.erase(found);
    return std::nullopt;
  }
  Entry& entry = found->second;
  entry.isLoading = false;
  entry.failureCount += 1;
  const Delay delay = delayFor(error, entry.failureCount);
  entry.retryAfter = now + delay.seconds;
  if (delay.serverRetryAfter && *delay.serverRetryAfter > entry.retryAfter) entry.retryAfter = *delay.serverRetryAfter;
  const Date retryAfter = entry.retryAfter;
  trimLocked();
  if (!delay.exponential) return std::nullopt;
  return retryAfter - now;
}

void TileLoadRetryState::trimLocked() {
  std::vector<std::pair<Date, std::string>> settled;
  for (const auto& [key, entry] : entries_) {
    if (!entry.isLoading) settled.emplace_back(entry.retryAfter, key);
  }
  if (settled.size() <= kMaximumFailureEntries) return;
  const std::size_t excess = settled.size() - kMaximumFailureEntries;
  std::nth_element(settled.begin(), settled.begin() + static_cast<std::ptrdiff_t>(excess) - 1, settled.end());
  for (std::size_t i = 0; i < excess; ++i) entries_.erase(settled[i].second);
}

bool TileLoadRetryState::isLoading(const std::string& key) const {
  std::lock_guard guard(lock_);
  const auto found = entries_.find(key);
  return found != entries_.end() && found->second.isLoading;
}

std::optional<TileLoadRetryState::Entry> TileLoadRetryState::entry(const std::string& key) const {
  std::lock_guard guard(lock_);
  const auto found = entries_.find(key);
  if (found == entries_.end()) return std::nullopt;
  return found->second;
}

std::size_t TileLoadRetryState::entryCount() const {
  std::lock_guard guard(lock_);
  return entries_.size();
}

}  // namespace ombrine
