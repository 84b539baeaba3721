#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "bench/measure.h"
#include "ipc/camera_control.h"
#include "lens/i2m.h"
#include "lens/position.h"
#include "lens/tracking_tables.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "relay/pelco_d.h"
#include "relay/ptz_tables.h"
#include "sim/world.h"
#include "util/conf_file.h"

namespace bench {
namespace {

constexpr double kNsPerS = 1e9;

// Prevents the compiler from optimizing a value away.
template <typename T>
void Keep(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

// Also makes the compiler assume that the value changes.
template <typename T>
void Keep(T& value) {
  if constexpr (sizeof(T) <= sizeof(void*)) {
    asm volatile("" : "+m,r"(value) : : "memory");
  } else {
    asm volatile("" : "+m"(value) : : "memory");
  }
}

double CpuNanoseconds() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * kNsPerS + static_cast<double>(time.tv_nsec);
}

class Paths {
 public:
  Paths(double seconds, Results* results) : seconds_(seconds), results_(results) {}

  // Adds the mean processor time of a call, measured for at least the planned time.
  template <typename Path>
  void Add(const std::string& label, Path path) {
    double taken = 0;
    long calls = 1;
    for (; taken < seconds_ * kNsPerS; calls *= 2) {
      const double before = CpuNanoseconds();
      for (long i = 0; i < calls; ++i)
        path();
      taken = CpuNanoseconds() - before;
    }
    results_->Add({label, "In-process paths", label, "ns"}, *results_->entrants.front().kind,
                  taken / static_cast<double>(calls / 2));
  }

 private:
  double seconds_;
  Results* results_;
};

void AddFrames(Paths* paths) {
  PelcoCommand pelco = {.command1 = 0, .command2 = PELCO2_PAN_LEFT, .data1 = 0x1D, .data2 = 0};
  paths->Add("build a Pelco-D frame", [pelco]() mutable {
    Keep(pelco);
    Keep(PelcoBuild(pelco));
  });
  uint8_t tele = HD_LENS_TELE;
  paths->Add("build an HD micom frame", [tele]() mutable {
    Keep(tele);
    Keep(HdBuild(HD_LENS, HD_SETTING, tele));
  });
  uint8_t low = 10;
  paths->Add("build a lens register frame", [low]() mutable {
    Keep(low);
    Keep(I2mBuild(I2M_WRITE, I2M_ADDR_FOCUS_MOVE, 0, low));
  });
  I2mFrame frame = I2mBuild(I2M_WRITE, I2M_ADDR_FOCUS_VALUE, 0x12, 0x34);
  paths->Add("parse a lens register frame", [frame, parser = I2mParser{}]() mutable {
    Keep(frame);
    for (const uint8_t byte : frame)
      Keep(I2mParserTake(&parser, byte));
  });
}

void AddCommands(Paths* paths) {
  const CameraControl control = {.target = CAMERA_CONTROL_TARGET,
                                 .code = CAMERA_CODE_JOYSTICK,
                                 .first = 64,
                                 .second = -127,
                                 .third = 0};
  std::array<uint8_t, CAMERA_CONTROL_SIZE> payload;
  CameraControlEncode(control, payload.data());
  paths->Add("decode a camera-control record", [payload]() mutable {
    Keep(payload);
    Keep(CameraControlDecode(payload.data()));
  });
  // The longest table: its last code, and the code that needs arithmetic.
  const auto translate = [&control](uint16_t code) {
    CameraControl coded = control;
    coded.code = code;
    return [table = PtzTableForModel("QB-620"), coded]() mutable {
      Keep(coded);
      Keep(PtzTranslate(table, coded));
    };
  };
  paths->Add("PTZ table, its last code", translate(CAMERA_CODE_REMOTE_RESET));
  paths->Add("PTZ table, joystick", translate(CAMERA_CODE_JOYSTICK));
}

// Writes a settings file of realistic size, with the key on its last line.
std::string MakeSettings() {
  std::string path = std::string(sim::kWorldDirectory) + "/settings";
  std::string text;
  constexpr int kKeys = 60;
  for (int i = 0; i < kKeys; ++i)
    text += "Some.Key." + std::to_string(i) + ".Name=value of it\n";
  sim::WriteTextFile(path, text + "Serial.2.DevPath=/dev/ttyS1\n");
  return path;
}

}  // namespace

void MeasurePaths(const Plan& plan, Results* results) {
  Paths paths(plan.path_seconds, results);
  AddFrames(&paths);
  AddCommands(&paths);
  paths.Add("CRC of 1 KiB of firmware", [bytes = std::vector<uint8_t>(1024, 0x5A)] {
    Keep(bytes.data());
    Keep(MicomCrc(bytes));
  });
  paths.Add("focus on the tracking curve", [zoom = 777, focus = 0]() mutable {
    Keep(zoom);
    Keep(TrackingFocus(ZFTABLE_HERON, zoom, &focus));
    Keep(focus);
  });
  paths.Add("read the last of 61 settings of a file", [path = MakeSettings()] {
    std::array<char, 256> value;
    Keep(CUTIL_GetConfValue(path.c_str(), "Serial.2.DevPath", value.data(), value.size()));
  });
}

}  // namespace bench
