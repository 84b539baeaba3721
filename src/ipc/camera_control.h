// The camera-control record, the payload of CICOMM_PCMD_PTZ, and the known control codes.
//
// Each mode has a table of the codes it handles and of what their three parameters mean.
#pragma once

#include <cstdint>

// Target word of a record for this daemon; records with any other target are ignored.
constexpr int32_t CAMERA_CONTROL_TARGET = 4;

// Byte offsets in the payload; integers are little-endian. Bytes 4 to 11 are not used.
enum CameraControlOffset : int {
  CAMERA_CONTROL_TARGET_AT = 0,  // int32
  CAMERA_CONTROL_CODE_AT = 12,   // uint16
  CAMERA_CONTROL_FIRST_AT = 14,  // signed byte
  CAMERA_CONTROL_SECOND_AT = 15,
  CAMERA_CONTROL_THIRD_AT = 16,
  CAMERA_CONTROL_SIZE = 17,  // bytes of the payload that are read
};

// Control codes. "p" is the first parameter.
enum CameraControlCode : uint16_t {
  CAMERA_CODE_WHITE_BALANCE = 0x1005,  // auto white balance, p
  CAMERA_CODE_BACKLIGHT = 0x1006,      // backlight compensation, p
  CAMERA_CODE_AUTO_IRIS = 0x1009,      // auto iris, p
  CAMERA_CODE_IRIS_STEP =
      0x100A,  // moves the iris by PIRIS_STEP steps; p above 0 opens, below 0 closes
  CAMERA_CODE_JOYSTICK = 0x1012,      // pan, tilt and zoom, or zoom only
  CAMERA_CODE_SET_PRESET = 0x1020,    // p
  CAMERA_CODE_GO_TO_PRESET = 0x1021,  // p
  CAMERA_CODE_CLEAR_PRESET = 0x1022,  // p
  CAMERA_CODE_SET_PATTERN = 0x1060,   // start recording pattern p
  CAMERA_CODE_RUN_PATTERN = 0x1061,   // p
  CAMERA_CODE_ZOOM_SPEED = 0x1072,    // p, signed; sent as p / 31 - 1
  CAMERA_CODE_FOCUS_SPEED = 0x1073,   // p, signed; sent as p / 31 - 1
  CAMERA_CODE_GO_TO_PRESET_33 = 0x1091,
  CAMERA_CODE_GO_TO_PRESET_34 = 0x1092,
  CAMERA_CODE_MODULE_SETTING = 0x1093,  // p, unsigned
  CAMERA_CODE_FOCUS_SEARCH = 0x1202,    // searches once for the sharpest focus
  CAMERA_CODE_MENU = 0x2000,
  CAMERA_CODE_FOCUS = 0x2001,  // sign of p; in the lens mode, its magnitude selects the speed
  CAMERA_CODE_ZOOM = 0x2002,   // sign of the third parameter (lens: and magnitude), or as JOYSTICK
  CAMERA_CODE_IRIS = 0x2003,   // same as CAMERA_CODE_IRIS_STEP
  CAMERA_CODE_MENU_ENTER = 0x2005,  // same as CAMERA_CODE_MENU
  CAMERA_CODE_UP = 0x2007,
  CAMERA_CODE_DOWN = 0x2008,
  CAMERA_CODE_LEFT = 0x2009,
  CAMERA_CODE_RIGHT = 0x200A,
  CAMERA_CODE_SET_AUXILIARY = 0x4001,    // p
  CAMERA_CODE_CLEAR_AUXILIARY = 0x4002,  // p
  CAMERA_CODE_GO_TO_PRESET_99 = 0x4003,
  CAMERA_CODE_GO_TO_PRESET_96 = 0x4004,
  CAMERA_CODE_ASSIST = 0x8012,   // the 'F' button: reset the motors and search the focus
  CAMERA_CODE_AF_MODE = 0x8100,  // p: selects who drives the lens
  CAMERA_CODE_REMOTE_RESET = 0xFFFF,
};

struct CameraControl {
  int32_t target;
  uint16_t code;  // a CameraControlCode, or an unknown value
  int8_t first;   // parameters; their meaning depends on the code
  int8_t second;
  int8_t third;
};

// Decodes the record from a payload of at least CAMERA_CONTROL_SIZE bytes.
CameraControl CameraControlDecode(const uint8_t* payload);

// Encodes the record into CAMERA_CONTROL_SIZE bytes; unused bytes become 0.
void CameraControlEncode(const CameraControl& control, uint8_t* payload);
