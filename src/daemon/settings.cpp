#include "daemon/settings.h"

#include <cstdlib>
#include <cstring>

#include "cmmap/cmmap.h"
#include "cmmap/param_block.h"
#include "ipc/cicomm.h"
#include "util/bytes.h"
#include "util/conf_file.h"

namespace {

constexpr size_t kPortTextSize = 128;
constexpr int kPortsNeeded = 2;
constexpr int kPtzEnabled = 1;

struct ParamBlock {
  uint8_t bytes[PARAM_BLOCK_SIZE];

  int32_t Word(ParamBlockOffset offset) const {
    return static_cast<int32_t>(LoadLe32(bytes + offset));
  }
};

int ReadUdpPort() {
  char text[kPortTextSize] = {};
  CUTIL_GetConfValue(UDP_PORT_TABLE_PATH, UDP_PORT_KEY, text, sizeof(text));
  return atoi(text);
}

int CopyParamBlock(ParamBlock* block) {
  CMMAP map;
  int result = CMMAP_Init(&map, PARAM_BLOCK_PATH, PARAM_BLOCK_KEY, CMMAP_OPEN, PARAM_BLOCK_SIZE);
  if (result == 0) result = map.Read(&map, block->bytes, sizeof(block->bytes));
  map.Deinit(&map);
  return result;
}

void TakeModel(const ParamBlock& block, Rs232Settings* settings) {
  const char* model = reinterpret_cast<const char*>(block.bytes + PARAM_MODEL_NAME);
  memcpy(settings->model, model, strnlen(model, RS232_MODEL_NAME_SIZE - 1));
}

int32_t KnownParity(int32_t parity) {
  return parity == 1 || parity == 2 ? parity : 0;
}

}  // namespace

int ReadSettings(Rs232Settings* settings) {
  *settings = {};
  settings->udp_port = ReadUdpPort();
  settings->command_port = RS232_COMMAND_PORT;

  ParamBlock block;
  if (CopyParamBlock(&block) != 0) return -1;
  TakeModel(block, settings);
  if (block.Word(PARAM_PTZ_ENABLE) == kPtzEnabled) {
    settings->ptz_port = static_cast<int16_t>(block.Word(PARAM_PTZ_PORT));
  }
  if (block.Word(PARAM_SERIAL_COUNT) < kPortsNeeded) return -1;
  settings->baud_rate = block.Word(PARAM_SERIAL2_BAUD);
  settings->parity = KnownParity(block.Word(PARAM_SERIAL2_PARITY));
  settings->data_bits = block.Word(PARAM_SERIAL2_DATA_BITS);
  settings->stop_bits = block.Word(PARAM_SERIAL2_STOP_BITS);
  return 0;
}
