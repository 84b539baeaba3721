// The camera daemon: answers focus-measure and exposure queries on its command channel and accepts
// the exposure setting.
//
// It has no thread: its owner polls Fd and calls Serve. It computes its answers from the optical
// model and the pose of the lens.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "lens/camera_query.h"
#include "sim/lens_optics.h"
#include "sim/peers.h"

namespace sim {

struct CameraTraits {
  bool silent = false;           // accepts queries and never answers
  milliseconds answer_after{0};  // above the query timeout, answers come too late
};

// An answered query. With CameraTraits::silent, the answer was computed but not sent.
struct FocusReading {
  Clock::time_point time;
  LensPose pose;
  bool moving;  // the lens was moving during the measurement
  uint16_t value;
};

struct ExposureReading {
  Clock::time_point time;
  LensPose pose;
  Exposure exposure;
};

struct ExposureOrder {
  int32_t setting;
  int queries;  // total exposure queries received before it
};

class CameraDaemon {
 public:
  // `lens` may be null: every pose is then 0. Throws std::runtime_error if the port is in use.
  explicit CameraDaemon(const LensMicom* lens, uint32_t seed = 1);

  int Fd() const { return peer_.Fd(); }

  // Handles the queued queries and sends the answers that are due.
  void Serve(Clock::time_point now);

  // The exposure setting in force; 0 before the first one.
  int32_t ExposureSetting() const { return setting_; }

  // Each returns the records since its last call.
  std::vector<FocusReading> TakeFocusReadings();
  std::vector<ExposureReading> TakeExposureReadings();
  std::vector<ExposureOrder> TakeExposureOrders();

  // Called with a description of each action, e.g. "focus measure 1234 at focus 560".
  std::function<void(const std::string&)> on_words = [](const std::string&) {};

  CameraTraits traits;
  Scene scene;
  // Exposure answers to use before those of the model.
  std::deque<Exposure> scripted_exposures;

 private:
  struct Answer {
    Clock::time_point due;
    int port;
    Bytes packet;
  };

  void TakePacket(std::span<const uint8_t> packet, int port, Clock::time_point now);
  void MeasureFocus(int port, Clock::time_point now);
  void MeasureExposure(int port, Clock::time_point now);
  void SetExposure(int32_t setting);
  void AnswerWith(int port, CameraQueryKind kind, uint32_t first, uint32_t second,
                  Clock::time_point now);
  LensPose Pose() const;

  const LensMicom* lens_;
  UdpPeer peer_;
  LensOptics optics_;
  int32_t setting_ = 0;
  int exposure_queries_ = 0;
  std::deque<Answer> answers_;
  std::vector<FocusReading> focus_readings_;
  std::vector<ExposureReading> exposure_readings_;
  std::vector<ExposureOrder> exposure_orders_;
};

}  // namespace sim
