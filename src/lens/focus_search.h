// The focus search: finds the sharpest focus position near the current one.
//
// Contrast search. The camera daemon measures the sharpness of the image (a 16-bit number without a
// unit; larger is sharper). The search steps the focus motor over an interval around its start
// position, measures at every stop, and returns to the stop with the largest measure. All distances
// are focus motor steps.
//   1. Descend in coarse steps to the lower end of the interval, without measuring. The scan then
//      runs in one direction from one end, so gear backlash shifts all stops alike.
//   2. Scan upward in fine steps, measure at each stop and remember the best. Among equal measures
//      the later stop wins. A failed measurement reads FOCUS_VALUE_NONE, the largest value, and so
//      counts as the best. Only the stops of the scan are candidates, not the start position.
//   3. Back off in fine steps to AF_BACK_OFF_STEPS fine steps below the best position.
//   4. Approach the best position from below in the finest steps, in the same direction as when it
//      was measured.
//   5. Finish: print the zoom position, the best focus position and its distance from the start (a
//      measured point of this lens's tracking curve), and save the positions.
// A state acts once the time of its previous move has passed; until then it returns at once. The
// search thus never sleeps for a move, and a command can end it between any two steps. It blocks
// only for the query of the measure and for saving at the end. Lens loop's thread only.
#pragma once

#include <cstdint>

// Distance below the best position at which the approach begins, fine steps.
constexpr int AF_BACK_OFF_STEPS = 4;

// Runs one step of the search. Called on every pass of the loop in daemon mode.
void focus_search_step();

// Returns the microseconds until the next step is due: the remaining time of the current move, at
// most MODE_PASS_PACE_US, or MODE_PASS_NO_WORK if no search is running.
int64_t focus_search_wait_us();

// Starts the clock of the descent.
void focus_search_init();

// Starts a search over `half_width` steps to either side; restarts a running one.
void focus_search_start(int16_t half_width);

// Ends a running search; the focus stays at its position.
void focus_search_stop();
