// From camera-control codes to Pelco-D frames: one table a family of models.
//
// A table is rows of data; a row names the code, what to send for it, and what goes before or
// after. PtzTranslate turns a row and the command's parameters into a short sequence of waits
// and frames. Free of I/O; the tables are constants, any thread may use them.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "ipc/camera_control.h"
#include "relay/pelco_d.h"

// What a row sends.
enum class PtzAction : uint8_t {
  kFrame,     // the row's frame
  kZoom,      // tele or wide by the sign of the third parameter; 0 is a long stop
  kFocus,     // near or far by the sign of the first parameter; 0 is a long stop
  kJoystick,  // pan and tilt by the first and second parameter, zoom by the third
};

// What fills data 2 of the row's frame (kFrame only).
enum class PtzArgument : uint8_t {
  kFixed,      // the row's own value
  kParameter,  // the first parameter as it came
  kSpeed,      // the first parameter in steps of 31, less 1
};

// The stop frames that go with the row's frame (kFrame only).
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

// One frame and the wait before it.
struct PtzStep {
  uint16_t wait_ms;
  PelcoFrame frame;
};

// The frames of one command, in order. No command sends more than three.
struct PtzSequence {
  std::array<PtzStep, 3> steps;
  int count;
};

// A model with a table of its own.
struct PtzModel {
  const char* name;
  std::span<const PtzRow> table;
};
std::span<const PtzModel> PtzModels();

// The table of a model: its own, or the one that all others share.
std::span<const PtzRow> PtzTableForModel(const char* model);

// The frames that `table` gives for a command; none for a code that is not in it.
PtzSequence PtzTranslate(std::span<const PtzRow> table, const CameraControl& control);
