// The virtual device: the daemon on a pty line, the far end of its model, and the processes around
// it. Their events go to a sink.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/device_rig.h"

namespace sim {

enum class EventKind {
  kNote,    // one line of vdev or a peer
  kDaemon,  // one line that the daemon printed
  kWords,   // a message understood by the far end or the camera daemon
};

struct DeviceEvent {
  EventKind kind;
  const char* who;   // "vdev", "daemon", "head", "client", ...: 6 characters at most
  std::string text;  // without a line feed
  Bytes bytes;       // kWords: the frame, empty if none
};

// Receives the events of the virtual device: a plain printer or a live screen.
class EventSink {
 public:
  virtual ~EventSink() = default;

  virtual void Take(DeviceEvent event) = 0;

  // Called every few milliseconds with the current far end.
  virtual void Observe(const FarEnd& /*far_end*/) {}
};

// Components of a virtual device.
struct DeviceSetup {
  std::string daemon;     // path of the daemon
  bool trace = true;      // run the daemon with its trace
  bool data_port = true;  // bind the port of serial data datagrams
  bool client = true;     // connect a PTZ client
  bool record = false;    // keep all events for Seen
};

// The streams of Seen with raw bytes.
constexpr char kToLine[] = "raw bytes at the far end of the line";
constexpr char kToClient[] = "raw bytes at the PTZ client";
constexpr char kToDataPort[] = "raw bytes of serial data datagrams";
// All words of the far end and the camera daemon.
constexpr char kUnderstood[] = "words";

class VirtualDevice {
 public:
  // Installs the device's files and starts the daemon. `sink` must outlive the device. Throws
  // std::runtime_error.
  VirtualDevice(const DeviceConfig& config, DeviceSetup setup, EventSink* sink);

  // Waits until the daemon serves, then connects the PTZ client. Returns false if the daemon does
  // not serve.
  bool Start();

  // Serves every peer for `limit`, or until `wake_fd` (-1: none) is readable. Returns false once
  // the daemon has exited or the device reboots.
  bool Serve(milliseconds limit, int wake_fd);

  // Releases the port of serial data datagrams.
  void ReleaseDataPort();

  // True once the daemon has rebooted the device; the daemon then only waits to be killed.
  bool IsRebooting() const { return is_rebooting_; }

  // The complete camera information file; "" until then.
  const std::string& CameraInfo() const { return camera_info_; }

  // Everything recorded in a stream: one of those above, or the lines of an event's `who`. Empty
  // unless DeviceSetup::record is set: a session may last for days.
  const std::string& Seen(const std::string& stream) { return seen_[stream]; }

  void SendByClient(const std::string& text);
  // Installs a firmware image with `payload` bytes after its header and orders the update.
  void UpdateFirmware(size_t payload);

  // Reports a line of the virtual device itself.
  void Note(const std::string& text) { Tell(EventKind::kNote, "vdev", text); }

  // Stops the daemon with SIGTERM and reports how it ended. Returns true for status 0. Kills a
  // daemon that has rebooted the device, as the system would, and returns true as well.
  bool Stop();

  DeviceRig rig;

 private:
  void Tell(EventKind kind, const char* who, std::string text, Bytes frame = {});
  void TellBytes(const char* who, const std::string& what, std::span<const uint8_t> bytes,
                 const char* stream);
  void ListenToFarEnd();
  void LaunchDaemon();
  void ServeData();
  void ServeClient();
  void DropRecords();
  void ReportCameraInfo();
  void ReportPrograms();
  void TakeDaemonLines();

  DeviceSetup setup_;
  EventSink* sink_;
  std::unique_ptr<UdpPeer> data_;  // null after ReleaseDataPort
  UdpPeer manager_;
  SyslogRecorder syslog_;
  tools::UniqueFd output_;
  std::string output_text_;
  std::unique_ptr<PtzClient> client_;
  std::map<std::string, std::string> seen_;
  Bytes last_frame_;  // of the far end; its words follow
  std::string camera_info_;
  std::string new_camera_info_;
  Clock::time_point new_camera_info_since_;
  size_t programs_seen_ = 0;  // bytes of the program log
  bool is_rebooting_ = false;
};

// True for the line that a healthy start prints: the daemon probes its PTZ port, which must refuse.
inline bool IsPortProbe(const std::string& line) {
  return line.find("[ZSK_ConnectTCPSocket/connect]") != std::string::npos;
}

inline Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// Removes the complete lines from the front of a text and returns them.
std::vector<std::string> TakeLines(std::string* text);

}  // namespace sim
