#pragma once
// Tells the home-screen widgets that new data is ready for their timelines.
//
// The Linux implementation (platform/linux/file_widget_center.hpp) writes the time of the
// request to a file that widgets and scripts watch, and runs an optional user hook.
//
// Context: may be called from any thread; never raises (a failure is logged).

namespace ombrine {

class WidgetCenter {
 public:
  virtual ~WidgetCenter() = default;
  virtual void reloadAllTimelines() = 0;
};

}  // namespace ombrine
