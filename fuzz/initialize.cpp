// Restarts a libFuzzer program in a private world.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "sim/world.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

constexpr char kInWorld[] = "RS232_FUZZ_IN_WORLD";

}  // namespace

int LLVMFuzzerInitialize(int* /*argc*/, char*** argv) {
  if (getenv(kInWorld) != nullptr) return 0;
  char* const* arguments = *argv;
  const int status = sim::RunInWorld([arguments] {
    setenv(kInWorld, "1", 1);
    execv("/proc/self/exe", arguments);
    perror("cannot restart in the private world");
    return EXIT_FAILURE;
  });
  fflush(nullptr);
  _exit(status);
}
