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

// A file that has not changed for this long is whole.
constexpr milliseconds kFileSettled{50};

constexpr char kCameraInfoPath[] = "/var/nvt/camera.info";

std::string Dump(std::span<const uint8_t> bytes) {
  return Hex(bytes) + "  \"" + tools::PlainText(bytes) + "\"";
}

Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

// The lines of a text beyond its first `seen` characters.
std::vector<std::string> NewLines(const std::string& text, size_t seen) {
  std::vector<std::string> lines;
  for (size_t end = 0; (end = text.find('\n', seen)) != std::string::npos; seen = end + 1)
    lines.push_back(text.substr(seen, end - seen));
  return lines;
}

bool IsRebootNotice(std::span<const uint8_t> datagram) {
  CsysmgrPacket notice = {};
  if (datagram.size() != CSYSMGR_HEADER_SIZE) return false;
  memcpy(&notice, datagram.data(), datagram.size());
  return notice.magic.Get() == CSYSMGR_MAGIC && notice.code.GetSigned() == CSYSMGR_CODE_REBOOT;
}

}  // namespace

VirtualDevice::VirtualDevice(const DeviceConfig& config, const DeviceSetup& setup, EventSink* sink)
    : config_(config),
      setup_(setup),
      sink_(sink),
      line_(config.serial_path),
      far_end_(MakeFarEnd(config.model, line_, Clock::now())),
      line_server_(&line_, far_end_.get()),
      camera_(MakeCamera(config.model, *far_end_)),
      data_(setup.data_port ? std::make_unique<UdpPeer>(SERIAL_DATA_PORT) : nullptr),
      manager_(CSYSMGR_PORT) {
  InstallDevice(config);
  InstallModelFiles(config.model);
  far_end_->on_frame = [this](std::span<const uint8_t> frame) {
    last_frame_.assign(frame.begin(), frame.end());
  };
  far_end_->on_words = [this](const std::string& words) {
    TakeWords(far_end_->Name(), words, std::exchange(last_frame_, {}));
  };
  if (camera_) {
    camera_->on_words = [this](const std::string& words) { TakeWords("camera", words, {}); };
  }
  far_end_->on_noise = [this](std::span<const uint8_t> bytes) {
    See(bytes, &seen_.raw_to_line);
    Note(far_end_->Name(),
         tools::Count(bytes.size(), "byte") + " that are no frame: " + Dump(bytes));
  };

  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("cannot make a pipe");
  output_.Reset(pipe_fds[0]);
  const UniqueFd write_end(pipe_fds[1]);
  // The daemon's end blocks: it must not lose lines while they are being printed here.
  fcntl(write_end.Get(), F_SETFL, 0);
  daemon_ = std::make_unique<DaemonProcess>(
      setup.daemon, setup.trace ? std::vector<std::string>{"1"} : std::vector<std::string>{},
      write_end.Get());
}

bool VirtualDevice::Start() {
  if (!daemon_->WaitServing(config_)) {
    TakeDaemonLines(true);
    return false;
  }
  Note("vdev", "rs232d serves " + config_.model + ": PTZ TCP port " +
                   std::to_string(config_.ptz_port) + ", UDP port " +
                   std::to_string(config_.udp_port) + ", command channel " +
                   std::to_string(RS232_COMMAND_PORT) + ", serial line at " +
                   std::to_string(config_.baud_rate) + " baud");
  if (setup_.client && config_.ptz_enable == 1)
    client_ = std::make_unique<PtzClient>(config_.ptz_port);
  return true;
}

bool VirtualDevice::Serve(milliseconds limit, int wake_fd) {
  const auto end = Clock::now() + limit;
  while (true) {
    std::array<pollfd, 8> sources = {{{line_.FarEnd(), POLLIN, 0},
                                      {output_.Get(), POLLIN, 0},
                                      {data_ ? data_->Fd() : -1, POLLIN, 0},
                                      {client_ ? client_->Fd() : -1, POLLIN, 0},
                                      {manager_.Fd(), POLLIN, 0},
                                      {camera_ ? camera_->Fd() : -1, POLLIN, 0},
                                      {syslog_.Fd(), POLLIN, 0},
                                      {wake_fd, POLLIN, 0}}};
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    const milliseconds pause = std::clamp(left, milliseconds(0), kTickEvery);
    poll(sources.data(), sources.size(), static_cast<int>(pause.count()));
    if (sources[1].revents != 0) TakeDaemonLines(false);
    if (sources[2].revents != 0) ServeData();
    if (sources[3].revents != 0) ServeClient();
    if (sources[4].revents != 0) ServeManager();
    if (sources[6].revents != 0) ServeSyslog();
    ServeFarEnd();
    ReportCameraInfo();
    ReportPrograms();
    if (is_rebooting_ || daemon_->WaitEnd(milliseconds(0)).has_value()) return false;
    if (sources[7].revents != 0 || Clock::now() >= end) return true;
  }
}

void VirtualDevice::Note(const char* who, const std::string& text) {
  sink_->Take({.kind = EventKind::kNote, .who = who, .text = text, .bytes = {}});
}

void VirtualDevice::TakeWords(const char* who, const std::string& words, Bytes frame) {
  See(words + "\n", &seen_.words);
  sink_->Take({.kind = EventKind::kWords, .who = who, .text = words, .bytes = std::move(frame)});
}

