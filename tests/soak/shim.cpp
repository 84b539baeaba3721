#include "tests/soak/shim.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/unique_fd.h"

namespace soak {
namespace {

constexpr char kPath[] = "/dev/.world/shim";

}  // namespace

Shim::Shim(std::string library) : library_(std::move(library)) {
  const sim::UniqueFd fd(open(kPath, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  void* memory = MAP_FAILED;
  if (fd.IsOpen() && ftruncate(fd.Get(), sizeof(ShimMemory)) == 0) {
    memory = mmap(nullptr, sizeof(ShimMemory), PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0);
  }
  if (memory == MAP_FAILED) throw std::runtime_error("no memory for the shim");
  memory_ = static_cast<ShimMemory*>(memory);
}

Shim::~Shim() {
  munmap(memory_, sizeof(ShimMemory));
}

std::unique_ptr<sim::DaemonProcess> Shim::Launch(const std::string& daemon) const {
  // Without it a sanitizer's runtime insists on being the first library.
  setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
  setenv("LD_PRELOAD", library_.c_str(), 1);
  setenv(SOAK_SHIM, kPath, 1);
  auto process = std::make_unique<sim::DaemonProcess>(daemon, std::vector<std::string>{});
  unsetenv("LD_PRELOAD");
  unsetenv(SOAK_SHIM);
  return process;
}

}  // namespace soak
