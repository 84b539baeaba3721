// The state machine that regulates the P-iris: decides on one exposure reading. No I/O.
//
// The camera daemon provides two exposure values without units: the level, which is bright above
// PIRIS_LEVEL_BRIGHT, and the deviation, positive if the iris should open, negative if it should
// close.
//
// The iris does not report its position, so the machine assumes one: closed, in between or open. It
// assumes that an end is reached after more than PIRIS_HYSTERESIS_STEPS consecutive readings that
// require a move toward it, and that the end is left after as many that require a move away from
// it. A single outlier thus never moves it to or from an end. While the iris is not fully open, it
// regulates the brightness, with a fixed exposure setting. A fully open iris cannot add light: the
// machine selects the other exposure setting and regulates again after more than
// PIRIS_HYSTERESIS_STEPS readings that require closing. Readings with a level above
// PIRIS_LEVEL_BRIGHT neither count nor reset the count.
#pragma once

#include <array>
#include <cstdint>

// Steps of one correction, and of one iris command. Positive opens.
constexpr int32_t PIRIS_STEP = 4;

// Deviations from -PIRIS_DEAD_BAND to PIRIS_DEAD_BAND cause no correction.
constexpr int32_t PIRIS_DEAD_BAND = 10;
// Readings in a row that are tolerated; the next one changes the state.
constexpr int32_t PIRIS_HYSTERESIS_STEPS = 24;
constexpr int32_t PIRIS_LEVEL_BRIGHT = 1024;

// Exposure settings of the camera daemon.
enum PirisExposure : int32_t {
  PIRIS_EXPOSURE_REGULATED = 1024,  // the iris regulates
  PIRIS_EXPOSURE_OPEN = 363329,     // the iris is fully open, the exposure regulates
};

enum PirisStateNumber : int32_t {
  STM_IRIS_INIT = 0,
  STM_IRIS_MIN = 1,
  STM_IRIS_MOV = 2,
  STM_IRIS_MAX = 3,
  STM_IRIS_LAST = 4,  // number of states
};

// Display texts of the states.
inline constexpr std::array<const char*, STM_IRIS_LAST + 1> STM_IRIS_TEXTS = {
    "STM_IRIS: INIT",               //
    "STM_IRIS: [MIN]------------",  //
    "STM_IRIS: ------[MOV]------",  //
    "STM_IRIS: ------------[MAX]",  //
    "STM_IRIS_LAST",
};

// The state machine. An all-zero object is in its initial state.
struct PirisRegulator {
  int32_t state;        // a PirisStateNumber
  int32_t close_count;  // readings in a row that asked to close
  int32_t open_count;   // readings in a row that asked to open
};

struct PirisReading {
  int32_t level;
  int32_t deviation;
};

// Result of one step of the machine; the caller applies the members in this order.
struct PirisOrder {
  PirisExposure exposure;
  int32_t steps;  // iris steps, 0 for none
};

// Runs one step of the machine.
PirisOrder PirisRegulate(PirisRegulator* regulator, const PirisReading& reading);
