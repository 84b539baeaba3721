// In: a list of processes to stop.
// Holds: exactly the listed names that begin a running process's command line bring it the signal,
// once each; the low process numbers never get one. No signal is really sent.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/target.h"
#include "util/process.h"

int WrapKill(pid_t pid, int signal) asm("__wrap_kill");
int RealKill(pid_t pid, int signal) asm("__real_kill");

namespace {

constexpr int kSignal = 0;
constexpr char kVictim[] = "/bin/sleep";

bool g_is_recording = false;
std::vector<pid_t> g_signalled;

// A process with a number that may be signalled, whose command line begins with kVictim. It ends
// with this one.
pid_t StartVictim() {
  while (true) {
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (getpid() < CUTIL_FIRST_KILLED_PID) _exit(0);
      execl(kVictim, kVictim, "1000000", nullptr);
      _exit(1);
    }
    if (child >= CUTIL_FIRST_KILLED_PID) return child;
    waitpid(child, nullptr, 0);
  }
}

pid_t Victim() {
  static pid_t victim = 0;
  if (victim != 0) return victim;
  victim = StartVictim();
  const std::string path = "/proc/" + std::to_string(victim) + "/cmdline";
  while (!fuzz::GetFile(path.c_str()).starts_with(kVictim))
    usleep(1000);
  return victim;
}

// How many of the list's names the victim's command line begins with.
size_t MatchesIn(const std::string& list) {
  size_t names = 0;
  size_t matches = 0;
  for (size_t at = 0; at < list.size() && names < CUTIL_LIST_MAX_NAMES;) {
    const size_t end = std::min(list.find('\n', at), list.size() - 1) + 1;
    const std::string line = list.substr(at, end - at);
    at = end;
    const size_t length = line.find_first_of(std::string("\r\n\0", 3));
    const std::string name = line.substr(0, length);
    if (name.empty() || line.size() > CUTIL_LIST_LINE_MAX) continue;
    ++names;
    if (std::string(kVictim).starts_with(name)) ++matches;
  }
  return matches;
}

}  // namespace

int WrapKill(pid_t pid, int signal) {
  if (!g_is_recording) return RealKill(pid, signal);
  FUZZ_CHECK(signal == kSignal && pid >= CUTIL_FIRST_KILLED_PID);
  g_signalled.push_back(pid);
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr char kList[] = "/etc/fuzzList";
  const std::string list(data, data + size);
  const pid_t victim = Victim();
  fuzz::PutFile(kList, list);
  g_signalled.clear();
  g_is_recording = true;
  FUZZ_CHECK(CUTIL_KillProcAll(kList, kSignal) == 0);
  g_is_recording = false;
  const auto hits = static_cast<size_t>(std::count(g_signalled.begin(), g_signalled.end(), victim));
  FUZZ_CHECK(hits == MatchesIn(list));
  return 0;
}
