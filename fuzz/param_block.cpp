// In: how long the parameter block's file is, its seven words, the model name and the rest; behind
// them a line of the port table.
// Holds: the settings are those of the block, with what is out of range replaced; a block that is
// too short or has too few ports is refused; exactly one mode's test takes a model.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cmmap/param_block.h"
#include "daemon/model_family.h"
#include "daemon/settings.h"
#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "relay/ptz_tables.h"
#include "util/bytes.h"

namespace {

constexpr ParamBlockOffset kWords[] = {
    PARAM_SERIAL_COUNT,      PARAM_SERIAL2_BAUD, PARAM_SERIAL2_PARITY, PARAM_SERIAL2_DATA_BITS,
    PARAM_SERIAL2_STOP_BITS, PARAM_PTZ_ENABLE,   PARAM_PTZ_PORT};
constexpr size_t kLongestName = 200;

int32_t WordAt(const std::string& block, ParamBlockOffset offset) {
  return static_cast<int32_t>(
      LoadLe32(reinterpret_cast<const uint8_t*>(&block[static_cast<size_t>(offset)])));
}

void CheckSettings(const Rs232Settings& settings, const std::string& block) {
  const int32_t parity = WordAt(block, PARAM_SERIAL2_PARITY);
  const auto port = static_cast<int16_t>(WordAt(block, PARAM_PTZ_PORT));
  FUZZ_CHECK(WordAt(block, PARAM_SERIAL_COUNT) >= 2);
  FUZZ_CHECK(settings.baud_rate == WordAt(block, PARAM_SERIAL2_BAUD));
  FUZZ_CHECK(settings.parity == (parity == 1 || parity == 2 ? parity : 0));
  FUZZ_CHECK(settings.data_bits == WordAt(block, PARAM_SERIAL2_DATA_BITS));
  FUZZ_CHECK(settings.stop_bits == WordAt(block, PARAM_SERIAL2_STOP_BITS));
  FUZZ_CHECK(settings.ptz_port == (WordAt(block, PARAM_PTZ_ENABLE) == 1 ? port : 0));
  const std::string name = block.substr(0, block.find('\0'));
  FUZZ_CHECK(name.substr(0, RS232_MODEL_NAME_SIZE - 1) == settings.model);
  FUZZ_CHECK(!PtzTableForModel(settings.model).empty());
  FUZZ_CHECK(IsSdModuleModel(settings.model) + IsHdModuleModel(settings.model) +
                 IsMotorizedLensModel(settings.model) + IsQb710Model(settings.model) <=
             1);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint16_t missing = input.Word();
  std::string block(PARAM_BLOCK_SIZE, '\xA5');
  for (const ParamBlockOffset word : kWords)
    StoreLe32(reinterpret_cast<uint8_t*>(&block[static_cast<size_t>(word)]), input.Long());
  fuzz::PutFile(UDP_PORT_TABLE_PATH, std::string(UDP_PORT_KEY) + "=" + input.Line() + "\n");
  const std::string name = fuzz::Text(input.Bytes(kLongestName));
  std::copy(name.begin(), name.end(), block.begin() + PARAM_MODEL_NAME);
  const bool is_short = missing > 0 && missing <= PARAM_BLOCK_SIZE;
  if (is_short) block.erase(block.size() - missing);
  fuzz::PutFile(PARAM_BLOCK_PATH, block);

  Rs232Settings settings;
  memset(&settings, 0x5A, sizeof(settings));
  if (ReadSettings(&settings) != 0) {
    FUZZ_CHECK(is_short || WordAt(block, PARAM_SERIAL_COUNT) < 2);
  } else {
    FUZZ_CHECK(!is_short);
    CheckSettings(settings, block);
  }
  return 0;
}
