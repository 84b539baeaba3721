// The upper half of the live screen: gauges of what is behind the line, and a picture of what it
// does.
#pragma once

#include "sim/camera_daemon.h"
#include "sim/far_end.h"
#include "sim/terminal.h"

namespace sim {

// Draws a far end as of its last Feed or Tick: figures into one pane, and into the other where a
// head looks, the menu of a camera module, or the focus of a lens over its zoom. `camera` is the
// camera daemon that looks through a lens.
void DrawInstruments(const Terminal& terminal, const Area& gauges, const Area& view,
                     const FarEnd& far_end, const CameraDaemon* camera);

}  // namespace sim
