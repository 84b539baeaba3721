// The virtual device: the daemon on a pty line with the far end of its model behind it, and the
// processes around it. What each of them sees goes to a sink.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/device_rig.h"

namespace sim {

enum class EventKind {
  kNote,    // one line, as it happens
  kDaemon,  // one line that the daemon printed
  kWords,   // what a far end or the camera daemon understood
};

struct DeviceEvent {
  EventKind kind;
  const char* who;   // "vdev", "daemon", "head", "client", ...: 6 characters at most
  std::string text;  // without a line feed
  Bytes bytes;       // kWords: the frame that was understood, empty where there is none
};

// Where the virtual device reports what happens: a printer of plain lines, a live screen.
class EventSink {
 public:
  virtual ~EventSink() = default;

  virtual void Take(DeviceEvent event) = 0;

  // Looks at the far end as it is now. Called every few milliseconds.
  virtual void Observe(const FarEnd& /*far_end*/) {}
};

// What a virtual device consists of besides the device.
struct DeviceSetup {
  std::string daemon;     // path of the daemon
  bool trace = true;      // the daemon runs with its trace
  bool data_port = true;  // the port of serial data datagrams is taken here
  bool client = true;     // a PTZ client is connected
  bool record = false;    // everything is kept for Seen
};

// The streams of Seen that are raw bytes.
constexpr char kToLine[] = "raw bytes at the far end of the line";
constexpr char kToClient[] = "raw bytes at the PTZ client";
constexpr char kToDataPort[] = "raw bytes of serial data datagrams";
// All words that the far end and the camera daemon understood.
constexpr char kUnderstood[] = "words";

class VirtualDevice {
 public:
  // Installs the device's files and starts the daemon. `sink` must outlive the device. Throws
  // std::runtime_error.
  VirtualDevice(const DeviceConfig& config, DeviceSetup setup, EventSink* sink);

  // Waits until the daemon serves, then connects the PTZ client. Returns false when it does not.
  bool Start();

  // Serves every peer for as long as `limit`, or until `wake_fd` (-1: none) is readable.
  // Returns false once the daemon has ended or the device reboots.
  bool Serve(milliseconds limit, int wake_fd);

  // Leaves the port of serial data datagrams to others.
  void ReleaseDataPort();

  // Whether the daemon has rebooted the device: it then only waits for the system to end it.
  bool IsRebooting() const { return is_rebooting_; }

  // The camera information file, once it is complete; "" before.
  const std::string& CameraInfo() const { return camera_info_; }

  // Everything that was seen in a stream: one of those above, or the lines of an event's `who`.
  // Empty unless DeviceSetup asks for it: a session may last for days.
  const std::string& Seen(const std::string& stream) { return seen_[stream]; }

  void SendByClient(const std::string& text);
  // Installs a firmware image with `payload` bytes behind its header and orders the update.
  void UpdateFirmware(size_t payload);

  // A line of the virtual device itself.
  void Note(const std::string& text) { Tell(EventKind::kNote, "vdev", text); }

  // Stops the daemon by SIGTERM and reports how it ended. Returns true for status 0. A daemon that
  // has rebooted the device is killed, as the system would do, which is good as well.
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
  std::unique_ptr<UdpPeer> data_;  // null while the port is left to others
  UdpPeer manager_;
  SyslogRecorder syslog_;
  tools::UniqueFd output_;
  std::string output_text_;
  std::unique_ptr<PtzClient> client_;
  std::map<std::string, std::string> seen_;
  Bytes last_frame_;  // the far end's words about it come next
  std::string camera_info_;
  std::string new_camera_info_;
  Clock::time_point new_camera_info_since_;
  size_t programs_seen_ = 0;  // bytes of their log
  bool is_rebooting_ = false;
};

inline Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// Takes the complete lines off the front of a text.
std::vector<std::string> TakeLines(std::string* text);

}  // namespace sim
