#include "sim/device_rig.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "sim/far_end_models.h"
#include "sim/virtual_time.h"

namespace sim {
DeviceRig::DeviceRig(DeviceConfig device) : config(std::move(device)), line(config.serial_path) {
  g_pump = this;
}

DeviceRig::~DeviceRig() {
  g_pump = nullptr;
}

void DeviceRig::Install() const {
  InstallDevice(config);
  InstallModelFiles(config.model);
}

void DeviceRig::Attach(std::unique_ptr<FarEnd> end, const LensMicom* measured, uint32_t seed) {
  constexpr size_t kMost = 1 << 16;
  line.Receive(kMost, milliseconds(0));
  camera.reset();
  far_end = std::move(end);
  far_end->on_answer = [this](std::span<const uint8_t> bytes) { line.Send(bytes); };
  if (measured != nullptr) camera = std::make_unique<CameraDaemon>(measured, seed);
}

void DeviceRig::AttachModel() {
  Attach(MakeFarEnd(config.model, line, Clock::now()));
  camera = MakeCamera(config.model, *far_end);
}

void DeviceRig::Watch(int fd, std::function<void()> handler) {
  watchers_.push_back({.fd = fd, .handler = std::move(handler)});
}

void DeviceRig::Unwatch(int fd) {
  std::erase_if(watchers_, [fd](const Watcher& watcher) { return watcher.fd == fd; });
}

void DeviceRig::Launch(const std::string& program, std::vector<std::string> arguments,
                       const LaunchOptions& options) {
  daemon.reset();
  daemon = std::make_unique<DaemonProcess>(program, std::move(arguments), options);
}

// --- Serving -----------------------------------------------------------------------------------

bool DeviceRig::Serve(Clock::time_point end, int fd, short events) {
  // A handler that waits must not re-enter this pump.
  g_pump = nullptr;
  bool is_ready = false;
  do {
    std::vector<pollfd> sources = {{fd, events, 0},
                                   {far_end ? line.FarEnd() : -1, POLLIN, 0},
                                   {camera ? camera->Fd() : -1, POLLIN, 0}};
    for (const Watcher& watcher : watchers_)
      sources.push_back({watcher.fd, POLLIN, 0});
    // Wake up often enough to tick the far end.
    const auto look = far_end ? std::min(end, Clock::now() + Clock::duration(tick_every)) : end;
    poll(sources.data(), sources.size(), static_cast<int>(Left(look).count()));
    is_ready = sources.front().revents != 0;
    ServeFarEnd();
    ServeReady(sources);
  } while (!is_ready && Clock::now() < end);
  g_pump = this;
  return is_ready;
}

void DeviceRig::ServeFarEnd() {
  if (!far_end) return;
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(line.FarEnd(), bytes.data(), bytes.size());
  const auto now = Clock::now();
  // On the virtual clock a byte arrives at this very moment, after the time until now.
  if (IsTimeVirtual()) far_end->Tick(now);
  if (count > 0) far_end->Feed({bytes.data(), static_cast<size_t>(count)}, now);
  far_end->Tick(now);
  if (camera) camera->Serve(now);
}

// Looks each watcher up again, because a handler may add and remove watchers.
void DeviceRig::ServeReady(std::span<const pollfd> sources) {
  for (const pollfd& source : sources.subspan(1)) {
    if (source.revents == 0) continue;
    const auto watcher = std::ranges::find(watchers_, source.fd, &Watcher::fd);
    if (watcher == watchers_.end()) continue;
    const auto handler = watcher->handler;
    handler();
  }
}

}  // namespace sim
