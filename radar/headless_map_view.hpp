#pragma once
// A map view without a screen, for drawing pictures: it collects the renderers' redraw
// requests and runs their main-context work on the thread that calls `runPending` (the
// picture's own thread plays the main context).
//
// Thread-safe: requests and work may arrive from any thread; one lock, never held while work
// runs.

#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/clock.hpp"
#include "radar/caching_tile_overlay_renderer.hpp"

namespace ombrine {

class HeadlessMapView final : public TileMapView {
 public:
  explicit HeadlessMapView(const Clock& clock, double contentScaleFactor = 1.0)
      : clock_(clock), scale_(contentScaleFactor) {}

  void setNeedsDisplay(const MapRect& rect) override;
  void runOnMain(double delaySeconds, std::function<void()> work) override;
  double contentScaleFactor() const override { return scale_; }

  // Runs the work that is due; true when a redraw was asked for since the last call.
  bool runPending();
  // Waits until a redraw is asked for or work is due, at most `timeout`.
  void waitForWork(Clock::Duration timeout);
  // Work queued for later (scheduled retries).
  std::size_t scheduledCount() const;

 private:
  struct Scheduled {
    Clock::Uptime due;
    std::function<void()> work;
  };
  const Clock& clock_;
  const double scale_;
  mutable std::mutex lock_;
  std::condition_variable changed_;
  bool needsDisplay_ = false;
  std::vector<Scheduled> scheduled_;
};

}  // namespace ombrine
