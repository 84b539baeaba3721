#include "lens/piris_regulator.h"

#include <cstddef>

namespace {

bool WantsOpen(const PirisReading& reading) {
  return reading.deviation > PIRIS_DEAD_BAND;
}

bool WantsClose(const PirisReading& reading) {
  return reading.deviation < -PIRIS_DEAD_BAND;
}

// Counts one more step the same way. Returns true, with the count cleared, when it is enough.
bool ExceedsHysteresis(int32_t* count) {
  if (++*count <= PIRIS_HYSTERESIS_STEPS) return false;
  *count = 0;
  return true;
}

// Where the iris is, is not known: regulate.
PirisOrder Init(PirisRegulator* regulator, const PirisReading& /*reading*/) {
  *regulator = {.state = STM_IRIS_MOV, .close_count = 0, .open_count = 0};
  return {PIRIS_EXPOSURE_REGULATED, 0};
}

// Closed: wait until the picture has been too dark for long enough.
PirisOrder Min(PirisRegulator* regulator, const PirisReading& reading) {
  if (!WantsOpen(reading)) {
    regulator->open_count = 0;
  } else if (ExceedsHysteresis(&regulator->open_count)) {
    regulator->state = STM_IRIS_MOV;
  }
  return {PIRIS_EXPOSURE_REGULATED, 0};
}

// On its way: follow the deviation; as long without effect, an end has been reached.
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

// Open: wait until the picture has been too bright for long enough. A level still above the
// bright one says nothing about that: the count stands still.
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
