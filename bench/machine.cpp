#include "bench/machine.h"

#include <sched.h>
#include <sys/utsname.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <thread>

namespace bench {
namespace {

std::string ProcessorName() {
  std::ifstream file("/proc/cpuinfo");
  std::string line;
  while (std::getline(file, line)) {
    // "model name" on a PC, "Model" or "Hardware" on a board.
    if (line.rfind("model name", 0) == 0 || line.rfind("Model", 0) == 0 ||
        line.rfind("Hardware", 0) == 0) {
      return line.substr(line.find(':') + 2);
    }
  }
  return "unknown";
}

int ProcessorCount() {
  cpu_set_t set;
  CPU_ZERO(&set);
  sched_getaffinity(0, sizeof(set), &set);
  return CPU_COUNT(&set);
}

std::string Compiler() {
#ifdef __clang__
  return "clang " + std::to_string(__clang_major__) + "." + std::to_string(__clang_minor__);
#else
  return "g++ " + std::to_string(__GNUC__) + "." + std::to_string(__GNUC_MINOR__);
#endif
}

struct Ticks {
  double idle = 0;
  double all = 0;
};

// Time of all processors since the start of the machine.
Ticks TicksNow() {
  std::ifstream file("/proc/stat");
  std::string name;
  file >> name;
  // user, nice, system, idle, waiting for I/O, interrupts (two kinds), stolen by the host
  constexpr int kFields = 8;
  constexpr int kIdle = 3;
  constexpr int kWaiting = 4;
  Ticks ticks;
  for (int i = 0; i < kFields; ++i) {
    double field = 0;
    file >> field;
    ticks.all += field;
    if (i == kIdle || i == kWaiting) ticks.idle += field;
  }
  return ticks;
}

std::string Today() {
  const time_t now = time(nullptr);
  tm date = {};
  localtime_r(&now, &date);
  char text[sizeof("2000-01-01")];
  strftime(text, sizeof(text), "%F", &date);
  return text;
}

}  // namespace

double BusyProcessors() {
  const Ticks before = TicksNow();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const Ticks after = TicksNow();
  const double all = after.all - before.all;
  if (all <= 0) return 0;
  return ProcessorCount() * (1 - (after.idle - before.idle) / all);
}

std::vector<std::pair<std::string, std::string>> DescribeMachine() {
  utsname kernel = {};
  uname(&kernel);
  return {{"processors", std::to_string(ProcessorCount()) + " x " + ProcessorName()},
          {"kernel", std::string(kernel.sysname) + " " + kernel.release + " " + kernel.machine},
          {"compiler", Compiler()},
          {"date", Today()}};
}

}  // namespace bench
