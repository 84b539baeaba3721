#include "sim/stepper.h"

#include <algorithm>
#include <cstdlib>

namespace sim {

Stepper::Stepper(int travel, int position, int rate)
    : travel_(travel), position_(position), rate_(rate) {}

void Stepper::SetRate(int rate) {
  rate_ = rate;
}

void Stepper::Move(int steps, Clock::time_point first_step) {
  if (!jogging_) lost_ += std::abs(remaining_);
  jogging_ = false;
  remaining_ = steps;
  next_step_ = std::max(next_step_, first_step);
}

void Stepper::Jog(int direction, Clock::time_point first_step) {
  Move(direction, first_step);
  jogging_ = true;
}

void Stepper::Stop() {
  Move(0, next_step_);
}

void Stepper::Advance(Clock::time_point now) {
  while (remaining_ != 0 && next_step_ <= now) {
    Step();
    next_step_ += Period();
  }
}

void Stepper::Place(int position) {
  position_ = position;
  remaining_ = 0;
  jogging_ = false;
}

void Stepper::Step() {
  const int direction = remaining_ > 0 ? 1 : -1;
  const int wanted = position_ + direction;
  if (wanted < 0 || wanted > travel_) {
    ++slipped_;
  } else {
    position_ = wanted;
  }
  if (!jogging_) remaining_ -= direction;
}

}  // namespace sim
