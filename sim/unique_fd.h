// Owner of a descriptor: tools/unique_fd.h.
#pragma once

#include "tools/unique_fd.h"

namespace sim {

using tools::UniqueFd;

}  // namespace sim
