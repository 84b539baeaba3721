#include "bench/machine.h"

#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

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

// Idle time of all processors since boot, in seconds.
double IdleSeconds() {
  std::ifstream file("/proc/uptime");
  double up = 0;
  double idle = 0;
  file >> up >> idle;
  return idle;
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
  const double before = IdleSeconds();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  return static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)) - (IdleSeconds() - before);
}

std::string DescribeMachine() {
  utsname kernel = {};
  uname(&kernel);
  return "processors: " + std::to_string(ProcessorCount()) + " x " + ProcessorName() +
         "; kernel: " + kernel.sysname + " " + kernel.release + " " + kernel.machine +
         "; compiler: " + Compiler() + "; date: " + Today() + ".";
}

}  // namespace bench
