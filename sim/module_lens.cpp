#include "sim/module_lens.h"

#include <algorithm>
#include <cmath>

namespace sim {

void ModuleLens::Advance(Clock::time_point now) {
  const double seconds = std::chrono::duration<double>(now - now_).count();
  now_ = now;
  zoom_ = std::clamp(zoom_ + zoom_direction_ * kModuleZoomRate * seconds, 1.0, kModuleZoomMax);
  const double step = kModuleFocusRate * seconds;
  if (is_searching_) {
    const double left = kModuleSharpFocus - focus_;
    is_searching_ = std::abs(left) > step;
    focus_ += std::clamp(left, -step, step);
  } else {
    focus_ = std::clamp(focus_ + focus_direction_ * step, 0.0, 100.0);
  }
}

void ModuleLens::Focus(int direction) {
  focus_direction_ = direction;
  is_searching_ = false;
}

}  // namespace sim
