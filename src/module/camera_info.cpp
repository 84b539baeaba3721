#include "module/camera_info.h"

#include <cstdio>

#include "module/module_send.h"
#include "serial/serial_io.h"
#include "util/camera_info_file.h"

namespace {

// Line of the file, NUL included.
constexpr size_t kLineSize = 64;

// --- SD ----------------------------------------------------------------------------------------

void WriteSdFile(uint8_t model) {
  char model_line[kLineSize];
  snprintf(model_line, sizeof(model_line), "MODEL=%d", model);
  CUTIL_WriteCameraInfo({"VERSION=0.0", model_line, "RESOLUTION=sd"});
}

// --- HD ----------------------------------------------------------------------------------------

struct ModelRow {
  uint8_t sensor;
  const char* text;
};

constexpr std::array<ModelRow, 4> kModels = {{
    {0x16, "Panasonic 1.3M"},
    {0x26, "Panasonic 2M"},
    {0x36, "OmniVision 2M"},
    {0x46, "Sony 2M"},
}};

struct ResolutionRow {
  uint8_t sensor;
  const char* flag_clear;
  const char* flag_set;
};

constexpr std::array<ResolutionRow, 1> kResolutions = {{{0x16, "1280*720", "1280*1024"}}};
constexpr ResolutionRow kOtherResolution = {0, "1080p", "720p"};

// Queries one value. Leaves it unchanged if the answer is missing or too short.
void Query(HdCommand command, uint8_t* value) {
  HdFrame answer = {};
  HdModuleSend(SERIAL_ONE_PORT, command, HD_QUERY, HD_NO_DATA);
  const int count =
      SerialRecv(SERIAL_ONE_PORT, answer.data(), HD_FRAME_SIZE, CAMERA_INFO_ANSWER_TIMEOUT_S);
  if (count > HD_DATA_AT) *value = answer[HD_DATA_AT];
}

bool IsComplete(const HdCameraInfo& info) {
  return info.version != HD_NO_VALUE && info.resolution_flag != HD_NO_VALUE &&
         info.sensor != HD_NO_VALUE;
}

void WriteHdFile(const HdCameraInfo& info) {
  char version[kLineSize];
  char model[kLineSize];
  char resolution[kLineSize];
  snprintf(version, sizeof(version), "VERSION=%d.%d", info.version >> 4, info.version & 0x0F);
  snprintf(model, sizeof(model), "MODEL=%s", HdModelText(info.sensor));
  snprintf(resolution, sizeof(resolution), "RESOLUTION=%s",
           HdResolutionText(info.sensor, info.resolution_flag));
  CUTIL_WriteCameraInfo({version, model, resolution});
}

}  // namespace

bool SdCameraInfoTake(SdCameraInfo* info, uint8_t byte) {
  info->frame[static_cast<size_t>(info->state)] = byte;
  if (info->state == PELCO_SYNC_AT && byte != PELCO_SYNC) return false;
  if (++info->state < PELCO_FRAME_SIZE) return false;
  info->state = 0;
  info->model = info->frame[PELCO_DATA2_AT];
  return true;
}

int SdCameraInfoParse(const Rs232Context& context, SdCameraInfo* info,
                      std::span<const uint8_t> bytes) {
  for (const uint8_t byte : bytes) {
    if (!SdCameraInfoTake(info, byte)) continue;
    if (context.trace_level != 0) printf("### model %02X\n", info->model);
    WriteSdFile(info->model);
  }
  return 0;
}

int HdCameraInfoWrite(const Rs232Context& context, HdCameraInfo* info) {
  *info = {};
  Query(HD_VERSION, &info->version);
  Query(HD_RESOLUTION_FLAG, &info->resolution_flag);
  Query(HD_SENSOR, &info->sensor);
  if (context.trace_level != 0) {
    printf("# %02X, %02X, %02X\n", info->version, info->resolution_flag, info->sensor);
  }
  if (IsComplete(*info)) WriteHdFile(*info);
  return 0;
}

const char* HdModelText(uint8_t sensor) {
  for (const ModelRow& row : kModels) {
    if (row.sensor == sensor) return row.text;
  }
  return "Unknown";
}

const char* HdResolutionText(uint8_t sensor, uint8_t resolution_flag) {
  const ResolutionRow* found = &kOtherResolution;
  for (const ResolutionRow& row : kResolutions) {
    if (row.sensor == sensor) found = &row;
  }
  return resolution_flag == 0 ? found->flag_clear : found->flag_set;
}
