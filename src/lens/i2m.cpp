#include "lens/i2m.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "lens/mfz_state.h"
#include "lens/video_source.h"
#include "serial/serial_io.h"
#include "util/conf_file.h"

namespace {

// --- The lens model question -------------------------------------------------------------------

constexpr std::array<const char*, 4> kSensorNames = {"SENSOR_UNKNOWN", "SENSOR_AR0230",
                                                     "SENSOR_IMX123", "SENSOR_IMX178"};
constexpr std::array<const char*, 3> kLensModelNames = {"MFZ_UNKNOWN", "MFZ_VARIO2812",
                                                        "MFZ_VARIO3610"};

// Which lens goes with a sensor. The codes index the name tables.
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
  const char* label;  // padded, so that the values stand in one column
  void (*act)();
};

constexpr std::array<DispatchRow, 5> kDispatch = {{
    {I2M_ADDR_VERSION, "[I2M_ADDR_VERSION]     ", nullptr},
    {I2M_ADDR_MOTOR_SPEED, "[I2M_ADDR_MOTOR_SPEED] ", nullptr},
    {I2M_ADDR_FOCUS_JOG, "[I2M_ADDR_FOCUS_JOG]   ", nullptr},
    {I2M_ADDR_AF_MODE, "[I2M_ADDR_AF_MODE]     ", nullptr},
    {I2M_ADDR_MFZ_MODEL, "[I2M_ADDR_MFZ_MODEL]   ", AnswerLensModel},
}};

// Whether `byte` may stand at the parser's place. From the address on every byte may.
bool Fits(uint8_t place, uint8_t byte) {
  if (place == I2M_SYNC_AT) return byte == I2M_SYNC;
  if (place == I2M_KIND_AT) return byte == I2M_WRITE || byte == I2M_READ;
  return true;
}

}  // namespace

uint8_t I2mChecksum(const I2mFrame& frame) {
  unsigned sum = 0;
  for (size_t i = 0; i < I2M_CHECKSUM_AT; ++i)
    sum += frame[i];
  return static_cast<uint8_t>(sum & 0xFF);
}

I2mFrame I2mBuild(uint8_t kind, uint8_t address, uint8_t high, uint8_t low) {
  I2mFrame frame = {I2M_SYNC, kind, address, high, low, 0};
  frame[I2M_CHECKSUM_AT] = I2mChecksum(frame);
  return frame;
}

bool I2mParserTake(I2mParser* parser, uint8_t byte) {
  if (!Fits(parser->state, byte)) {
    // A sync byte in place of the kind may itself begin the frame.
    parser->state = byte == I2M_SYNC ? I2M_KIND_AT : I2M_SYNC_AT;
    return false;
  }
  parser->frame[parser->state++] = byte;
  if (parser->state < I2M_FRAME_SIZE) return false;
  parser->state = I2M_SYNC_AT;
  parser->frame[I2M_CHECKSUM_AT] = I2mChecksum(parser->frame);
  return true;
}

int i2m_send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low) {
  const I2mFrame frame = I2mBuild(kind, address, high, low);
  return SerialSend(g_mfz.context.serial, frame.data(), I2M_FRAME_SIZE);
}

int i2m_write(uint8_t address, uint16_t value) {
  return i2m_send(I2M_WRITE, address, static_cast<uint8_t>(value >> 8),
                  static_cast<uint8_t>(value & 0xFF));
}

int i2m_request(uint8_t address) {
  return i2m_send(I2M_READ, address, 0, 0);
}

bool i2m_read_reply(I2mFrame* reply) {
  return SerialRecv(g_mfz.context.serial, reply->data(), I2M_FRAME_SIZE, I2M_REPLY_LIMIT_S) >=
         I2M_FRAME_SIZE;
}

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
