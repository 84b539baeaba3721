// The virtual device: the daemon on a pty line with the far end of its model behind it, and the
// processes around it. It prints in plain lines what each of them sees.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "sim/camera_daemon.h"
#include "sim/daemon_process.h"
#include "sim/device.h"
#include "sim/far_end.h"
#include "sim/line_server.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace sim {

// What was seen so far, for a demonstration that wants to know whether it worked.
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

class VirtualDevice {
 public:
  // Lays out the device's files and starts the daemon at `daemon_path`, with its trace when
  // `trace` is set. Throws std::runtime_error.
  VirtualDevice(const DeviceConfig& config, const std::string& daemon_path, bool trace);

  // Waits until the daemon serves, then connects a PTZ client. Returns false when it does not.
  bool Start();

  // Serves every peer for as long as `limit`, or until `wake_fd` (-1: none) is readable.
  // Returns false once the daemon has ended or the device reboots.
  bool Serve(milliseconds limit, int wake_fd);

  // Whether the daemon has rebooted the device: it then only waits for the system to end it.
  bool IsRebooting() const { return is_rebooting_; }

  void SendControl(const CameraControl& control);
  void SendRawByUdp(const std::string& text);
  void SendRawByClient(const std::string& text);
  void SendFromFarEnd(const std::string& text);
  // Lays out a firmware image with `payload` bytes behind its header and orders the update.
  void UpdateFirmware(size_t payload);

  // Stops the daemon by SIGTERM and prints how it ended. Returns true for status 0. While the
  // device reboots the daemon is ended as the system would end it, which is good as well.
  bool Stop();

  const Sightings& Seen() const { return seen_; }

 private:
  void TakeWords(const char* who, const std::string& words);
  void FlushWords();
  void ServeDaemonOutput();
  void ServeData();
  void ServeClient();
  void ServeManager();
  void ReportFarEnd();
  void ReportCameraInfo();
  void ReportPrograms();
  void PrintDaemonLines(bool all);

  DeviceConfig config_;
  PtyLine line_;
  std::unique_ptr<FarEnd> far_end_;
  LineServer line_server_;
  std::unique_ptr<CameraDaemon> camera_;  // null for a model that has none
  UdpPeer data_;
  UdpPeer manager_;
  UdpPeer sender_;
  SyslogRecorder syslog_;
  UniqueFd output_;
  std::string output_text_;
  std::unique_ptr<DaemonProcess> daemon_;
  std::unique_ptr<PtzClient> client_;
  Sightings seen_;
  // Words that may be said again.
  const char* pending_who_ = "";
  std::string pending_words_;
  int pending_count_ = 0;
  Clock::time_point pending_since_;
  Clock::time_point last_report_;
  std::string last_description_;
  std::string new_camera_info_;
  Clock::time_point new_camera_info_since_;
  bool is_rebooting_ = false;
};

}  // namespace sim
