// The camera information file: which camera module sits behind the serial line.
//
// Three lines, VERSION=, MODEL= and RESOLUTION= (util/camera_info_file.h). An SD module tells its
// model in every reply; an HD module is asked once. Main thread only. The trace level of the
// context adds a line on standard output.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "context/rs232_context.h"
#include "module/hd_frame.h"
#include "relay/pelco_d.h"

// Longest wait for the answer to one query, seconds.
constexpr int CAMERA_INFO_ANSWER_TIMEOUT_S = 3;
// A model code that no module has told yet.
constexpr uint8_t SD_NO_MODEL = 0xFF;

// Collects the reply frames of an SD module. All members are as here at the mode's start.
struct SdCameraInfo {
  int state = 0;  // index of the next byte of `frame`
  PelcoFrame frame = {};
  uint8_t model = SD_NO_MODEL;
};

// What an HD module told about itself; HD_NO_VALUE where it did not.
struct HdCameraInfo {
  uint8_t version = HD_NO_VALUE;
  uint8_t resolution_flag = HD_NO_VALUE;
  uint8_t sensor = HD_NO_VALUE;
};

// Takes one byte of the line. Returns true when it completes a frame, whose model code is then
// in `info->model`. Bytes before a sync byte are passed over; nothing else of a frame is
// examined.
bool SdCameraInfoTake(SdCameraInfo* info, uint8_t byte);

// Takes the bytes of one read and rewrites the file after every complete frame. Frames may be
// split across reads. Blocks for the shell commands. Returns 0.
int SdCameraInfoParse(const Rs232Context& context, SdCameraInfo* info,
                      std::span<const uint8_t> bytes);

// Asks the micom for version, resolution flag and sensor (up to CAMERA_INFO_ANSWER_TIMEOUT_S + 1
// seconds each when it does not answer) and writes the file once all three are known. An answer too
// short to hold its value counts as none. Returns 0.
int HdCameraInfoWrite(const Rs232Context& context, HdCameraInfo* info);

// The texts of MODEL= and RESOLUTION= for an HD module.
const char* HdModelText(uint8_t sensor);
const char* HdResolutionText(uint8_t sensor, uint8_t resolution_flag);
