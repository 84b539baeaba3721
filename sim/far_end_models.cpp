#include "sim/far_end_models.h"

#include "sim/ptz_head.h"

namespace sim {

std::unique_ptr<FarEnd> MakeFarEnd(const std::string& /*model*/, const PtyLine& /*line*/,
                                   Clock::time_point now) {
  return std::make_unique<PtzHead>(now);
}

}  // namespace sim
