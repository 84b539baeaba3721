// The verbs of `rs232ctl ptz`: a table from words to camera-control records.
//
// Does no I/O. The tables of the daemon's modes define the effect of a record; the tables of the
// relay mode determine which verbs a head answers.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ipc/camera_control.h"
#include "tools/device_mode.h"

namespace tools {

// The arguments of a verb on the command line, and their destination.
enum class VerbArguments : uint8_t {
  kNone,
  kSpeed,   // --speed, SPEED_MIN to SPEED_MAX: multiplied by the row's parameters
  kNumber,  // N, from the row's low to its high: the first parameter
  kMove,    // PAN TILT ZOOM, from low to high: the three parameters
  kCode,    // HEX P1 P2 P3: the code, and up to three parameters from low to high
};

constexpr int SPEED_MIN = 1;
constexpr int SPEED_MAX = 127;
constexpr int SPEED_DEFAULT = 64;
// Parameters are bytes: signed, or the same bytes as 128 to 255.
constexpr int PARAMETER_MIN = -128;
constexpr int PARAMETER_MAX = 255;
constexpr int AXIS_MAX = 127;
constexpr int CONTROL_CODE_MAX = 0xFFFF;
constexpr size_t PARAMETER_COUNT = 3;

// Stop code of a verb that moves nothing.
constexpr uint16_t NO_STOP_CODE = 0;

struct PtzVerb {
  const char* name;   // one word, or two
  const char* group;  // its heading in the list
  // DeviceModes that answer it. MODE_RELAY: every head, whatever its table contains.
  uint8_t modes;
  uint16_t code;
  std::array<int8_t, PARAMETER_COUNT> parameters;  // fixed, or with kSpeed the signs
  VerbArguments arguments;
  uint16_t stop_code;  // the code that, with parameters of 0, ends what the verb starts
  const char* example;
  const char* help;
  int low = 0;  // of its numbers
  int high = 0;
};

// The values given on the command line.
struct VerbValues {
  int speed = SPEED_DEFAULT;
  int code = 0;
  // N, PAN TILT ZOOM, or the given ones of P1 to P3
  std::array<std::optional<int>, PARAMETER_COUNT> numbers;
};

std::span<const PtzVerb> PtzVerbs();

// The verb `stop`, which ends all motion with several records.
const PtzVerb& PtzStopVerb();

// Returns true if a device of this model answers the verb.
bool Answers(const std::string& model, const PtzVerb& verb);

// Returns true if no code stops the head of this model, but only a stop frame written to the line.
bool IsStoppedByFrame(const std::string& model);

// Returns the kinds of device that answer the verb: "relay" for the models without a table of their
// own, "QB-610", "QB-620", "SD", "HD", "lens".
std::vector<std::string> AnsweringDevices(const PtzVerb& verb);

// Returns "N", "PAN TILT ZOOM", ...; "" for no arguments.
const char* ArgumentsText(VerbArguments arguments);

// Returns a record as the user would type it: "preset go 5", or "code 2003 7 0 0" if no verb
// matches.
std::string VerbText(const CameraControl& control);

CameraControl VerbControl(const PtzVerb& verb, const VerbValues& values);

// Returns the records that end the motion of a verb; empty if it moves nothing.
std::vector<CameraControl> StopControls(const PtzVerb& verb);

}  // namespace tools
