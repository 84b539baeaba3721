// In: the contents of a file for CUTIL_LoadFile.
// Holds: the buffer holds exactly the file; a file that is not there leaves the size alone.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/target.h"
#include "util/load_file.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr char kPath[] = "/tmp/fuzz_image";
  fuzz::PutFile(kPath, std::string(data, data + size));
  int loaded = -1;
  uint8_t* buffer = CUTIL_LoadFile(kPath, &loaded);
  FUZZ_CHECK(buffer != nullptr && loaded == static_cast<int>(size));
  FUZZ_CHECK(size == 0 || memcmp(buffer, data, size) == 0);
  free(buffer);

  unlink(kPath);
  FUZZ_CHECK(CUTIL_LoadFile(kPath, &loaded) == nullptr && loaded == static_cast<int>(size));
  return 0;
}
