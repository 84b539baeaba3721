// Everything that goes through the daemon, numbered, and whether it came out as it went in.
//
// The far end of the line feeds numbered bytes, which every client and the receiver of datagrams
// must get. Clients and a sender of datagrams write numbered bytes, each in an alphabet of its own,
// which must come out at the far end, among the frames of the commands. Nobody has more on the way
// than the kernel's buffers hold for sure, so that no byte may be missing. One thread: Pump.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "sim/camera_daemon.h"
#include "sim/device.h"
#include "sim/far_end.h"
#include "sim/peers.h"
#include "sim/pty_line.h"
#include "tests/soak/commands.h"
#include "tests/soak/report.h"
#include "tests/soak/sequence.h"
#include "tests/soak/shim.h"

namespace soak {

// Clients that are always there, each with the alphabet of its number.
constexpr int kClients = 4;
// The datagrams' alphabet.
constexpr int kDatagrams = kClients;
constexpr int kWays = kClients + 1;
// Bytes that mean nothing. None of them, nor of the alphabets, begins a frame.
constexpr uint8_t kNoiseFirst = 248;
constexpr uint8_t kNoiseLast = 254;

// Closes a connection at once: its other end sees a reset.
void ResetConnection(sim::PtzClient* client);

class Traffic {
 public:
  // All are the caller's.
  Traffic(const Mode& mode, uint32_t seed, Report* report, const Shim* shim);

  // Carries what there is to carry, for a millisecond or so.
  void Pump();

  // Whether new bytes and commands are sent.
  void SetFlowing(bool is_flowing) { is_flowing_ = is_flowing; }
  // Ten times as much from the line.
  void SetBurst(bool is_burst) { is_burst_ = is_burst; }
  // What the daemon sends of its own at its start is let through, and no more.
  void SetStarting(bool is_starting) {
    is_starting_ = is_starting;
    start_bytes_ = 0;
  }
  // Whether all of that has come.
  bool HasStarted() const { return start_bytes_ >= mode_.start_bytes; }

  // Whether everything that was sent has come out.
  bool IsSettled() const;
  // Says what has not, each a violation.
  void ReportUnsettled();
  // Whether no datagram has come for `quiet` now.
  bool IsQuiet(sim::milliseconds quiet) const { return sim::Clock::now() - last_data_ >= quiet; }
  // What is on its way is given up: the streams go on with their next records.
  void Forget();
  void Forget(int client);

  // A client comes; closes its side; ends by a reset; is gone; has left.
  void Connect(int client);
  void Shutdown(int client);
  void Reset(int client);
  void Drop(int client) { clients_[At(client)].reset(); }
  void DropAll();
  bool HasLeft(int client) const { return !clients_[At(client)].has_value(); }
  bool IsWaySettled(int way) const;
  int Connected() const;

  void SendDatagram();
  void SendControl(const CameraControl& control);
  // Nonsense to both ports, as large as `size`, provided that the last one is through.
  void SendHostile(size_t size);

  // The line goes, and comes.
  void HangUp() { line_.HangUp(); }
  void NewLine() {
    line_ = sim::PtyLine();
    ForgetUnseen();
  }
  // Whatever the daemon has written and nobody has seen has got lost with its line or its life.
  void ForgetUnseen() { taken_ = shim_->Written(); }

  sim::FarEnd* FarEnd() { return far_end_.get(); }
  termios LineSettings() const { return line_.Settings(); }

  int PtzPort() const { return config_.ptz_port; }
  const sim::DeviceConfig& Config() const { return config_; }
  std::mt19937* Random() { return &random_; }
  int Roll(int low, int high) { return std::uniform_int_distribution<>(low, high)(random_); }

 private:
  using Time = sim::Clock::time_point;

  struct Way {
    explicit Way(int alphabet) : check(alphabet) {}
    uint64_t sent = 0;
    SequenceCheck check;
  };
  struct Client {
    explicit Client(int port) : socket(port), line(0) {}
    sim::PtzClient socket;
    SequenceCheck line;
    bool is_served = false;  // the daemon has read from it
    bool is_leaving = false;
  };
  struct AwaitedFrame {
    sim::Bytes bytes;
    Time not_before;
  };

  static size_t At(int index) { return static_cast<size_t>(index); }
  void MakeFarEnd();
  bool IsDue(Time* next, int every_ms);
  void Generate();
  void Feed();
  void SendByClient(int client, size_t size);
  void SendCommand();
  void TakeLine();
  void TakeByte(uint8_t byte);
  void TakeFrame();
  void TakeClient(int index);
  void TakeData();
  void NoteServed(int way);
  void Wrong(const std::string& what, const std::string& deviation);

  const Mode& mode_;
  Report* report_;
  const Shim* shim_;
  std::mt19937 random_;
  sim::DeviceConfig config_;
  sim::PtyLine line_;
  sim::SyslogRecorder syslog_;
  sim::UdpPeer data_port_;
  sim::UdpPeer sender_;
  std::unique_ptr<sim::FarEnd> far_end_;
  std::unique_ptr<sim::CameraDaemon> camera_;
  std::array<std::optional<Client>, kClients> clients_;
  std::vector<Way> ways_;
  Way fed_{0};  // its check is that of the datagrams
  sim::Bytes frame_;
  std::deque<AwaitedFrame> awaited_;
  uint64_t hostile_until_ = 0;  // place of the datagrams behind the last nonsense
  Time last_data_;
  int64_t taken_ = 0;  // bytes from the line, as the shim counts them
  Time next_feed_, next_client_, next_datagram_, next_command_;
  bool is_flowing_ = false;
  bool is_burst_ = false;
  bool is_starting_ = false;
  size_t start_bytes_ = 0;  // in datagrams since the start
};

}  // namespace soak
