// A stepper motor of the lens, driven by the micom without feedback.
//
// It steps at the set rate between two mechanical ends. Steps against an end have no effect. A new
// move replaces a running one, whose remaining steps are lost. Position is the true position, which
// no protocol reports.
#pragma once

#include "sim/wait.h"

namespace sim {

class Stepper {
 public:
  // `position` counts steps from the zero end, `travel` is the distance between the ends, `rate` is
  // in steps a second.
  Stepper(int travel, int position, int rate);

  void SetRate(int rate);

  // Starts a move of `steps`, positive away from the zero end, with the first step at `first_step`,
  // but not before the step rate allows it.
  void Move(int steps, Clock::time_point first_step);

  // Runs in a direction (1, -1) until Stop. Stop loses no steps of a jog.
  void Jog(int direction, Clock::time_point first_step);
  void Stop();

  // Makes all steps due by `now`.
  void Advance(Clock::time_point now);

  // Moves the motor by hand and leaves it at rest.
  void Place(int position);

  int Position() const { return position_; }
  int Rate() const { return rate_; }
  // Step period at the current rate.
  Clock::duration Period() const { return Clock::duration(std::chrono::seconds(1)) / rate_; }
  bool IsMoving() const { return remaining_ != 0; }

  long Lost() const { return lost_; }        // steps of moves that were interrupted
  long Slipped() const { return slipped_; }  // steps against an end

 private:
  void Step();

  int travel_;
  int position_;
  int rate_;
  int remaining_ = 0;
  bool jogging_ = false;
  Clock::time_point next_step_;  // earliest time
  long lost_ = 0;
  long slipped_ = 0;
};

}  // namespace sim
