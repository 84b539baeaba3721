// What a daemon holds while it runs, and what it leaves behind.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <utility>

namespace sim {

// Open descriptors of a process; 0 when it is gone.
size_t DescriptorCount(pid_t pid);

// Whether another process of this world holds the lock on the parameter file.
bool IsParamFileLocked();

// Zoom and focus from the positions file; nothing when it is not whole.
std::optional<std::pair<int, int>> ReadWholePositions();

}  // namespace sim
