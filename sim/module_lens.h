// The lens of a camera module. Its zoom and focus motors turn until stopped.
#pragma once

#include "sim/wait.h"

namespace sim {

constexpr double kModuleZoomMax = 18;     // magnification; the minimum is 1
constexpr double kModuleZoomRate = 4;     // magnifications a second
constexpr double kModuleFocusRate = 40;   // percent of the travel a second
constexpr double kModuleSharpFocus = 62;  // target of a focus search, percent

class ModuleLens {
 public:
  explicit ModuleLens(Clock::time_point now) : now_(now) {}

  // Turns the motors up to `now`, which must not go back.
  void Advance(Clock::time_point now);

  // Directions: +1 tele or far, -1 wide or near, 0 stop.
  void Zoom(int direction) { zoom_direction_ = direction; }
  void Focus(int direction);
  // Moves the focus to kModuleSharpFocus.
  void Search() { is_searching_ = true; }

  bool IsMoving() const { return zoom_direction_ != 0 || focus_direction_ != 0 || is_searching_; }
  double ZoomAt() const { return zoom_; }
  double FocusAt() const { return focus_; }

 private:
  Clock::time_point now_;
  double zoom_ = 1;    // magnification
  double focus_ = 50;  // percent, from near (0) to far (100)
  int zoom_direction_ = 0;
  int focus_direction_ = 0;
  bool is_searching_ = false;
};

}  // namespace sim
