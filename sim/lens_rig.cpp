#include "sim/lens_rig.h"

#include <poll.h>
#include <unistd.h>

#include <array>

namespace sim {

LensRig::LensRig(PtyLine* line, const LensPose& pose, uint32_t seed, const LensBuild& build)
    : line_(line), micom_(Clock::now(), pose, build), camera_(&micom_, seed) {
  constexpr milliseconds kPtyDelay{4};
  micom_.traits.unseen_way = kPtyDelay;
  micom_.on_answer = [line](std::span<const uint8_t> bytes) { line->Send(bytes); };
  thread_ = std::thread([this] { Run(); });
}

LensRig::~LensRig() {
  stop_ = true;
  thread_.join();
}

void LensRig::Run() {
  while (!stop_) {
    // Before the wait, so that the micom knows when the line was empty.
    {
      const std::scoped_lock lock(mutex_);
      micom_.Tick(Clock::now());
    }
    constexpr int kTickMs = 1;
    std::array<pollfd, 2> sources = {{{line_->FarEnd(), POLLIN, 0}, {camera_.Fd(), POLLIN, 0}}};
    poll(sources.data(), sources.size(), kTickMs);
    ServeOnce();
  }
}

void LensRig::ServeOnce() {
  const std::scoped_lock lock(mutex_);
  std::array<uint8_t, 4096> bytes;
  const ssize_t count = read(line_->FarEnd(), bytes.data(), bytes.size());
  const auto now = Clock::now();
  if (count > 0) {
    micom_.Feed({bytes.data(), static_cast<size_t>(count)}, now);
  } else {
    micom_.Tick(now);
  }
  camera_.Serve(now);
}

}  // namespace sim
