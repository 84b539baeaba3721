// The machine that regulates the P-iris: what to do about one reading of the exposure. No I/O.
//
// The camera daemon gives two exposure figures: the level, which tells bright from dark by
// comparison with PIRIS_LEVEL_BRIGHT, and the deviation, positive when the iris should open,
// negative when it should close (neither has a unit).
//
// Three places of the iris are told apart, since the iris reports none: at its closed end, on
// its way, at its open end. An end is taken as reached when more than PIRIS_HYSTERESIS_STEPS steps
// in a row have asked for more the same way, and as left when as many ask for the other way; a
// single figure that is off never changes the state. While the iris has travel left it does the
// regulating, with one exposure setting. At the open end it can give no more light: the exposure
// gets the other setting, and the iris waits until the picture is too bright although the level
// is no longer above PIRIS_LEVEL_BRIGHT.
#pragma once

#include <array>
#include <cstdint>

// Steps of one correction, and of one key. Positive opens.
constexpr int32_t PIRIS_STEP = 4;

// Deviations from -PIRIS_DEAD_BAND to PIRIS_DEAD_BAND ask for nothing.
constexpr int32_t PIRIS_DEAD_BAND = 10;
// Steps in a row that are put up with before the next one changes the state.
constexpr int32_t PIRIS_HYSTERESIS_STEPS = 24;
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

// One step of the machine.
PirisOrder PirisRegulate(PirisRegulator* regulator, const PirisReading& reading);
