// far_end MODEL PTZ-PORT: the files of a device and the environment of a daemon that another
// program starts: the far end of MODEL on the line, a camera daemon, and receivers for serial data
// datagrams and reboot notices. Sends text from standard input out of the far end and prints one
// line per event. Runs until killed.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ipc/csysmgr.h"
#include "relay/daemon_datagram.h"
#include "sim/device_rig.h"

namespace {

using sim::Clock;

void Say(const char* who, const std::string& text) {
  printf("%s: %s\n", who, text.c_str());
  fflush(stdout);
}

std::string TextOf(std::span<const uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

// Returns false at the end of the input.
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
  sim::DeviceRig rig(config);
  rig.Install();
  rig.AttachModel();
  sim::UdpPeer data(SERIAL_DATA_PORT);
  sim::UdpPeer manager(CSYSMGR_PORT);
  rig.far_end->on_words = [&](const std::string& words) { Say(rig.far_end->Name(), words); };
  rig.far_end->on_noise = [](std::span<const uint8_t> bytes) { Say("raw", TextOf(bytes)); };
  if (rig.camera) rig.camera->on_words = [](const std::string& words) { Say("camera", words); };
  rig.Watch(data.Fd(), [&] {
    const auto bytes = sim::DecodeSerialData(data.Receive().value_or(sim::Bytes()));
    Say("data", bytes.has_value() ? TextOf(*bytes) : "not a serial data datagram");
  });
  rig.Watch(manager.Fd(),
            [&] { Say("manager", sim::Hex(manager.Receive().value_or(sim::Bytes()))); });
  rig.Watch(STDIN_FILENO, [&] {
    if (!ServeInput(&rig.line)) rig.Unwatch(STDIN_FILENO);
  });
  Say("ready", model);
  while (true) {
    rig.Serve(Clock::now() + std::chrono::hours(1));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3) Run(argv[1], atoi(argv[2]));
  fprintf(stderr, "usage: far_end MODEL PTZ-PORT\n");
  return EXIT_FAILURE;
}
