// Which far end a device model has.
#pragma once

#include <memory>
#include <string>

#include "sim/far_end.h"
#include "sim/pty_line.h"

namespace sim {

enum class FarEndKind { kPtzHead, kSdModule, kHdModule };

// A PTZ head where the model has nothing of its own.
FarEndKind KindOfModel(const std::string& model);

// Makes the far end of a model. `line` must outlive it.
std::unique_ptr<FarEnd> MakeFarEnd(const std::string& model, const PtyLine& line,
                                   Clock::time_point now);

}  // namespace sim
