// The verbs of `rs232ctl ptz`: a table from words to camera-control records.
//
// Free of I/O. What a device makes of a record stands in the tables of its mode: those of the relay
// mode tell which verbs a head answers.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ipc/camera_control.h"
#include "tools/device_mode.h"

namespace tools {

// What follows a verb on the command line, and where it goes.
enum class VerbArguments : uint8_t {
  kNone,
  kSpeed,   // --speed, SPEED_MIN to SPEED_MAX: times the row's parameters
  kNumber,  // N, from the row's low to its high: the first parameter
  kMove,    // PAN TILT ZOOM, PARAMETER_MIN to AXIS_MAX: the three parameters
  kCode,    // HEX P1 P2 P3: the code, and up to three parameters
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

// A stop code of this means that nothing is left moving.
constexpr uint16_t NO_STOP_CODE = 0;

struct PtzVerb {
  const char* name;   // one word, or two
  const char* group;  // the heading it stands under
  // DeviceModes that answer it. MODE_RELAY: every head, even one whose table does not tell so.
  uint8_t modes;
  uint16_t code;
  std::array<int8_t, PARAMETER_COUNT> parameters;  // fixed, or with kSpeed the signs
  VerbArguments arguments;
  uint16_t stop_code;  // the code that, with parameters of 0, ends what the verb starts
  const char* example;
  const char* help;
  int low = 0;  // of N
  int high = 0;
};

// The values that a command line gave.
struct VerbValues {
  int speed = SPEED_DEFAULT;
  int code = 0;
  std::vector<int> numbers;  // N, or PAN TILT ZOOM, or P1 to P3 as far as given
};

std::span<const PtzVerb> PtzVerbs();

// The verb `stop`. It ends all motion, and takes more than one record to do so.
const PtzVerb& PtzStopVerb();

// Whether a device of this model answers the verb.
bool Answers(const std::string& model, const PtzVerb& verb);

// Whether no code stops the head of this model, but only the stop frame itself.
bool IsStoppedByFrame(const std::string& model);

// Who answers the verb: "relay" for the models without a table of their own, "QB-610", "QB-620",
// "SD", "HD", "lens".
std::vector<std::string> AnsweringDevices(const PtzVerb& verb);

// The same in words, e.g. "relay (QB-620)" or "relay (not QB-610), HD".
std::string AnsweringDevicesText(const PtzVerb& verb);

// "N", "PAN TILT ZOOM", ...; "" for none.
const char* ArgumentsText(VerbArguments arguments);

// A record as it would be typed: "preset go 5", "code 2003 7 0 0" where no verb fits.
std::string VerbText(const CameraControl& control);

CameraControl VerbControl(const PtzVerb& verb, const VerbValues& values);

// The records that end what a verb has started; none for one that moves nothing.
std::vector<CameraControl> StopControls(const PtzVerb& verb);

}  // namespace tools
