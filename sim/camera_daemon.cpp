#include "sim/camera_daemon.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstring>
#include <utility>

#include "ipc/cicomm.h"
#include "util/bytes.h"

namespace sim {

CameraDaemon::CameraDaemon(const LensMicom* lens, uint32_t seed)
    : lens_(lens), peer_(CAMD_QUERY_PORT), optics_(seed) {}

void CameraDaemon::Serve(Clock::time_point now) {
  std::array<uint8_t, 2048> packet;
  sockaddr_in from = {};
  socklen_t from_size = sizeof(from);
  ssize_t length = 0;
  while ((length = recvfrom(peer_.Fd(), packet.data(), packet.size(), MSG_DONTWAIT,
                            reinterpret_cast<sockaddr*>(&from), &from_size)) >= 0) {
    TakePacket({packet.data(), static_cast<size_t>(length)}, ntohs(from.sin_port), now);
    from_size = sizeof(from);
  }
  while (!answers_.empty() && answers_.front().due <= now) {
    peer_.SendTo(answers_.front().port, answers_.front().packet);
    answers_.pop_front();
  }
}

std::vector<FocusReading> CameraDaemon::TakeFocusReadings() {
  return std::exchange(focus_readings_, {});
}

std::vector<ExposureReading> CameraDaemon::TakeExposureReadings() {
  return std::exchange(exposure_readings_, {});
}

std::vector<ExposureOrder> CameraDaemon::TakeExposureOrders() {
  return std::exchange(exposure_orders_, {});
}

// Accepts only complete packets of a known kind.
void CameraDaemon::TakePacket(std::span<const uint8_t> packet, int port, Clock::time_point now) {
  CicommHeader header;
  if (packet.size() != sizeof(header) + CAMERA_QUERY_SIZE) return;
  memcpy(&header, packet.data(), sizeof(header));
  const bool known = header.magic.Get() == CICOMM_MAGIC && header.version.Get() == CICOMM_VERSION &&
                     header.command.Get() == CAMERA_QUERY && header.size.Get() == CAMERA_QUERY_SIZE;
  if (!known) return;
  const uint8_t* record = packet.data() + sizeof(header);
  switch (LoadLe32(record + CAMERA_QUERY_KIND_AT)) {
    case CAMERA_QUERY_SET_EXPOSURE:
      SetExposure(static_cast<int32_t>(LoadLe32(record + CAMERA_QUERY_SETTING_AT)));
      break;
    case CAMERA_QUERY_EXPOSURE:
      MeasureExposure(port, now);
      break;
    case CAMERA_QUERY_FOCUS:
      MeasureFocus(port, now);
      break;
    default:
      break;
  }
}

void CameraDaemon::MeasureFocus(int port, Clock::time_point now) {
  const LensPose pose = Pose();
  const uint16_t value = optics_.Measure(scene, pose);
  const bool moving = lens_ != nullptr && (lens_->Focus().IsMoving() || lens_->Zoom().IsMoving());
  focus_readings_.push_back({.time = now, .pose = pose, .moving = moving, .value = value});
  on_words("focus measure " + std::to_string(value) + " at focus " + std::to_string(pose.focus));
  AnswerWith(port, CAMERA_QUERY_FOCUS, value, 0, now);
}

void CameraDaemon::MeasureExposure(int port, Clock::time_point now) {
  ++exposure_queries_;
  const LensPose pose = Pose();
  Exposure exposure = LensOptics::Expose(scene, pose, setting_);
  if (!scripted_exposures.empty()) {
    exposure = scripted_exposures.front();
    scripted_exposures.pop_front();
  }
  exposure_readings_.push_back({.time = now, .pose = pose, .exposure = exposure});
  on_words("exposure level " + std::to_string(exposure.level) + ", deviation " +
           std::to_string(exposure.deviation));
  AnswerWith(port, CAMERA_QUERY_EXPOSURE, static_cast<uint32_t>(exposure.level),
             static_cast<uint32_t>(exposure.deviation), now);
}

void CameraDaemon::SetExposure(int32_t setting) {
  setting_ = setting;
  exposure_orders_.push_back({.setting = setting, .queries = exposure_queries_});
  on_words("exposure setting " + std::to_string(setting));
}

void CameraDaemon::AnswerWith(int port, CameraQueryKind kind, uint32_t first, uint32_t second,
                              Clock::time_point now) {
  if (traits.silent) return;
  std::array<uint8_t, CAMERA_QUERY_SIZE> record = {};
  StoreLe32(record.data() + CAMERA_QUERY_KIND_AT, static_cast<uint32_t>(kind));
  StoreLe32(record.data() + CAMERA_QUERY_LEVEL_AT, first);
  StoreLe32(record.data() + CAMERA_QUERY_DEVIATION_AT, second);
  answers_.push_back({.due = now + traits.answer_after,
                      .port = port,
                      .packet = CommandPacket(CAMERA_QUERY, record)});
}

LensPose CameraDaemon::Pose() const {
  return lens_ != nullptr ? lens_->Pose() : LensPose{};
}

}  // namespace sim
