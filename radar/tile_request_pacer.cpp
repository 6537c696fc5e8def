#include "radar/tile_request_pacer.hpp"

#include <algorithm>

namespace ombrine {

Task<void> TileRequestPacer::wait() {
  Clock::Uptime slot;
  const Clock::Uptime now = clock_.uptime();
  {
    std::lock_guard guard(lock_);
    slot = std::max(now, next_);
    next_ = slot + interval_;
  }
  if (slot > now) co_await clock_.sleep(slot - now);
}

}  // namespace ombrine
