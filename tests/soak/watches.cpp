#include "tests/soak/watches.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>

#include "cmmap/param_block.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/leftovers.h"

namespace soak {
namespace {

using sim::Clock;

size_t ThreadCount(pid_t pid) {
  std::error_code gone;
  const std::string path = "/proc/" + std::to_string(pid) + "/task";
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path, gone), {}));
}

std::string Children(pid_t pid) {
  const std::string id = std::to_string(pid);
  return sim::ReadTextFile("/proc/" + id + "/task/" + id + "/children");
}

// A process of this world other than its first and this one; "" when there is none.
std::string AnyOtherProcess() {
  constexpr pid_t kFirst = 1;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (isdigit(static_cast<unsigned char>(name[0])) == 0) continue;
    const pid_t pid = std::stoi(name);
    if (pid != kFirst && pid != getpid())
      return name + " " + sim::ReadTextFile(entry.path() / "comm");
  }
  return "";
}

}  // namespace

void Watches::Begin(pid_t pid, sim::milliseconds warm_after, size_t descriptors) {
  pid_ = pid;
  warm_ = Clock::now() + warm_after;
  descriptors_ = descriptors;
  threads_ = ThreadCount(pid);
  memory_kib_ = 0;
  if (report_->Count().descriptors_first == 0) {
    report_->Count().descriptors_first = static_cast<long>(descriptors);
  }
}

void Watches::Look(bool is_warm) {
  Counters& count = report_->Count();
  const long memory_kib = static_cast<long>(sim::MemoryOf(pid_).anonymous_kib);
  count.descriptors_end = static_cast<long>(sim::DescriptorCount(pid_));
  if (memory_kib_ == 0 && is_warm && Clock::now() >= warm_) memory_kib_ = memory_kib;
  const long growth = memory_kib_ == 0 ? 0 : memory_kib - memory_kib_;
  if (memory_kib_ != 0 &&
      (count.memory_first == 0 || growth >= count.memory_end - count.memory_first)) {
    count.memory_first = memory_kib_;
    count.memory_end = memory_kib;
  }
  if (growth > kMostGrowthKib) {
    report_->Violation(
        "anonymous memory",
        std::to_string(memory_kib_) + " KiB at most " + std::to_string(kMostGrowthKib) + " more",
        std::to_string(memory_kib) + " KiB");
    memory_kib_ = memory_kib;
  }
  if (ThreadCount(pid_) != threads_) {
    report_->Violation("threads", std::to_string(threads_), std::to_string(ThreadCount(pid_)));
  }
  // A device program may be under way.
  const bool is_alone = sim::WaitUntil([this] { return Children(pid_).empty(); });
  if (!is_alone) report_->Violation("children", "none", Children(pid_));
}

void Watches::BeginIdle() {
  idle_cpu_ = sim::CpuSeconds(pid_);
  idle_since_ = Clock::now();
}

void Watches::EndIdle() {
  const std::chrono::duration<double> passed = Clock::now() - idle_since_;
  const double share = (sim::CpuSeconds(pid_) - idle_cpu_) / passed.count();
  if (share > kMostIdleCpu) {
    report_->Violation("processor of an idle daemon", std::to_string(kMostIdleCpu),
                       std::to_string(share));
  }
}

std::string Watches::Doing() const {
  const std::string path = "/proc/" + std::to_string(pid_);
  const std::string stat = sim::ReadTextFile(path + "/stat");
  const size_t state = stat.rfind(')') + 2;
  return "state " + stat.substr(std::min(state, stat.size()), 1) + " in " +
         sim::ReadTextFile(path + "/wchan") + ", call " + sim::ReadTextFile(path + "/syscall");
}

void Watches::CheckLeftovers() {
  if (!sim::WaitUntil([] { return AnyOtherProcess().empty(); })) {
    report_->Violation("processes left", "none", AnyOtherProcess());
  }
  if (sim::IsParamFileLocked()) report_->Violation("parameter file", "free", "locked");
  const int set = semget(PARAM_BLOCK_KEY, 1, 0);
  if (set >= 0 && semctl(set, 0, GETVAL) != 1) report_->Violation("semaphore", "free", "taken");
}

}  // namespace soak
