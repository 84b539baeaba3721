// A pan/tilt/zoom head at the far end of the line.
//
// It decodes Pelco-D, turns its motors during a motion, stores presets, and answers each frame with
// sync, address, alarms (none) and checksum.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

#include "sim/far_end.h"
#include "sim/pelco_decoder.h"

namespace sim {

// The pose of a head.
struct HeadPose {
  double pan = 0;     // degrees, 0 to 360 clockwise, endless
  double tilt = 0;    // degrees, -90 (down) to 90 (up)
  double zoom = 1;    // magnification, 1 to 20
  double focus = 50;  // percent, from near (0) to far (100)
};

// Motor speeds.
constexpr double kHeadPanAtTop = 90;           // degrees a second at Pelco speed 63
constexpr double kHeadTiltAtTop = 45;          // degrees a second at Pelco speed 63
constexpr double kHeadLowestShare = 1.0 / 64;  // of the top speed, at Pelco speed 0
constexpr double kHeadZoomRate = 3;            // magnifications a second at zoom speed 1
constexpr double kHeadFocusRate = 25;          // percent a second at focus speed 1

class PtzHead : public FarEnd {
 public:
  explicit PtzHead(Clock::time_point now);

  void Feed(std::span<const uint8_t> bytes, Clock::time_point now) override;
  void Tick(Clock::time_point now) override;
  const char* Name() const override { return "head"; }
  std::string Describe() const override { return "at " + Describe(pose_); }
  bool IsMoving() const override;

  HeadPose Pose(Clock::time_point now);
  // As of the last Feed or Tick.
  const HeadPose& Pose() const { return pose_; }
  const std::map<int, HeadPose>& Presets() const { return presets_; }
  int FrameCount() const { return frame_count_; }

  // The pose in words, e.g. "pan 12.5 deg, tilt -3.0 deg, zoom 1.0x, focus 50 %".
  static std::string Describe(const HeadPose& pose);

 private:
  void Advance(Clock::time_point now);
  void TakeFrame(const PelcoFrame& frame);
  void TakeMotion(const PelcoFrame& frame);
  void TakeExtended(const PelcoFrame& frame);

  PelcoDecoder decoder_;
  Clock::time_point now_;
  Clock::time_point last_byte_;
  HeadPose pose_;
  HeadPose rate_ = {0, 0, 0, 0};  // change of the pose a second
  double zoom_speed_ = 1;
  double focus_speed_ = 1;
  std::map<int, HeadPose> presets_;
  int frame_count_ = 0;
};

}  // namespace sim
