// Runs a fuzz target on all files of directories, without libFuzzer: TARGET DIRECTORY... Status 0
// means that every check held.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/target.h"
#include "sim/device.h"
#include "sim/world.h"

namespace {

// Contents by path.
using Seeds = std::map<std::string, std::string>;

// Called before the world hides some of the machine's directories.
Seeds ReadSeeds(std::span<char* const> paths) {
  Seeds seeds;
  for (const std::string path : paths) {
    for (const auto& entry : std::filesystem::directory_iterator(path))
      seeds[entry.path()] = sim::ReadTextFile(entry.path());
  }
  return seeds;
}

// Discards the daemon's messages.
int Replay(const Seeds& seeds) {
  if (freopen("/dev/null", "w", stdout) == nullptr) return EXIT_FAILURE;
  if (freopen("/dev/null", "w", stderr) == nullptr) return EXIT_FAILURE;
  for (const auto& [path, bytes] : seeds) {
    dprintf(fuzz::g_report_fd, "%s\n", path.c_str());
    // A copy of the exact size, so that sanitizers detect reads beyond the end.
    const std::vector<uint8_t> data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  dprintf(fuzz::g_report_fd, "%zu inputs replayed\n", seeds.size());
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  const Seeds seeds = ReadSeeds(std::span(argv, static_cast<size_t>(argc)).subspan(1));
  if (seeds.empty()) {
    fprintf(stderr, "%s: no inputs\n", argv[0]);
    return EXIT_FAILURE;
  }
  return sim::RunInWorld([&seeds] { return Replay(seeds); });
}
