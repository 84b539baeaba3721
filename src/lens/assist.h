// The focus assist behind the 'F' button: finds the zero ends anew and focuses from there.
//
// Lens loop's thread only; blocks for the time of the moves.
#pragma once

// Stops a running focus search and drives both motors into their zero ends; both positions are
// 0 then. Blocks for the longer of the two travels and two changes of the step rate.
void reset_zf();

// Drives the lens into its zero ends, puts the focus on the curve and starts a focus search;
// without a curve it resets only. Blocks for several seconds.
void assist_focus();
