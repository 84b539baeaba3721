// What can be read off a far end: figures for gauges, and a picture of what it is about.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "sim/camera_daemon.h"
#include "sim/far_end.h"
#include "sim/ptz_head.h"

namespace sim {

struct Gauge {
  std::string label;
  std::string figure;          // with its unit
  double share;                // of the way from the low end (0) to the high end (1)
  std::optional<double> mark;  // share at which it should stand
};

// Where a head looks.
struct MapView {
  HeadPose pose;
  std::map<int, HeadPose> presets;
};

// The menu that a camera module shows.
struct MenuView {
  struct Line {
    std::string name;
    std::optional<int> value;
  };
  bool is_open;
  size_t cursor;
  int value_max;
  std::vector<Line> lines;
};

// The focus of a lens over its zoom: in focus along the curve, and where the lens stands. Motor
// steps.
struct CurveView {
  std::vector<double> focus;  // in focus, at zoom positions evenly spaced over the whole range
  double zoom_max;
  double focus_max;
  double zoom_at;
  double focus_at;
};

struct Instruments {
  std::vector<Gauge> gauges;
  std::vector<std::string> notes;  // what no gauge shows, a line each
  std::variant<MapView, MenuView, CurveView> view;
};

// Reads the far end that was made for `model`, and the camera daemon that looks through it (null:
// there is none), as of the far end's last Feed or Tick.
Instruments ReadInstruments(const std::string& model, const FarEnd& far_end,
                            const CameraDaemon* camera);

}  // namespace sim