// Takes what the daemon printed: whole lines, and at the end (`all`) the rest.
void VirtualDevice::TakeDaemonLines(bool all) {
  const auto take = [this](std::string line) {
    sink_->Take(
        {.kind = EventKind::kDaemon, .who = "daemon", .text = std::move(line), .bytes = {}});
  };
  std::array<char, 4096> bytes;
  ssize_t count = 0;
  while ((count = read(output_.Get(), bytes.data(), bytes.size())) > 0) {
    output_text_.append(bytes.data(), static_cast<size_t>(count));
  }
  size_t end = 0;
  while ((end = output_text_.find('\n')) != std::string::npos) {
    See(output_text_.substr(0, end + 1), &seen_.daemon_output);
    take(output_text_.substr(0, end));
    output_text_.erase(0, end + 1);
  }
  if (all && !output_text_.empty()) take(std::exchange(output_text_, {}));
  // No writer is left: a closed pipe would be readable for ever.
  if (count == 0) output_.Reset();
}

void VirtualDevice::ServeData() {
  const auto datagram = data_->Receive(milliseconds(0));
  if (!datagram.has_value()) return;
  const auto bytes = DecodeSerialData(*datagram);
  if (!bytes.has_value()) {
    Note("data", "no serial data datagram: " + Dump(*datagram));
    return;
  }
  See(*bytes, &seen_.line_to_data);
  Note("data", tools::Count(bytes->size(), "byte") + " on UDP port " +
                   std::to_string(SERIAL_DATA_PORT) + ": " + Dump(*bytes));
}

void VirtualDevice::ServeClient() {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(client_->Fd(), bytes.data(), bytes.size());
  if (count <= 0) {
    Note("client", "disconnected");
    client_.reset();
    return;
  }
  const std::span<const uint8_t> received(bytes.data(), static_cast<size_t>(count));
  See(received, &seen_.line_to_client);
  Note("client",
       tools::Count(received.size(), "byte") + " on the PTZ TCP connection: " + Dump(received));
}

void VirtualDevice::ServeManager() {
  const auto datagram = manager_.Receive(milliseconds(0));
  if (!datagram.has_value()) return;
  const bool is_reboot = IsRebootNotice(*datagram);
  if (is_reboot) ++seen_.reboot_notices;
  Note("sysmgr", (is_reboot ? "notice of a reboot: " : "notice: ") + Dump(*datagram));
}

// Whoever writes to a system log that is full waits.
void VirtualDevice::ServeSyslog() {
  const Bytes message = BytesOf(syslog_.WaitFor("", milliseconds(0)));
  if (!message.empty()) Note("syslog", tools::PlainText(message));
}

void VirtualDevice::ServeFarEnd() {
  line_server_.Step();
  if (camera_) camera_->Serve(Clock::now());
  DropRecords();
  sink_->Observe(*far_end_);
}

// What a lens and its camera keep for whoever judges a search: nobody does here.
void VirtualDevice::DropRecords() {
  if (auto* lens = dynamic_cast<LensMicom*>(far_end_.get())) lens->TakeFrames();
  if (!camera_) return;
  camera_->TakeFocusReadings();
  camera_->TakeExposureReadings();
  camera_->TakeExposureOrders();
}

// Tells the camera information file once it is whole again: it is written line by line.
void VirtualDevice::ReportCameraInfo() {
  const auto now = Clock::now();
  const std::string info = ReadTextFile(kCameraInfoPath);
  if (info != new_camera_info_) {
    new_camera_info_ = info;
    new_camera_info_since_ = now;
  }
  if (info == seen_.camera_info || now - new_camera_info_since_ < kFileSettled) return;
  seen_.camera_info = info;
  for (const std::string& line : NewLines(info, 0))
    Note("info", line);
}

void VirtualDevice::ReportPrograms() {
  const std::string log = ReadTextFile(kProgramLog);
  for (const std::string& line : NewLines(log, seen_.programs.size())) {
    Note("system", "runs, at uptime " + line);
    is_rebooting_ = is_rebooting_ || line.find(" reboot") != std::string::npos;
  }
  seen_.programs = log.substr(0, log.rfind('\n') + 1);
}

void VirtualDevice::SendControl(const CameraControl& control) {
  const Bytes packet = CameraControlPacket(control);
  sender_.SendTo(RS232_COMMAND_PORT, packet);
}

void VirtualDevice::SendRawByUdp(const std::string& text) {
  sender_.SendTo(config_.udp_port, DaemonDatagram(RS232_UDP_WRITE, BytesOf(text)));
}

void VirtualDevice::SendRawByClient(const std::string& text) {
  if (client_ == nullptr) {
    Note("client", "not connected");
    return;
  }
  client_->Send(BytesOf(text));
}

void VirtualDevice::SendFromFarEnd(const std::string& text) {
  line_.Send(BytesOf(text));
}

void VirtualDevice::UpdateFirmware(size_t payload) {
  std::string image(MICOM_IMAGE_HEADER_SIZE, 'H');
  for (size_t i = 0; i < payload; ++i)
    image += static_cast<char>(i * i / 7);
  WriteTextFile(MICOM_FIRMWARE_PATH, image);
  sender_.SendTo(RS232_COMMAND_PORT, CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
}

bool VirtualDevice::Stop() {
  client_.reset();
  if (is_rebooting_) {
    Note("vdev", "rs232d has rebooted the device and waits for the system to end it: ended");
    daemon_->Signal(SIGKILL);
    return daemon_->WaitEnd() == -SIGKILL;
  }
  daemon_->Signal(SIGTERM);
  // A daemon that awaits an answer ends once it has it.
  const auto end = Clock::now() + kPatience;
  while (Clock::now() < end && Serve(kTickEvery, -1)) {
  }
  const auto status = daemon_->WaitEnd(milliseconds(0));
  TakeDaemonLines(true);
  if (!status.has_value()) {
    Note("vdev", "rs232d does not end");
  } else if (*status < 0) {
    Note("vdev", std::string("rs232d was ended by signal ") + strsignal(-*status));
  } else {
    Note("vdev", "rs232d ended with status " + std::to_string(*status));
  }
  return status == 0;
}

}  // namespace sim
