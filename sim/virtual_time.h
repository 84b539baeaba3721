// One virtual clock for a test, the daemon and the tools that the test starts.
//
// libvtime.so is preloaded into all of them. On virtual time, waits take no real time: when every
// thread waits and has polled since the last activity, the shared clock jumps to the earliest
// timeout. Simulated motors thus stay on time on a busy machine, and a wait of ten seconds returns
// at once. Processes that other programs start, e.g. a shell of the daemon, do not use the clock:
// it stands still while a thread on the clock waits for one of them.
//
// Unsuitable for tests of real time, tests that stop a process, and tests in which one process
// waits for a lock of another: the clock would stand still forever.
#pragma once

#include <sys/types.h>

#include <cstdint>

// The interface of libvtime.so, exported as `vtime_control`.
struct VtimeControl {
  // Starts virtual time with its shared memory in a new file at `path`. Returns false on failure.
  bool (*start)(const char* path);
  // Returns this process, and those that it starts later, to real time.
  void (*stop)();
  bool (*is_running)();
  // Time stands still between these two calls. `pid` is the new process, which has the library
  // preloaded and VTIME_FILE in its environment; -1 if it could not be started.
  void (*begin_spawn)();
  void (*end_spawn)(pid_t pid);
  // Shifts the wall clock by an offset from its normal value.
  void (*set_wall_offset)(int64_t ns);
  // Number of waits of all threads of a process so far, including those that returned at once.
  uint64_t (*waits)(pid_t pid);
};

inline constexpr char VTIME_FILE[] = "RS232_VTIME_FILE";

namespace sim {

// The clock's memory and the library in the world of a test. The path of the library must not
// contain a blank, which separates entries of LD_PRELOAD.
inline constexpr char kClockFile[] = "/dev/.world/vtime";
inline constexpr char kClockLibrary[] = "/dev/.world/libvtime.so";

// Restarts this program with libvtime.so preloaded, unless it is loaded already. The calling
// process must be in a world. Without the library (a build for another processor), returns and
// leaves all time real.
void PreloadVirtualTime(char** argv);

// The interface of the preloaded library; null if it is not preloaded.
const VtimeControl* VirtualTime();

// True if virtual time is running.
bool IsTimeVirtual();

}  // namespace sim
