#include "lens/i2m_dispatch.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "lens/i2m.h"
#include "lens/mfz_state.h"
#include "lens/video_source.h"
#include "util/conf_file.h"

namespace {

// --- The query for the lens model ----------------------------------------------------------------

constexpr std::array<const char*, 4> kSensorNames = {"SENSOR_UNKNOWN", "SENSOR_AR0230",
                                                     "SENSOR_IMX123", "SENSOR_IMX178"};
constexpr std::array<const char*, 3> kLensModelNames = {"MFZ_UNKNOWN", "MFZ_VARIO2812",
                                                        "MFZ_VARIO3610"};

// The lens of each sensor. The codes are indexes into the name tables.
struct LensModelRow {
  const char* sensor;
  uint8_t sensor_code;
  uint8_t lens_model_code;
};

constexpr std::array<LensModelRow, 3> kLensModels = {{
    {"AR0230", 1, 1},
    {"IMX123", 2, 1},
    {"IMX178", 3, 2},
}};
constexpr LensModelRow kUnknownLensModel = {"", 0, 0};

LensModelRow LensModelOf(const char* sensor) {
  const auto* row =
      std::find_if(kLensModels.begin(), kLensModels.end(),
                   [sensor](const LensModelRow& r) { return strcmp(r.sensor, sensor) == 0; });
  return row != kLensModels.end() ? *row : kUnknownLensModel;
}

void AnswerLensModel() {
  char sensor[64] = {};
  if (CUTIL_GetConfValue(VIDEO_SOURCE_PATH, VIDEO_SOURCE_SENSOR_KEY, sensor, sizeof(sensor)) != 0) {
    return;
  }
  const LensModelRow model = LensModelOf(sensor);
  printf("...sensor_type=%s, mfz_model=%s\n", kSensorNames[model.sensor_code],
         kLensModelNames[model.lens_model_code]);
  i2m_send(I2M_WRITE, I2M_ADDR_MFZ_MODEL, model.sensor_code, model.lens_model_code);
}

// --- Dispatch ----------------------------------------------------------------------------------

struct DispatchRow {
  uint8_t address;
  const char* label;  // padded, to align the values
  void (*act)();
};

constexpr std::array<DispatchRow, 5> kDispatch = {{
    {I2M_ADDR_VERSION, "[I2M_ADDR_VERSION]     ", nullptr},
    {I2M_ADDR_MOTOR_SPEED, "[I2M_ADDR_MOTOR_SPEED] ", nullptr},
    {I2M_ADDR_FOCUS_JOG, "[I2M_ADDR_FOCUS_JOG]   ", nullptr},
    {I2M_ADDR_AF_MODE, "[I2M_ADDR_AF_MODE]     ", nullptr},
    {I2M_ADDR_MFZ_MODEL, "[I2M_ADDR_MFZ_MODEL]   ", AnswerLensModel},
}};

}  // namespace

void i2m_parse_byte(uint8_t byte) {
  if (!I2mParserTake(&g_mfz.parser, byte)) return;
  const I2mFrame& frame = g_mfz.parser.frame;
  printf("RX parsed: %02X,%02X,%02X,%02X,%02X,%02X, ==> ", frame[0], frame[1], frame[2], frame[3],
         frame[4], frame[5]);
  i2m_dispatch(frame[I2M_ADDRESS_AT], frame[I2M_HIGH_AT], frame[I2M_LOW_AT]);
}

void i2m_dispatch(uint8_t address, uint8_t high, uint8_t low) {
  const auto* row = std::find_if(kDispatch.begin(), kDispatch.end(),
                                 [address](const DispatchRow& r) { return r.address == address; });
  if (row == kDispatch.end()) {
    printf("[UNDEFINED CMD:0x%02X]   0x%02X, 0x%02X\n", address, high, low);
    return;
  }
  printf("%s0x%02X, 0x%02X\n", row->label, high, low);
  if (row->act != nullptr) row->act();
}
