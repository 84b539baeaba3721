// A stepper motor of the lens, driven by the micom without feedback.
//
// It steps at the rate set, from one mechanical end to the other; a step against an end is made
// in vain. A new move takes the place of a running one, whose remaining steps are lost. Where the
// motor really is, is known here only.
#pragma once

#include "sim/wait.h"

namespace sim {

class Stepper {
 public:
  // Stands `position` steps from the zero end, of `travel` steps; makes `rate` steps a second.
  Stepper(int travel, int position, int rate);

  void SetRate(int rate);

  // Starts a move of `steps`, positive away from the zero end: the first is due at `first_step`. A
  // motor that has just made a step makes the next one no sooner than its rate allows.
  void Move(int steps, Clock::time_point first_step);

  // Runs in a direction (1, -1) until Stop. Steps that Stop leaves undone are not lost.
  void Jog(int direction, Clock::time_point first_step);
  void Stop();

  // Makes the steps due by `now`.
  void Advance(Clock::time_point now);

  // Picks the lens up and puts it down elsewhere, motor at rest.
  void Place(int position);

  int Position() const { return position_; }
  int Rate() const { return rate_; }
  // Time of a step at the present rate.
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
  Clock::time_point next_step_;  // not before
  long lost_ = 0;
  long slipped_ = 0;
};

}  // namespace sim
