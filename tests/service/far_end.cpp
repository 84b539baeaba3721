// far_end MODEL PTZ-PORT: the files of a device, and what is around its daemon, for a daemon that
// something else starts: the far end of MODEL on the line, a camera daemon, the receivers of
// serial data datagrams and of reboot notices. Text from standard input goes out of the far end;
// what each of them sees is printed, a line each. Runs until it is ended.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "ipc/csysmgr.h"
#include "relay/daemon_datagram.h"
#include "sim/camera_daemon.h"
#include "sim/device.h"
#include "sim/far_end_models.h"
#include "sim/line_server.h"
#include "sim/peers.h"
#include "sim/pty_line.h"

namespace {

using sim::Clock;
using sim::milliseconds;

void Say(const char* who, const std::string& text) {
  printf("%s: %s\n", who, text.c_str());
  fflush(stdout);
}

std::string TextOf(std::span<const uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

void ServeData(sim::UdpPeer* data) {
  const auto datagram = data->Receive(milliseconds(0));
  if (!datagram.has_value()) return;
  const auto bytes = sim::DecodeSerialData(*datagram);
  Say("data", bytes.has_value() ? TextOf(*bytes) : "no serial data datagram");
}

void ServeManager(sim::UdpPeer* manager) {
  const auto datagram = manager->Receive(milliseconds(0));
  if (datagram.has_value()) Say("manager", sim::Hex(*datagram));
}

// Returns false once there is nobody left to write.
bool ServeInput(sim::PtyLine* line) {
  std::array<uint8_t, 256> bytes;
  const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count > 0) line->Send({bytes.data(), static_cast<size_t>(count)});
  return count > 0;
}

[[noreturn]] void Run(const std::string& model, int ptz_port) {
  sim::DeviceConfig config;
  config.model = model;
  config.ptz_port = ptz_port;
  sim::PtyLine line(config.serial_path);
  sim::InstallDevice(config);
  sim::InstallModelFiles(model);
  const auto far_end = sim::MakeFarEnd(model, line, Clock::now());
  const auto camera = sim::MakeCamera(model, *far_end);
  sim::LineServer server(&line, far_end.get());
  sim::UdpPeer data(SERIAL_DATA_PORT);
  sim::UdpPeer manager(CSYSMGR_PORT);
  far_end->on_words = [&](const std::string& words) { Say(far_end->Name(), words); };
  far_end->on_noise = [](std::span<const uint8_t> bytes) { Say("raw", TextOf(bytes)); };
  if (camera) camera->on_words = [](const std::string& words) { Say("camera", words); };
  Say("ready", model);

  bool has_input = true;
  while (true) {
    std::array<pollfd, 5> sources = {{{line.FarEnd(), POLLIN, 0},
                                      {data.Fd(), POLLIN, 0},
                                      {manager.Fd(), POLLIN, 0},
                                      {camera ? camera->Fd() : -1, POLLIN, 0},
                                      {has_input ? STDIN_FILENO : -1, POLLIN, 0}}};
    poll(sources.data(), sources.size(), static_cast<int>(sim::kTickEvery.count()));
    server.Step();
    ServeData(&data);
    ServeManager(&manager);
    if (camera) camera->Serve(Clock::now());
    if (sources[4].revents != 0) has_input = ServeInput(&line);
  }
}

}  // namespace

int main(int argc, char** argv) {
  constexpr int kArguments = 3;
  if (argc != kArguments) {
    fprintf(stderr, "usage: far_end MODEL PTZ-PORT\n");
    return EXIT_FAILURE;
  }
  try {
    Run(argv[1], atoi(argv[2]));
  } catch (const std::exception& error) {
    fprintf(stderr, "far_end: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
