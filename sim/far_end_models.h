// The far end of each device model.
#pragma once

#include <memory>
#include <string>

#include "sim/camera_daemon.h"
#include "sim/far_end.h"
#include "sim/pty_line.h"

namespace sim {

// Makes the far end of a model; a PTZ head if the model has no other. `line` must outlive it.
std::unique_ptr<FarEnd> MakeFarEnd(const std::string& model, const PtyLine& line,
                                   Clock::time_point now);

// Makes the camera daemon of a lens model, for the far end that MakeFarEnd made for it and which
// must outlive it; null for other models.
std::unique_ptr<CameraDaemon> MakeCamera(const std::string& model, const FarEnd& far_end);

// Writes the additional files of a model.
void InstallModelFiles(const std::string& model);

}  // namespace sim
