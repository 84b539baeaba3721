// The camera daemon: answers the queries for focus measure and exposure on its command channel,
// and takes the exposure setting.
//
// It has no thread of its own: its owner polls Fd and calls Serve. What it sees comes from the
// optical model and from the lens's pose, which it asks its owner for.
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

// How it behaves.
struct CameraTraits {
  bool silent = false;           // takes queries, answers none
  milliseconds answer_after{0};  // longer than a query's limit: answers come too late
};

// A query that was answered from the model, or would have been, were it not silent.
struct FocusReading {
  Clock::time_point time;
  LensPose pose;
  bool moving;  // the lens moved while it was measured
  uint16_t value;
};

struct ExposureReading {
  Clock::time_point time;
  LensPose pose;
  Exposure exposure;
};

struct ExposureOrder {
  int32_t setting;
  int queries;  // exposure queries that had come before it, from the first on
};

class CameraDaemon {
 public:
  // `lens` may be null: the pose is then zeros. Throws std::runtime_error when the port is taken.
  explicit CameraDaemon(const LensMicom* lens, uint32_t seed = 1);

  int Fd() const { return peer_.Fd(); }

  // Serves the queries that have come and sends the answers that are due.
  void Serve(Clock::time_point now);

  // The exposure setting in force; 0 before the first one.
  int32_t ExposureSetting() const { return setting_; }

  // What was seen since the last call.
  std::vector<FocusReading> TakeFocusReadings();
  std::vector<ExposureReading> TakeExposureReadings();
  std::vector<ExposureOrder> TakeExposureOrders();

  // What is done in words, e.g. "focus measure 1234 at focus 560".
  std::function<void(const std::string&)> on_words = [](const std::string&) {};

  CameraTraits traits;
  Scene scene;
  // Exposure answers that come first, in place of the model's.
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
