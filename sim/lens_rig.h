// A lens micom and a camera daemon at work beside a test: served by a thread of their own.
//
// While the rig runs, both belong to its thread. A test looks at them, and changes them, within
// With, which holds the rig's lock; nothing is served meanwhile.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "sim/camera_daemon.h"
#include "sim/lens_micom.h"
#include "sim/pty_line.h"

namespace sim {

class LensRig {
 public:
  // Serves the far end of `line`, which outlives the rig. Throws std::runtime_error when the
  // camera daemon's port is taken.
  explicit LensRig(PtyLine* line, const LensPose& pose = {}, uint32_t seed = 1,
                   const LensBuild& build = {});
  LensRig(const LensRig&) = delete;
  LensRig& operator=(const LensRig&) = delete;
  ~LensRig();

  // Calls `action` with the micom and the camera daemon, and returns its result.
  template <typename Action>
  auto With(Action action) {
    const std::scoped_lock lock(mutex_);
    return action(micom_, camera_);
  }

 private:
  void Run();
  void ServeOnce();

  PtyLine* line_;
  std::mutex mutex_;
  LensMicom micom_;
  CameraDaemon camera_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;  // last: it uses all of the above
};

}  // namespace sim
