// The focus search: finds the sharpest focus position near the present one.
//
// Contrast search. The camera daemon measures how sharp the image is (a 16-bit figure without a
// unit, the larger the sharper); the search steps the focus motor over an interval around the
// position where it starts, measures at every stop, and goes back to where the figure was
// largest. All distances are focus motor steps.
//   1. Descend in coarse steps to the lower end of the interval. Nothing is measured on the way,
//      so that the scan runs in one direction from one end: a gear's slack then shifts all stops
//      alike.
//   2. Scan upward in fine steps; measure at each stop, remember the best. Of equal figures the
//      later one counts. The scan's stops, not the start position, are the candidates.
//   3. Back off in fine steps to AF_BACK_OFF_STEPS fine steps below the best position.
//   4. Approach the best position in the finest steps, so that it is reached from below, as it
//      was when it was measured.
//   5. Finish: print where zoom and focus stand now (a trace point of the lens's true curve) and
//      save the positions.
// A state acts once its previous move has had the time that its steps take; until then it
// returns at once. The search thus never sleeps, and a command can end it between any two
// steps. Its only waits are the question for the measure and the saving at the end. Lens
// loop's thread only.
#pragma once

#include <cstdint>

// How far below the best position the approach begins, fine steps.
constexpr int AF_BACK_OFF_STEPS = 4;

// One step of the search; called on every pass of the loop while the daemon drives the lens.
void focus_search_step();

// Microseconds after which the next step is due: what is left of the present move's time, at most
// MODE_PASS_PACE_US; MODE_PASS_NO_WORK while no search runs.
int64_t focus_search_wait_us();

// Starts the clock of the descent.
void focus_search_init();

// Starts a search over `half_width` steps to either side, from anew where one is running.
void focus_search_start(int16_t half_width);

// Ends a running search; the focus stays where it is.
void focus_search_stop();
