// The P-iris: keeps the picture's brightness in range with the stepper-driven iris of the lens.
//
// Runs in the P-iris worker, beside the lens loop. About ten times a second it asks the camera
// daemon for its exposure figures, opens or closes the iris as the regulator says, and tells the
// camera daemon which exposure setting goes with the iris. An AF-mode
// command switches the regulation off and on; the regulator keeps its state meanwhile.
#pragma once

#include <cstdint>

#include "lens/piris_regulator.h"

// Steps from closed to open.
constexpr int32_t PIRIS_TRAVEL = 96;
// Steps of the coarse moves.
constexpr int32_t PIRIS_COARSE_STEP = 8;
// Pause before each coarse step, milliseconds.
constexpr int PIRIS_COARSE_PAUSE_MS = 50;

// Hands the configuration over, for the loop's thread to call: with `antiflicker` 1 the iris is
// regulated, else it is opened once; without a `sensor_supported` it is left alone. The requests
// come before the flags: a worker that sees these must not regulate ahead of the request that goes
// with them.
void piris_configure(int32_t antiflicker, int32_t sensor_supported);

// Start and stop the worker, for the loop's thread to call; both block as CTHREAD does. A worker in
// a longer sleep than the stop waits for lives on, but is released.
void piris_start_worker();
void piris_stop_worker();

// The worker's routines. A step serves a raised request or regulates once; while there is nothing
// to do it sleeps until it is configured anew or told to stop. Both return 0.
int piris_start();
int piris_step();

// Gives the serial line and the lens mode's channel to the worker, before it is started.
void piris_claim();

// Takes the serial line and the lens mode's channel away from the worker, before they are closed: a
// worker in a long sleep may outlive the mode. Waits while the worker is sending. From then on its
// moves and settings go nowhere.
void piris_release();

// Moves the iris by `steps`: one frame. Any thread.
void PirisMove(int32_t steps);

// Opens the iris over its full travel; closes it by half. Both block for the pauses.
void piris_open_full();
void piris_close_half();

// Asks the camera daemon for its exposure figures and waits up to 3 seconds. Returns -1 when it
// could not be asked, else 0; *level and *deviation are written only when an answer came.
int piris_query_exposure(int32_t* level, int32_t* deviation);

// Sends an exposure setting through the lens mode's own channel, if it has one; no
// answer is waited for.
void piris_set_exposure(int32_t setting);
