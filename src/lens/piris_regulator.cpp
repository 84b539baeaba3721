#include "lens/piris_regulator.h"

#include <cstddef>

namespace {

bool WantsOpen(const PirisReading& reading) {
  return reading.deviation > PIRIS_DEAD_BAND;
}

bool WantsClose(const PirisReading& reading) {
  return reading.deviation < -PIRIS_DEAD_BAND;
}

// Counts one more reading in the same direction. Returns true and clears the count if it exceeds
// the limit.
bool ExceedsHysteresis(int32_t* count) {
  if (++*count <= PIRIS_HYSTERESIS_STEPS) return false;
  *count = 0;
  return true;
}

// The position is unknown: start to regulate.
PirisOrder Init(PirisRegulator* regulator, const PirisReading& /*reading*/) {
  *regulator = {.state = STM_IRIS_MOV, .close_count = 0, .open_count = 0};
  return {PIRIS_EXPOSURE_REGULATED, 0};
}

// Closed: wait until enough readings in a row are too dark.
PirisOrder Min(PirisRegulator* regulator, const PirisReading& reading) {
  if (!WantsOpen(reading)) {
    regulator->open_count = 0;
  } else if (ExceedsHysteresis(&regulator->open_count)) {
    regulator->state = STM_IRIS_MOV;
  }
  return {PIRIS_EXPOSURE_REGULATED, 0};
}

// In between: follow the deviation. If it does not change over that many steps, an end is reached.
PirisOrder Mov(PirisRegulator* regulator, const PirisReading& reading) {
  if (WantsOpen(reading)) {
    regulator->close_count = 0;
    if (ExceedsHysteresis(&regulator->open_count)) regulator->state = STM_IRIS_MAX;
    return {PIRIS_EXPOSURE_REGULATED, PIRIS_STEP};
  }
  regulator->open_count = 0;
  if (WantsClose(reading)) {
    if (ExceedsHysteresis(&regulator->close_count)) regulator->state = STM_IRIS_MIN;
    return {PIRIS_EXPOSURE_REGULATED, -PIRIS_STEP};
  }
  regulator->close_count = 0;
  return {PIRIS_EXPOSURE_REGULATED, 0};
}

// Open: wait until enough readings in a row are too bright. A reading whose level is still above
// PIRIS_LEVEL_BRIGHT does not count and does not clear the count.
PirisOrder Max(PirisRegulator* regulator, const PirisReading& reading) {
  const PirisOrder order = {PIRIS_EXPOSURE_OPEN, 0};
  if (reading.level > PIRIS_LEVEL_BRIGHT) return order;
  if (!WantsClose(reading)) {
    regulator->close_count = 0;
  } else if (ExceedsHysteresis(&regulator->close_count)) {
    regulator->state = STM_IRIS_MOV;
  }
  return order;
}

using StateFunction = PirisOrder (*)(PirisRegulator* regulator, const PirisReading& reading);

// Indexed by PirisStateNumber.
constexpr std::array<StateFunction, STM_IRIS_LAST> kStates = {Init, Min, Mov, Max};

}  // namespace

PirisOrder PirisRegulate(PirisRegulator* regulator, const PirisReading& reading) {
  return kStates[static_cast<size_t>(regulator->state)](regulator, reading);
}
