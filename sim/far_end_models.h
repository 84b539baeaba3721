// Which far end a device model has.
#pragma once

#include <memory>
#include <string>

#include "sim/camera_daemon.h"
#include "sim/far_end.h"
#include "sim/pty_line.h"

namespace sim {

// Makes the far end of a model: a PTZ head where it has nothing of its own. `line` must outlive it.
std::unique_ptr<FarEnd> MakeFarEnd(const std::string& model, const PtyLine& line,
                                   Clock::time_point now);

// Makes the camera daemon of a model whose daemon asks one, for the far end made of it, which must
// outlive it; else null.
std::unique_ptr<CameraDaemon> MakeCamera(const std::string& model, const FarEnd& far_end);

// Writes the files that a model has besides those of every device.
void InstallModelFiles(const std::string& model);

}  // namespace sim
