#include "sim/virtual_device.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "ipc/cicomm.h"
#include "relay/daemon_datagram.h"
#include "sim/far_end_models.h"

namespace sim {
namespace {

// How often time passes for the far end, and how often it is described while it moves.
constexpr milliseconds kTickEvery{5};
constexpr milliseconds kReportEvery{500};

void Print(const char* who, const std::string& words) {
  printf("%-6s | %s\n", who, words.c_str());
}

std::string Text(std::span<const uint8_t> bytes) {
  std::string text(bytes.begin(), bytes.end());
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
  return text;
}

std::string Count(size_t bytes) {
  return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

std::string Dump(std::span<const uint8_t> bytes) {
  return Hex(bytes) + "  \"" + Text(bytes) + "\"";
}

Bytes BytesOf(const std::string& text) {
  return Bytes(text.begin(), text.end());
}

}  // namespace

VirtualDevice::VirtualDevice(const DeviceConfig& config, const std::string& daemon_path, bool trace)
    : config_(config),
      line_(config.serial_path),
      far_end_(MakeFarEnd(config.model, line_, Clock::now())),
      data_(SERIAL_DATA_PORT),
      last_report_(Clock::now()),
      last_description_(far_end_->Describe()) {
  InstallDevice(config);
  far_end_->on_words = [this](const std::string& words) {
    ++seen_.frames;
    Print(far_end_->Name(), words);
  };
  far_end_->on_noise = [this](std::span<const uint8_t> bytes) {
    seen_.raw_to_line.append(bytes.begin(), bytes.end());
    Print(far_end_->Name(), Count(bytes.size()) + " that are no frame: " + Dump(bytes));
  };
  far_end_->on_answer = [this](std::span<const uint8_t> bytes) { line_.Send(bytes); };

  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("cannot make a pipe");
  output_.Reset(pipe_fds[0]);
  const UniqueFd write_end(pipe_fds[1]);
  // The daemon's end blocks: it must not lose lines while they are being printed here.
  fcntl(write_end.Get(), F_SETFL, 0);
  daemon_ = std::make_unique<DaemonProcess>(
      daemon_path, trace ? std::vector<std::string>{"1"} : std::vector<std::string>{},
      write_end.Get());
}

bool VirtualDevice::Start() {
  if (!daemon_->WaitServing(config_)) {
    PrintDaemonLines(true);
    return false;
  }
  Print("vdev", "rs232d serves " + config_.model + ": PTZ TCP port " +
                    std::to_string(config_.ptz_port) + ", UDP port " +
                    std::to_string(config_.udp_port) + ", command channel " +
                    std::to_string(RS232_COMMAND_PORT) + ", serial line at " +
                    std::to_string(config_.baud_rate) + " baud");
  if (config_.ptz_enable == 1) client_ = std::make_unique<PtzClient>(config_.ptz_port);
  return true;
}

bool VirtualDevice::Serve(milliseconds limit, int wake_fd) {
  const auto end = Clock::now() + limit;
  while (true) {
    std::array<pollfd, 5> sources = {{{line_.FarEnd(), POLLIN, 0},
                                      {output_.Get(), POLLIN, 0},
                                      {data_.Fd(), POLLIN, 0},
                                      {client_ ? client_->Fd() : -1, POLLIN, 0},
                                      {wake_fd, POLLIN, 0}}};
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    const milliseconds pause = std::clamp(left, milliseconds(0), kTickEvery);
    poll(sources.data(), sources.size(), static_cast<int>(pause.count()));
    if (sources[0].revents != 0) ServeLine();
    if (sources[1].revents != 0) ServeDaemonOutput();
    if (sources[2].revents != 0) ServeData();
    if (sources[3].revents != 0) ServeClient();
    ReportFarEnd();
    fflush(stdout);
    if (daemon_->WaitEnd(milliseconds(0)).has_value()) return false;
    if (sources[4].revents != 0 || Clock::now() >= end) return true;
  }
}

void VirtualDevice::ServeLine() {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(line_.FarEnd(), bytes.data(), bytes.size());
  if (count <= 0) return;
  const auto now = Clock::now();
  if (!far_end_->IsMoving()) last_report_ = now;
  far_end_->Feed({bytes.data(), static_cast<size_t>(count)}, now);
}

void VirtualDevice::PrintDaemonLines(bool all) {
  std::array<char, 4096> bytes;
  ssize_t count = 0;
  while ((count = read(output_.Get(), bytes.data(), bytes.size())) > 0) {
    output_text_.append(bytes.data(), static_cast<size_t>(count));
  }
  size_t end = 0;
  while ((end = output_text_.find('\n')) != std::string::npos) {
    Print("daemon", output_text_.substr(0, end));
    output_text_.erase(0, end + 1);
  }
  if (all && !output_text_.empty()) Print("daemon", output_text_);
}

void VirtualDevice::ServeDaemonOutput() {
  PrintDaemonLines(false);
}

void VirtualDevice::ServeData() {
  const auto datagram = data_.Receive(milliseconds(0));
  if (!datagram.has_value()) return;
  const auto bytes = DecodeSerialData(*datagram);
  if (!bytes.has_value()) {
    Print("data", "no serial data datagram: " + Dump(*datagram));
    return;
  }
  seen_.line_to_data.append(bytes->begin(), bytes->end());
  Print("data", Count(bytes->size()) + " on UDP port " + std::to_string(SERIAL_DATA_PORT) + ": " +
                    Dump(*bytes));
}

void VirtualDevice::ServeClient() {
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(client_->Fd(), bytes.data(), bytes.size());
  if (count <= 0) {
    Print("client", "disconnected");
    client_.reset();
    return;
  }
  const std::span<const uint8_t> received(bytes.data(), static_cast<size_t>(count));
  seen_.line_to_client.append(received.begin(), received.end());
  Print("client", Count(received.size()) + " on the PTZ TCP connection: " + Dump(received));
}

void VirtualDevice::ReportFarEnd() {
  const auto now = Clock::now();
  far_end_->Tick(now);
  if (far_end_->IsMoving() && now - last_report_ < kReportEvery) return;
  const std::string description = far_end_->Describe();
  if (description == last_description_) return;
  Print(far_end_->Name(), description);
  last_description_ = description;
  last_report_ = now;
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
    Print("client", "not connected");
    return;
  }
  client_->Send(BytesOf(text));
}

void VirtualDevice::SendFromFarEnd(const std::string& text) {
  line_.Send(BytesOf(text));
}

bool VirtualDevice::Stop() {
  client_.reset();
  const auto status = daemon_->Stop();
  PrintDaemonLines(true);
  if (!status.has_value()) {
    Print("vdev", "rs232d does not end");
  } else if (*status < 0) {
    Print("vdev", std::string("rs232d was ended by signal ") + strsignal(-*status));
  } else {
    Print("vdev", "rs232d ended with status " + std::to_string(*status));
  }
  return status == 0;
}

}  // namespace sim
