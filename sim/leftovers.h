// The resources that a running daemon holds and that a dead one may leave behind.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <utility>

namespace sim {

// Number of open descriptors of a process; 0 if it no longer exists.
size_t DescriptorCount(pid_t pid);

// True if another process of this world holds the lock on the parameter file.
bool IsParamFileLocked();

// Zoom and focus from the positions file; nullopt if it is incomplete.
std::optional<std::pair<int, int>> ReadWholePositions();

}  // namespace sim
