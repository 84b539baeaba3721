// Translates camera-control codes into Pelco-D frames. Each model family has its own table.
//
// A row of a table holds the code, the frame to send for it, and the stop frames before or after.
// PtzTranslate turns a row and the command's parameters into a short sequence of waits and frames.
// No I/O; the tables are constants, any thread may use them.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "ipc/camera_control.h"
#include "relay/pelco_d.h"

// What to send for a row. A long stop is: stop frame, 250 ms, stop frame.
enum class PtzAction : uint8_t {
  kFrame,     // the row's frame
  kZoom,      // tele or wide by the sign of the third parameter; 0: long stop
  kFocus,     // near or far by the sign of the first parameter; 0: long stop
  kJoystick,  // pan and tilt by the first and second parameter, zoom by the third
};

// Source of data 2 of the row's frame (kFrame only).
enum class PtzArgument : uint8_t {
  kFixed,      // the row's own value
  kParameter,  // the first parameter, unchanged
  kSpeed,      // the first parameter divided by 31, minus 1
};

// Stop frames sent with the row's frame (kFrame only).
enum class PtzStops : uint8_t {
  kNone,
  kShortStop,  // after it: 100 ms, stop frame, 100 ms, stop frame
  kPreStop,    // before it: stop frame, 50 ms
};

struct PtzRow {
  uint16_t code;
  PtzAction action;
  PelcoCommand frame = {};
  PtzArgument argument = PtzArgument::kFixed;
  PtzStops stops = PtzStops::kNone;
};

// A frame and the wait before it.
struct PtzStep {
  uint16_t wait_ms;
  PelcoFrame frame;
};

// The frames of one command, in order; at most three.
struct PtzSequence {
  std::array<PtzStep, 3> steps;
  int count;
};

// A model with its own table.
struct PtzModel {
  const char* name;
  std::span<const PtzRow> table;
};
std::span<const PtzModel> PtzModels();

// Returns the model's own table, or the common table if it has none.
std::span<const PtzRow> PtzTableForModel(const char* model);

// Returns the frames that `table` defines for a command; none for an unknown code.
PtzSequence PtzTranslate(std::span<const PtzRow> table, const CameraControl& control);
