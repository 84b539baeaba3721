// The P-iris: regulates the image brightness with the stepper-driven iris of the lens.
//
// Runs in the P-iris worker thread, beside the lens loop. About ten times per second it queries the
// exposure values of the camera daemon, opens or closes the iris as the regulator decides, and
// sends the camera daemon the exposure setting that matches the iris. An AF-mode command turns the
// regulation on or off; the regulator keeps its state meanwhile.
#pragma once

#include <cstdint>

#include "lens/piris_regulator.h"

// Steps from fully closed to fully open.
constexpr int32_t PIRIS_TRAVEL = 96;
// Size of a coarse move, steps.
constexpr int32_t PIRIS_COARSE_STEP = 8;
// Pause before each coarse move, milliseconds.
constexpr int PIRIS_COARSE_PAUSE_MS = 50;

// Sets the configuration. With `antiflicker` 1 the iris is regulated, otherwise it is opened once;
// with `sensor_supported` 0 it is left alone. Writes the requests before the flags: a worker that
// sees the flags must not regulate before it has seen the request. Loop's thread only.
void piris_configure(int32_t antiflicker, int32_t sensor_supported);

// Start and stop the worker; both block as CTHREAD does. If the worker does not stop in time, it
// keeps running but can no longer use the serial line or the channel. Loop's thread only.
void piris_start_worker();
void piris_stop_worker();

// The worker's routines. Each step handles a pending request or regulates once. If there is
// neither, it sleeps until the configuration changes or the worker is stopped. Both return 0.
int piris_start();
int piris_step();

// Lends the serial line and the lens mode's channel to the worker. Called before it starts.
void piris_claim();

// Takes the serial line and the lens mode's channel back before they are closed, because a worker
// in a long sleep may outlive the mode. Blocks while the worker is sending. Later moves and
// settings of the worker are discarded.
void piris_release();

// Moves the iris by `steps` with one frame. Any thread may call.
void PirisMove(int32_t steps);

// Open the iris over its full travel, or close it by half. Both block for PIRIS_COARSE_PAUSE_MS
// before each of their coarse moves.
void piris_open_full();
void piris_close_half();

// Queries the exposure values of the camera daemon, with a timeout of 3 seconds. Returns -1 if the
// query could not be sent, else 0. Writes *level and *deviation only if an answer arrived.
int piris_query_exposure(int32_t* level, int32_t* deviation);

// Sends an exposure setting through the lens mode's channel if there is one; does not wait for an
// answer.
void piris_set_exposure(int32_t setting);
