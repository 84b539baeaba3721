// In: the device's files about sensor and lens, cut at the first form feed.
// Holds: the sensor is known only by one of its names; a tuning file of any name is looked for
// within the tuning directory's name pattern; the micom's question for the lens is answered with
// codes that go together, or not at all.
#include <algorithm>
#include <cctype>
#include <string>

#include "fuzz/check.h"
#include "fuzz/fake_line.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/i2m.h"
#include "lens/sensor_config.h"
#include "lens/video_source.h"

namespace {

std::string Lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(tolower(c)); });
  return text;
}

bool IsKnownPair(uint8_t sensor, uint8_t lens) {
  constexpr uint8_t kLensOfSensor[] = {0, 1, 1, 2};
  return sensor < sizeof(kLensOfSensor) && kLensOfSensor[sensor] == lens;
}

void CheckLensAnswer() {
  fuzz::Input silence(nullptr, 0);
  const fuzz::FakeLine line(&silence);
  i2m_dispatch(I2M_ADDR_MFZ_MODEL, 0, 0);
  FUZZ_CHECK(line.writes.size() <= 1);
  if (line.writes.empty()) return;
  const auto& frame = line.writes[0];
  FUZZ_CHECK(frame.size() == I2M_FRAME_SIZE && frame[I2M_ADDRESS_AT] == I2M_ADDR_MFZ_MODEL);
  FUZZ_CHECK(IsKnownPair(frame[I2M_HIGH_AT], frame[I2M_LOW_AT]));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string files = fuzz::Text({data, size});
  const size_t cut = std::min(files.find('\f'), files.size());
  fuzz::PutFile(VIDEO_SOURCE_PATH, files.substr(0, cut));
  fuzz::PutFile(LENS_CAPABILITIES_PATH, files.substr(std::min(cut + 1, files.size())));

  int32_t antiflicker = -1;
  int32_t supported = -1;
  FUZZ_CHECK(read_sensor_lens_config(&antiflicker, &supported) == 0);
  FUZZ_CHECK(antiflicker == 0);  // there is no tuning file
  FUZZ_CHECK(supported == 0 || supported == 1);
  if (supported == 1) FUZZ_CHECK(Lowered(files.substr(0, cut)).find("imx12") != std::string::npos);
  CheckLensAnswer();
  return 0;
}
