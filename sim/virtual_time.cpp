#include "sim/virtual_time.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace sim {

void PreloadVirtualTime([[maybe_unused]] char** argv) {
#ifdef VTIME_PATH
  if (VirtualTime() != nullptr) return;
  std::filesystem::create_symlink(VTIME_PATH, kClockLibrary);
  setenv("LD_PRELOAD", kClockLibrary, 1);
  // By default, a sanitizer's runtime must be the first library.
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 0);
  execv("/proc/self/exe", argv);
  throw std::runtime_error(std::string("cannot restart: ") + strerror(errno));
#endif
}

const VtimeControl* VirtualTime() {
  static const auto* const control =
      static_cast<const VtimeControl*>(dlsym(RTLD_DEFAULT, "vtime_control"));
  return control;
}

bool IsTimeVirtual() {
  return VirtualTime() != nullptr && VirtualTime()->is_running();
}

}  // namespace sim
