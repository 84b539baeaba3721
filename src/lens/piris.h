// The P-iris: keeps the picture's brightness in range with the stepper-driven iris of the lens.
//
// Runs in the P-iris worker, beside the lens loop. About ten times a second it asks the camera
// daemon for two exposure figures: the level, which tells bright from dark by comparison with
// PIRIS_LEVEL_BRIGHT, and the deviation, positive when the iris should open, negative when it
// should close (neither has a unit). It then opens or closes the iris by PIRIS_STEP, and tells
// the camera daemon which exposure setting goes with the iris.
//
// Three places of the iris are told apart, since the iris reports none: at its closed end, on
// its way, at its open end. An end is taken as reached when more than PIRIS_PATIENCE steps in a row
// have asked for more the same way, and as left when as many ask for the other way; a single
// figure that is off never changes the state. While the iris has travel left it does the
// regulating, with one exposure setting. At the open end it can give no more light: the exposure
// gets the other setting, and the iris waits until the picture is too bright although the level
// is no longer above PIRIS_LEVEL_BRIGHT. Nothing ends the machine but the mode's end; it is not
// reset when regulation is switched off and on again.
#pragma once

#include <array>
#include <cstdint>

// Steps from closed to open.
constexpr int32_t PIRIS_TRAVEL = 96;
// Steps of one correction, of one key, and of the coarse moves. Positive opens.
constexpr int32_t PIRIS_STEP = 4;
constexpr int32_t PIRIS_COARSE_STEP = 8;
// Pause before each coarse step, milliseconds.
constexpr int PIRIS_COARSE_PAUSE_MS = 50;

// Deviations from -PIRIS_DEAD_BAND to PIRIS_DEAD_BAND ask for nothing.
constexpr int32_t PIRIS_DEAD_BAND = 10;
// Steps in a row that are put up with before the next one changes the state.
constexpr int32_t PIRIS_PATIENCE = 24;
constexpr int32_t PIRIS_LEVEL_BRIGHT = 1024;

// Exposure settings of the camera daemon.
enum PirisExposure : int32_t {
  PIRIS_EXPOSURE_REGULATED = 1024,  // the iris regulates
  PIRIS_EXPOSURE_OPEN = 363329,     // the iris is open, the exposure regulates
};

enum PirisStateNumber : int32_t {
  STM_IRIS_INIT = 0,
  STM_IRIS_MIN = 1,
  STM_IRIS_MOV = 2,
  STM_IRIS_MAX = 3,
  STM_IRIS_LAST = 4,  // their number
};

// Display texts of the states.
inline constexpr std::array<const char*, STM_IRIS_LAST + 1> STM_IRIS_TEXTS = {
    "STM_IRIS: INIT",               //
    "STM_IRIS: [MIN]------------",  //
    "STM_IRIS: ------[MOV]------",  //
    "STM_IRIS: ------------[MAX]",  //
    "STM_IRIS_LAST",
};

// The machine. A zeroed one is at its start.
struct PirisRegulator {
  int32_t state;        // a PirisStateNumber
  int32_t close_count;  // steps in a row that asked to close
  int32_t open_count;   // steps in a row that asked to open
};

struct PirisReading {
  int32_t level;
  int32_t deviation;
};

// What a step of the machine asks for, in this order.
struct PirisOrder {
  PirisExposure exposure;
  int32_t steps;  // iris steps, 0 none
};

// One step of the machine. Free of I/O.
PirisOrder PirisRegulate(PirisRegulator* regulator, const PirisReading& reading);

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
