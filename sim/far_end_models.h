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

// Makes the camera daemon of a lens model; returns null for other models. `far_end` must be the one
// that MakeFarEnd made for this model, and must outlive the camera daemon.
std::unique_ptr<CameraDaemon> MakeCamera(const std::string& model, const FarEnd& far_end);

// Writes the additional files of a model.
void InstallModelFiles(const std::string& model);

}  // namespace sim
