// The camera information file: which camera module is connected to the serial line.
//
// Three lines, VERSION=, MODEL= and RESOLUTION= (util/camera_info_file.h). An SD module sends its
// model in every reply; an HD module is queried once. Main thread only. If the trace level in the
// context is not 0, prints the model code of each SD reply, or the three HD values, on standard
// output.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "context/rs232_context.h"
#include "module/hd_frame.h"
#include "relay/pelco_d.h"

// Timeout of one query, seconds.
constexpr int CAMERA_INFO_ANSWER_TIMEOUT_S = 3;
// Model code before the first reply of a module.
constexpr uint8_t SD_NO_MODEL = 0xFF;

// Assembles the reply frames of an SD module. The default member values are the state at the start
// of the mode.
struct SdCameraInfo {
  int state = 0;  // index of the next byte of `frame`
  PelcoFrame frame = {};
  uint8_t model = SD_NO_MODEL;
};

// Answers of an HD module; HD_NO_VALUE if unknown.
struct HdCameraInfo {
  uint8_t version = HD_NO_VALUE;
  uint8_t resolution_flag = HD_NO_VALUE;
  uint8_t sensor = HD_NO_VALUE;
};

// Parses one byte from the line. Returns true when it completes a frame, and then stores the
// frame's model code in `info->model`. Skips bytes before a sync byte; checks nothing else.
bool SdCameraInfoTake(SdCameraInfo* info, uint8_t byte);

// Parses the bytes of one read and rewrites the file after every complete frame. Frames may be
// split across reads. Blocks while the shell commands run. Returns 0.
int SdCameraInfoParse(const Rs232Context& context, SdCameraInfo* info,
                      std::span<const uint8_t> bytes);

// Queries the micom for version, resolution flag and sensor, and writes the file if it received all
// three. Each query blocks for up to CAMERA_INFO_ANSWER_TIMEOUT_S + 1 seconds without an answer. An
// answer too short to contain its value is ignored. Returns 0.
int HdCameraInfoWrite(const Rs232Context& context, HdCameraInfo* info);

// Return the texts of MODEL= and RESOLUTION= for an HD module.
const char* HdModelText(uint8_t sensor);
const char* HdResolutionText(uint8_t sensor, uint8_t resolution_flag);
