#include "sim/virtual_device.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "module/firmware_update.h"
#include "module/micom_firmware.h"
#include "relay/daemon_datagram.h"
#include "sim/far_end_models.h"
#include "sim/lens_micom.h"
#include "sim/world.h"
#include "tools/frame_output.h"
#include "tools/frame_texts.h"

namespace sim {
namespace {

// A file unchanged for this long is complete.
constexpr milliseconds kFileSettled{50};

// Timeout for the rest of a firmware update and the pauses before the reboot.
constexpr milliseconds kStopPatience{30'000};

constexpr char kCameraInfoPath[] = "/var/nvt/camera.info";

std::string Dump(std::span<const uint8_t> bytes) {
  return Hex(bytes) + "  \"" + tools::PlainText(bytes) + "\"";
}

bool IsRebootNotice(std::span<const uint8_t> datagram) {
  CsysmgrPacket notice = {};
  if (datagram.size() != CSYSMGR_HEADER_SIZE) return false;
  memcpy(&notice, datagram.data(), datagram.size());
  return notice.magic.Get() == CSYSMGR_MAGIC && notice.code.GetSigned() == CSYSMGR_CODE_REBOOT;
}

}  // namespace

std::vector<std::string> TakeLines(std::string* text) {
  std::vector<std::string> lines;
  for (size_t end = 0; (end = text->find('\n')) != std::string::npos; text->erase(0, end + 1))
    lines.push_back(text->substr(0, end));
  return lines;
}

VirtualDevice::VirtualDevice(const DeviceConfig& config, DeviceSetup setup, EventSink* sink)
    : rig(config), setup_(std::move(setup)), sink_(sink), manager_(CSYSMGR_PORT) {
  rig.Install();
  rig.AttachModel();
  ListenToFarEnd();
  if (setup_.data_port) {
    data_ = std::make_unique<UdpPeer>(SERIAL_DATA_PORT);
    rig.Watch(data_->Fd(), [this] { ServeData(); });
  }
  rig.Watch(manager_.Fd(), [this] {
    const auto notice = manager_.Receive(milliseconds(0));
    if (!notice.has_value()) return;
    Tell(EventKind::kNote, "sysmgr",
         (IsRebootNotice(*notice) ? "notice of a reboot: " : "notice: ") + Dump(*notice));
  });
  // Drain the system log: a process that writes to a full one blocks.
  rig.Watch(syslog_.Fd(), [this] {
    const std::string message = syslog_.WaitFor("", milliseconds(0));
    if (!message.empty()) Tell(EventKind::kNote, "syslog", tools::PlainText(BytesOf(message)));
  });
  LaunchDaemon();
}

void VirtualDevice::ListenToFarEnd() {
  rig.far_end->on_frame = [this](std::span<const uint8_t> frame) {
    last_frame_.assign(frame.begin(), frame.end());
  };
  rig.far_end->on_words = [this](const std::string& words) {
    Tell(EventKind::kWords, rig.far_end->Name(), words, std::exchange(last_frame_, {}));
  };
  rig.far_end->on_noise = [this](std::span<const uint8_t> bytes) {
    TellBytes(rig.far_end->Name(), " outside any frame: ", bytes, kToLine);
  };
  if (!rig.camera) return;
  rig.camera->on_words = [this](const std::string& words) {
    Tell(EventKind::kWords, "camera", words);
  };
}

void VirtualDevice::LaunchDaemon() {
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("cannot make a pipe");
  output_.Reset(pipe_fds[0]);
  const tools::UniqueFd write_end(pipe_fds[1]);
  // Keep the daemon's end blocking, so that the daemon drops no lines.
  fcntl(write_end.Get(), F_SETFL, 0);
  rig.Launch(setup_.daemon,
             setup_.trace ? std::vector<std::string>{"1"} : std::vector<std::string>{},
             {.output_fd = write_end.Get(), .preload = "", .variables = {}});
  rig.Watch(output_.Get(), [this] { TakeDaemonLines(); });
}

bool VirtualDevice::Start() {
  if (!rig.WaitServing()) {
    TakeDaemonLines();
    return false;
  }
  const DeviceConfig& config = rig.config;
  Note("rs232d serves " + config.model + ": PTZ TCP port " + std::to_string(config.ptz_port) +
       ", UDP port " + std::to_string(config.udp_port) + ", command channel " +
       std::to_string(RS232_COMMAND_PORT) + ", serial line at " + std::to_string(config.baud_rate) +
       " baud");
  if (setup_.client && config.ptz_enable == 1) {
    client_ = std::make_unique<PtzClient>(config.ptz_port);
    rig.Watch(client_->Fd(), [this] { ServeClient(); });
  }
  return true;
}

void VirtualDevice::ReleaseDataPort() {
  if (data_) rig.Unwatch(data_->Fd());
  data_.reset();
}

bool VirtualDevice::Serve(milliseconds limit, int wake_fd) {
  constexpr milliseconds kLookEvery{2};
  const auto end = Clock::now() + limit;
  while (true) {
    const bool is_awake = rig.Serve(std::min(end, Clock::now() + kLookEvery), wake_fd, POLLIN);
    DropRecords();
    sink_->Observe(*rig.far_end);
    ReportCameraInfo();
    ReportPrograms();
    if (is_rebooting_ || rig.HasEnded()) return false;
    if (is_awake || Clock::now() >= end) return true;
  }
}

void VirtualDevice::Tell(EventKind kind, const char* who, std::string text, Bytes frame) {
  if (setup_.record) seen_[kind == EventKind::kWords ? kUnderstood : who] += text + "\n";
  sink_->Take({.kind = kind, .who = who, .text = std::move(text), .bytes = std::move(frame)});
}

void VirtualDevice::TellBytes(const char* who, const std::string& what,
                              std::span<const uint8_t> bytes, const char* stream) {
  if (setup_.record) seen_[stream].append(bytes.begin(), bytes.end());
  Tell(EventKind::kNote, who, tools::Count(bytes.size(), "byte") + what + Dump(bytes));
}

void VirtualDevice::TakeDaemonLines() {
  std::array<char, 4096> bytes;
  ssize_t count = 0;
  while ((count = read(output_.Get(), bytes.data(), bytes.size())) > 0)
    output_text_.append(bytes.data(), static_cast<size_t>(count));
  // End of file: complete an unfinished last line, and stop polling a pipe that would stay
  // readable.
  if (count == 0) {
    if (!output_text_.empty() && output_text_.back() != '\n') output_text_ += '\n';
    rig.Unwatch(output_.Get());
    output_.Reset();
  }
  for (std::string& line : TakeLines(&output_text_))
    Tell(EventKind::kDaemon, "daemon", std::move(line));
}

void VirtualDevice::ServeData() {
  const auto datagram = data_->Receive(milliseconds(0));
  if (!datagram.has_value()) return;
  const auto bytes = DecodeSerialData(*datagram);
  if (bytes.has_value()) {
    TellBytes("data", " on UDP port " + std::to_string(SERIAL_DATA_PORT) + ": ", *bytes,
              kToDataPort);
  } else {
    Tell(EventKind::kNote, "data", "not a serial data datagram: " + Dump(*datagram));
  }
}

void VirtualDevice::ServeClient() {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(client_->Fd(), bytes.data(), bytes.size());
  if (count > 0) {
    TellBytes("client",
              " on the PTZ TCP connection: ", std::span(bytes).first(static_cast<size_t>(count)),
              kToClient);
    return;
  }
  Tell(EventKind::kNote, "client", "disconnected");
  rig.Unwatch(client_->Fd());
  client_.reset();
}

// Discards the records that the lens and the camera keep for tests.
void VirtualDevice::DropRecords() {
  if (auto* lens = dynamic_cast<LensMicom*>(rig.far_end.get())) lens->TakeFrames();
  if (!rig.camera) return;
  rig.camera->TakeFocusReadings();
  rig.camera->TakeExposureReadings();
  rig.camera->TakeExposureOrders();
}

// Reports the camera information file once it is complete; the daemon writes it line by line.
void VirtualDevice::ReportCameraInfo() {
  const auto now = Clock::now();
  std::string info = ReadTextFile(kCameraInfoPath);
  if (info != new_camera_info_) {
    new_camera_info_ = info;
    new_camera_info_since_ = now;
  }
  if (info == camera_info_ || now - new_camera_info_since_ < kFileSettled) return;
  camera_info_ = info;
  for (std::string& line : TakeLines(&info))
    Tell(EventKind::kNote, "info", std::move(line));
}

void VirtualDevice::ReportPrograms() {
  std::string log = ReadTextFile(kProgramLog);
  log.erase(0, std::min(programs_seen_, log.size()));
  for (const std::string& line : TakeLines(&log)) {
    programs_seen_ += line.size() + 1;
    Tell(EventKind::kNote, "system", "runs, at uptime " + line);
    is_rebooting_ = is_rebooting_ || line.find(" reboot") != std::string::npos;
  }
}

void VirtualDevice::SendByClient(const std::string& text) {
  if (client_ == nullptr) {
    Tell(EventKind::kNote, "client", "not connected");
  } else {
    client_->Send(BytesOf(text));
  }
}

void VirtualDevice::UpdateFirmware(size_t payload) {
  std::string image(MICOM_IMAGE_HEADER_SIZE, 'H');
  for (size_t i = 0; i < payload; ++i)
    image += static_cast<char>(i * i / 7);
  WriteTextFile(MICOM_FIRMWARE_PATH, image);
  rig.SendCommand(CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
}

bool VirtualDevice::Stop() {
  if (client_) rig.Unwatch(client_->Fd());
  client_.reset();
  if (!is_rebooting_) {
    rig.daemon->Signal(SIGTERM);
    // A daemon that waits for an answer exits after it; one that updates firmware reboots.
    Serve(kStopPatience, -1);
  }
  if (is_rebooting_) {
    Note("rs232d has rebooted the device; killed it, as the system would");
    rig.daemon->Signal(SIGKILL);
    return rig.daemon->WaitEnd() == -SIGKILL;
  }
  const auto status = rig.daemon->WaitEnd(milliseconds(0));
  TakeDaemonLines();
  if (!status.has_value()) {
    Note("rs232d does not exit");
  } else if (*status < 0) {
    Note(std::string("rs232d was killed by signal ") + strsignal(-*status));
  } else {
    Note("rs232d exited with status " + std::to_string(*status));
  }
  return status == 0;
}

}  // namespace sim
