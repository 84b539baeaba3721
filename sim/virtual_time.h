// One virtual clock for a test, the daemon and the tools that the test starts.
//
// libvtime.so is preloaded into all of them. While virtual time runs, every wait of theirs takes no
// real time: the clock, which they share, jumps to the nearest end of a wait once every thread
// waits and has found nothing ready since anything was last done. So simulated motors keep their
// time however busy the machine is, and a wait of ten seconds is over at once. Processes that other
// programs start (a shell of the daemon's, say) are not on the clock: it stands still while a
// thread on the clock waits for one of them.
//
// Not for tests that are about real time, that stop a process, or in which one process waits for a
// lock of another: the clock would stand still for ever.
#pragma once

#include <sys/types.h>

#include <cstdint>

// What libvtime.so offers to whoever finds its symbol `vtime_control`.
struct VtimeControl {
  // Starts virtual time; the clock's memory is a file made at `path`. Returns whether it runs.
  bool (*start)(const char* path);
  // From now on real time passes for this process, and for those that it starts.
  void (*stop)();
  bool (*is_running)();
  // Time stands still between these two. `pid` has been started, with the library preloaded and
  // VTIME_FILE in its environment; -1 where it could not be.
  void (*begin_spawn)();
  void (*end_spawn)(pid_t pid);
  // Sets the wall clock by so much off what it would be.
  void (*set_wall_offset)(int64_t ns);
  // How often the threads of a process have waited so far, be it that nothing kept them waiting.
  uint64_t (*waits)(pid_t pid);
};

inline constexpr char VTIME_FILE[] = "RS232_VTIME_FILE";

namespace sim {

// The clock's memory and the library, in the world of a test. No path of the library may hold a
// blank: the loader would take it for two.
inline constexpr char kClockFile[] = "/dev/.world/vtime";
inline constexpr char kClockLibrary[] = "/dev/.world/libvtime.so";

// Starts this program again with libvtime.so preloaded, unless that is the case; returns then. The
// calling process is in a world. Without the library (a build for another processor) it just
// returns, and all time is real.
void PreloadVirtualTime(char** argv);

// The library's control; null without it.
const VtimeControl* VirtualTime();

// Whether virtual time runs.
bool IsTimeVirtual();

}  // namespace sim
