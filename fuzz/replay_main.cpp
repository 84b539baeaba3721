// Runs a fuzz target over files, without libFuzzer: TARGET FILE-OR-DIRECTORY... Ends with status 0
// when every property held.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/target.h"
#include "sim/device.h"
#include "sim/world.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesOf(int count, char** arguments) {
  std::vector<fs::path> files;
  for (int i = 0; i < count; ++i) {
    if (!fs::is_directory(arguments[i])) {
      files.emplace_back(arguments[i]);
      continue;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(arguments[i]))
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

struct Seed {
  std::string path;
  std::string bytes;
};

// Read before the world hides some of the machine's directories.
std::vector<Seed> ReadSeeds(const std::vector<fs::path>& files) {
  std::vector<Seed> seeds;
  seeds.reserve(files.size());
  for (const fs::path& file : files)
    seeds.push_back({file.string(), sim::ReadTextFile(file.string())});
  return seeds;
}

// The daemon's own messages go nowhere.
int Replay(const std::vector<Seed>& seeds) {
  const int report = dup(STDERR_FILENO);
  if (freopen("/dev/null", "w", stdout) == nullptr) return EXIT_FAILURE;
  if (freopen("/dev/null", "w", stderr) == nullptr) return EXIT_FAILURE;
  for (const Seed& seed : seeds) {
    dprintf(report, "%s\n", seed.path.c_str());
    const std::vector<uint8_t> bytes(seed.bytes.begin(), seed.bytes.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  dprintf(report, "%zu inputs replayed\n", seeds.size());
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<Seed> seeds = ReadSeeds(FilesOf(argc - 1, argv + 1));
  if (seeds.empty()) {
    fprintf(stderr, "%s: no inputs\n", argv[0]);
    return EXIT_FAILURE;
  }
  return sim::RunInWorld([&seeds] { return Replay(seeds); });
}
