#include "sim/leftovers.h"

#include <fcntl.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "cmmap/param_block.h"
#include "lens/position.h"
#include "sim/device.h"
#include "tools/unique_fd.h"

namespace sim {

size_t DescriptorCount(pid_t pid) {
  std::error_code gone;
  const std::string path = "/proc/" + std::to_string(pid) + "/fd";
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path, gone), {}));
}

bool IsParamFileLocked() {
  const tools::UniqueFd fd(open(PARAM_BLOCK_PATH, O_RDWR | O_CLOEXEC));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  return fcntl(fd.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

std::optional<std::pair<int, int>> ReadWholePositions() {
  const std::string text = ReadTextFile(MFZ_CONF_PATH);
  int zoom = 0;
  int focus = 0;
  const int fields = sscanf(text.c_str(), "zoom_position=%d focus_position=%d", &zoom, &focus);
  if (fields != 2 || text != PositionsText(zoom, focus)) return std::nullopt;
  return std::pair(zoom, focus);
}

}  // namespace sim
