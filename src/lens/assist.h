// The focus assist behind the 'F' button: resets both motors to their zero ends and focuses from
// there.
//
// Lens loop's thread only; blocks while the motors move.
#pragma once

// Stops a running focus search, drives both motors to their zero ends and sets both positions to 0.
// Blocks for the longer of the two moves and for two changes of the step rate.
void reset_zf();

// Resets the motors, moves the focus onto the tracking curve and starts a focus search; without a
// curve it only resets. Blocks for several seconds.
void assist_focus();
