// The upper half of the live screen: gauges of the far end and a picture of its state.
#pragma once

#include "sim/camera_daemon.h"
#include "sim/far_end.h"
#include "sim/terminal.h"

namespace sim {

// Draws a far end as of its last Feed or Tick: its gauges into one pane, and into the other the
// direction of a head, the menu of a camera module, or the focus curve of a lens. `camera` is the
// camera daemon of a lens and may be null otherwise.
void DrawInstruments(const Terminal& terminal, const Area& gauges, const Area& view,
                     const FarEnd& far_end, const CameraDaemon* camera);

// Draws a gauge from 0 to 100 percent over the width of the screen.
void DrawProgress(const Terminal& terminal, int row, const char* label, int percent);

}  // namespace sim
