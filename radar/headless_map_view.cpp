#include "radar/headless_map_view.hpp"

#include <algorithm>
#include <chrono>

namespace ombrine {

void HeadlessMapView::setNeedsDisplay(const MapRect&) {
  {
    std::lock_guard guard(lock_);
    needsDisplay_ = true;
  }
  changed_.notify_all();
}

void HeadlessMapView::runOnMain(double delaySeconds, std::function<void()> work) {
  const auto delay =
      std::chrono::duration_cast<Clock::Duration>(std::chrono::duration<double>(std::max(delaySeconds, 0.0)));
  {
    std::lock_guard guard(lock_);
    scheduled_.push_back({clock_.uptime() + delay, std::move(work)});
  }
  changed_.notify_all();
}

bool HeadlessMapView::runPending() {
  std::vector<std::function<void()>> due;
  {
    std::lock_guard guard(lock_);
    const Clock::Uptime now = clock_.uptime();
    for (auto it = scheduled_.begin(); it != scheduled_.end();) {
      if (it->due <= now) {
        due.push_back(std::move(it->work));
        it = scheduled_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (auto& work : due) work();
  std::lock_guard guard(lock_);
  return std::exchange(needsDisplay_, false);
}

void HeadlessMapView::waitForWork(Clock::Duration timeout) {
  std::unique_lock guard(lock_);
  Clock::Duration wait = timeout;
  const Clock::Uptime now = clock_.uptime();
  for (const auto& item : scheduled_) wait = std::min(wait, std::max(item.due - now, Clock::Duration::zero()));
  changed_.wait_for(guard, wait, [this, now, wait] { return needsDisplay_ || clock_.uptime() >= now + wait; });
}

std::size_t HeadlessMapView::scheduledCount() const {
  std::lock_guard guard(lock_);
  return scheduled_.size();
}

}  // namespace ombrine
