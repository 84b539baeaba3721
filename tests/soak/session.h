// Lives of a daemon in a private world: it is started, has traffic, is disturbed, and is ended.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "sim/daemon_process.h"
#include "tests/soak/report.h"
#include "tests/soak/shim.h"
#include "tests/soak/traffic.h"
#include "tests/soak/watches.h"

namespace soak {

class Session {
 public:
  // `library` is the path of libshim.so.
  Session(const Mode& mode, uint32_t seed, std::string daemon, std::string library,
          Counters* counters);

  // Goes on for so long, and ends the daemon.
  void Run(std::chrono::seconds time);

 private:
  using Time = sim::Clock::time_point;
  using Condition = std::function<bool()>;
  struct Stopped;
  enum class End { kTerminate, kOrder, kKill };

  // --- session.cpp: lives ---
  void Tick();
  bool Await(const Condition& condition, sim::milliseconds limit);
  void Pass(int low_ms, int high_ms);
  bool HasEnded() { return daemon_->WaitEnd(sim::milliseconds(0)).has_value(); }
  void Start();
  void Live(Time end);
  void StillPoint();
  void Settle();
  void Stop(End end);
  void CheckLeftovers(End end);
  size_t CountInOutput(const std::string& text) const;
  bool AwaitInOutput(const std::string& text, size_t count, sim::milliseconds limit);

  // --- churn.cpp: what clients, processes and the line do ---
  void Disturb();
  void AwaitDescriptors(const char* what, size_t clients);
  void ConnectAll();
  void LeaveAndReturn();
  void ResetAndReturn();
  void VisitWithNoise();
  void Crowd();
  void SendHostile();
  void LoseLine();
  void StopReading();
  void WatchStopped();
  void AbandonStopped();

  // --- lens.cpp: where the lens is ---
  void RestLens();
  void FindLens();
  void CheckLensRestored(bool was_killed);

  bool HasLens() const { return !mode_.feeds; }
  // For whatever has to come about soon. A lens may be on its way for most of it.
  sim::milliseconds Patience() const { return sim::milliseconds(HasLens() ? 40'000 : 10'000); }

  const Mode& mode_;
  std::string daemon_path_;
  Report report_;
  Shim shim_;
  Traffic traffic_;
  std::unique_ptr<sim::DaemonProcess> daemon_;
  Watches watches_;
  std::shared_ptr<Stopped> stopped_;
  Time next_jump_;
  Time next_stopped_;
  termios line_before_ = {};  // settings of the line before the daemon's start
  bool is_ending_ = false;
  bool is_lost_ = false;  // the daemon ended by itself: the run is over
};

}  // namespace soak
