// The virtual device: the daemon on a pty line with the far end of its model behind it, and the
// processes around it. What each of them sees goes to a sink.
#pragma once

#include <memory>
#include <string>

#include "sim/camera_daemon.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/event_sink.h"
#include "sim/far_end.h"
#include "sim/line_server.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace sim {

// What was seen so far, for a demonstration that wants to know whether it worked. The texts that
// grow with every byte are empty unless DeviceSetup asks for them.
struct Sightings {
  std::string raw_to_line;     // bytes at the far end of the line that were no frame
  std::string line_to_client;  // bytes that the PTZ client received
  std::string line_to_data;    // bytes that came as serial data datagrams
  std::string words;           // what the far end and the camera daemon said, a line each
  std::string daemon_output;   // what the daemon printed
  std::string camera_info;     // the camera information file
  std::string programs;        // log of the device programs that were run
  int reboot_notices = 0;      // notices of a reboot at the system manager
};

// What a virtual device consists of besides the device.
struct DeviceSetup {
  std::string daemon;      // path of the daemon
  bool trace = true;       // the daemon runs with its trace
  bool data_port = true;   // the port of serial data datagrams is taken here
  bool client = true;      // a PTZ client is connected
  bool sightings = false;  // all that is seen is kept
};

class VirtualDevice {
 public:
  // Lays out the device's files and starts the daemon. `sink` must outlive the device. Throws
  // std::runtime_error.
  VirtualDevice(const DeviceConfig& config, const DeviceSetup& setup, EventSink* sink);

  // Waits until the daemon serves, then connects the PTZ client. Returns false when it does not.
  bool Start();

  // Serves every peer for as long as `limit`, or until `wake_fd` (-1: none) is readable.
  // Returns false once the daemon has ended or the device reboots.
  bool Serve(milliseconds limit, int wake_fd);

  const DeviceConfig& Config() const { return config_; }
  const sim::FarEnd& FarEnd() const { return *far_end_; }
  // Null for a model that has none.
  const CameraDaemon* Camera() const { return camera_.get(); }

  // Leaves the port of serial data datagrams to whoever wants it.
  void ReleaseDataPort() { data_.reset(); }

  // Whether the daemon has rebooted the device: it then only waits for the system to end it.
  bool IsRebooting() const { return is_rebooting_; }

  void SendControl(const CameraControl& control);
  void SendRawByUdp(const std::string& text);
  void SendRawByClient(const std::string& text);
  void SendFromFarEnd(const std::string& text);
  // Lays out a firmware image with `payload` bytes behind its header and orders the update.
  void UpdateFirmware(size_t payload);

  // A line of the virtual device itself.
  void Note(const std::string& text) { sink_->Note(text); }

  // Stops the daemon by SIGTERM and tells how it ended. Returns true for status 0. While the
  // device reboots the daemon is ended as the system would end it, which is good as well.
  bool Stop();

  const Sightings& Seen() const { return seen_; }

 private:
  void Note(const char* who, const std::string& text);
  void TakeWords(const char* who, const std::string& words, Bytes frame);
  // Keeps what was seen, where it is asked for: a session may last for days.
  void See(const auto& bytes, std::string* seen) const {
    if (setup_.sightings) seen->append(bytes.begin(), bytes.end());
  }
  void ServeData();
  void ServeClient();
  void ServeManager();
  void ServeSyslog();
  void ServeFarEnd();
  void DropRecords();
  void ReportCameraInfo();
  void ReportPrograms();
  void TakeDaemonLines(bool all);

  DeviceConfig config_;
  DeviceSetup setup_;
  EventSink* sink_;
  PtyLine line_;
  std::unique_ptr<sim::FarEnd> far_end_;
  LineServer line_server_;
  std::unique_ptr<CameraDaemon> camera_;  // null for a model that has none
  std::unique_ptr<UdpPeer> data_;         // null while the port is left to others
  UdpPeer manager_;
  UdpPeer sender_;
  SyslogRecorder syslog_;
  UniqueFd output_;
  std::string output_text_;
  std::unique_ptr<DaemonProcess> daemon_;
  std::unique_ptr<PtzClient> client_;
  Sightings seen_;
  Bytes last_frame_;  // the far end's words about it come next
  std::string new_camera_info_;
  Clock::time_point new_camera_info_since_;
  bool is_rebooting_ = false;
};

}  // namespace sim
