// micro_bench: the paths inside the daemon that every byte or command takes, each alone.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ipc/camera_control.h"
#include "lens/i2m.h"
#include "lens/position.h"
#include "lens/tracking_tables.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "relay/pelco_d.h"
#include "relay/ptz_tables.h"
#include "util/conf_file.h"

namespace {

using benchmark::DoNotOptimize;

void BuildPelcoFrame(benchmark::State& state) {
  PelcoCommand command = {.command1 = 0, .command2 = PELCO2_PAN_LEFT, .data1 = 0x1D, .data2 = 0};
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(command);
    DoNotOptimize(PelcoBuild(command));
  }
}
BENCHMARK(BuildPelcoFrame)->Name("build a Pelco-D frame");

void BuildHdFrame(benchmark::State& state) {
  uint8_t data = HD_LENS_TELE;
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(data);
    DoNotOptimize(HdBuild(HD_LENS, HD_SETTING, data));
  }
}
BENCHMARK(BuildHdFrame)->Name("build an HD micom frame");

void BuildLensFrame(benchmark::State& state) {
  uint8_t low = 10;
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(low);
    DoNotOptimize(I2mBuild(I2M_WRITE, I2M_ADDR_FOCUS_MOVE, 0, low));
  }
}
BENCHMARK(BuildLensFrame)->Name("build a lens register frame");

void ParseLensFrame(benchmark::State& state) {
  I2mFrame frame = I2mBuild(I2M_WRITE, I2M_ADDR_FOCUS_VALUE, 0x12, 0x34);
  I2mParser parser = {};
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(frame);
    for (const uint8_t byte : frame)
      DoNotOptimize(I2mParserTake(&parser, byte));
  }
  state.SetBytesProcessed(state.iterations() * I2M_FRAME_SIZE);
}
BENCHMARK(ParseLensFrame)->Name("parse a lens register frame");

void DecodeControl(benchmark::State& state) {
  std::array<uint8_t, CAMERA_CONTROL_SIZE> payload;
  CameraControlEncode({.target = CAMERA_CONTROL_TARGET,
                       .code = CAMERA_CODE_JOYSTICK,
                       .first = 64,
                       .second = -127,
                       .third = 0},
                      payload.data());
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(payload);
    DoNotOptimize(CameraControlDecode(payload.data()));
  }
}
BENCHMARK(DecodeControl)->Name("decode a camera-control record");

// The table of most rows; the code of its last row, and the one that needs arithmetic.
void Translate(benchmark::State& state, uint16_t code) {
  const auto table = PtzTableForModel("QB-620");
  CameraControl control = {
      .target = CAMERA_CONTROL_TARGET, .code = code, .first = 64, .second = -127, .third = 0};
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(control);
    DoNotOptimize(PtzTranslate(table, control));
  }
}
BENCHMARK_CAPTURE(Translate, last, CAMERA_CODE_REMOTE_RESET)->Name("PTZ table, its last code");
BENCHMARK_CAPTURE(Translate, joystick, CAMERA_CODE_JOYSTICK)->Name("PTZ table, joystick");

void Crc(benchmark::State& state) {
  std::vector<uint8_t> bytes(1024, 0x5A);
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(bytes.data());
    DoNotOptimize(MicomCrc(bytes));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}
BENCHMARK(Crc)->Name("CRC of 1 KiB of firmware");

void FollowCurve(benchmark::State& state) {
  int32_t zoom = 777;
  int32_t focus = 0;
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(zoom);
    DoNotOptimize(TrackingFocus(ZFTABLE_HERON, zoom, &focus));
    DoNotOptimize(focus);
  }
}
BENCHMARK(FollowCurve)->Name("focus on the tracking curve");

// A settings file of the size that devices have, with the key on its last line.
class SettingsFile {
 public:
  SettingsFile() {
    const int fd = mkstemp(path_.data());
    FILE* file = fd < 0 ? nullptr : fdopen(fd, "w");
    if (file == nullptr) abort();
    constexpr int kKeys = 60;
    for (int i = 0; i < kKeys; ++i)
      fprintf(file, "Some.Key.%d.Name=value of it\n", i);
    fprintf(file, "Serial.2.DevPath=/dev/ttyS1\n");
    fclose(file);
  }
  ~SettingsFile() { unlink(path_.c_str()); }
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;

  const char* Path() const { return path_.c_str(); }

 private:
  std::string path_ = "/tmp/micro_bench.XXXXXX";
};

void ReadSetting(benchmark::State& state) {
  const SettingsFile file;
  std::array<char, 256> value;
  for ([[maybe_unused]] auto _ : state) {
    DoNotOptimize(CUTIL_GetConfValue(file.Path(), "Serial.2.DevPath", value.data(), value.size()));
  }
}
BENCHMARK(ReadSetting)->Name("read the last of 61 settings of a file");

}  // namespace

BENCHMARK_MAIN();  // NOLINT(modernize-avoid-c-arrays)
