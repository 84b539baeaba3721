// A short life of the daemon in a private world, with one call in it failing.
//
// Start, then rounds: a PTZ client comes, sends and receives; a datagram, a command and bytes
// from the line are served; in the lens mode positions are saved, focus and exposure are asked
// for. Then idleness, SIGTERM and the end. After a failure that passes, a second round must
// find everything in order.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/camera_daemon.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/far_end.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "tests/fault/fault_plan.h"

namespace fault {

struct Mode {
  const char* name;
  const char* model;
  int speed;              // how much faster the daemon's time runs
  CameraControl control;  // a command, and what it brings to the line
  sim::Bytes frame;
  bool reboots;  // the session orders a firmware update, which ends in a reboot
};

const std::vector<Mode>& Modes();

class Session {
 public:
  Session(const Mode& mode, std::string daemon, std::string library);

  // Lives through a session. `point` is what fails, or null. Returns what was wrong, a line each:
  // "" when nothing was.
  std::string Run(const Point* point);

  // What a session without a failure calls.
  std::vector<Call> Record();
  // The same, up to where it serves.
  std::vector<Call> RecordStart();

  // Whether the last session's failure came about: a call may not come again as it was recorded.
  bool WasHit() const { return was_hit_; }

  // Starts and is killed: at `point`, or where that is null after `delay`. Then starts again, which
  // has to go well whatever was left behind. Returns what was wrong.
  std::string RunKilledStart(const Point* point, std::chrono::microseconds delay);

  // Saves positions over and over, and is killed in the middle likewise. Lens mode only.
  std::string RunKilledSave(const Point* point, std::chrono::microseconds delay);

 private:
  void Launch(const Point* point, bool record);
  void Spawn(const Point* point, bool record);
  size_t CountInOutput(const std::string& text) const;
  void SendControl(const CameraControl& control);
  std::vector<Call> Log() const;
  void Pump();
  bool Await(const std::function<bool()>& condition, sim::milliseconds limit);
  bool HasEnded();
  bool Seen(std::span<const uint8_t> bytes) const;
  bool AwaitServing();
  void Step(const char* what, const std::function<bool()>& condition);
  void Round(int number, sim::milliseconds limit);
  void RoundOfClient(const std::string& mark);
  void RoundOfLens();
  void OrderUpdate(const Point* point);
  void Judge(const Point& point);
  void CheckIdle();
  void CheckDescriptors(const Point* point);
  void CheckLeftovers();
  void CheckFiles();
  void StartAgain();
  bool AwaitKilled(std::chrono::microseconds delay);
  void Wrong(const std::string& what) { wrong_ += "  " + what + "\n"; }
  std::string Said();
  void StartAndServe(const Point* point, bool record);
  void End();

  const Mode& mode_;
  std::string daemon_path_;
  std::string library_;
  sim::DeviceConfig config_;
  sim::PtyLine line_;
  sim::SyslogRecorder syslog_;
  sim::UdpPeer data_;
  sim::UdpPeer manager_;
  sim::UdpPeer sender_;
  std::unique_ptr<sim::FarEnd> far_end_;
  std::unique_ptr<sim::CameraDaemon> camera_;
  std::unique_ptr<sim::DaemonProcess> daemon_;
  sim::Bytes seen_;            // what came along the line
  std::string logged_;         // to syslog
  sim::milliseconds limit_{};  // of a step
  bool must_serve_ = false;    // a step that is not done is wrong
  size_t healthy_descriptors_ = 0;
  size_t calls_before_update_ = 0;
  bool was_hit_ = false;
  std::string wrong_;
};

}  // namespace fault
