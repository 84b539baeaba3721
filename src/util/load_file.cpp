#include "util/load_file.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "util/regular_file.h"

namespace {

constexpr char kName[] = "CUTIL_LoadFile";

// The low half of a pointer, as the message shows it.
unsigned PointerWord(const void* pointer) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

// Length of an open file, whose position goes back to its start; -1 when it has none.
long FileLength(FILE* file) {
  if (fseek(file, 0, SEEK_END) != 0) return -1;
  const long length = ftell(file);
  return fseek(file, 0, SEEK_SET) == 0 ? length : -1;
}

// A cleared buffer; null when there is no memory or the length is not one of a file to load.
uint8_t* Allocate(long length) {
  if (length < 0 || length > CUTIL_LOAD_MAX) return nullptr;
  return static_cast<uint8_t*>(calloc(static_cast<size_t>(std::max(length, 1L)), 1));
}

uint8_t* Load(FILE* file, int* size_out) {
  const long length = FileLength(file);
  const int size = static_cast<int>(std::min<long>(length, INT_MAX));
  uint8_t* buffer = Allocate(length);
  if (buffer == nullptr) {
    fprintf(stderr, "[%s] Error line[%d], reason(malloc, size is %d)\n", kName, __LINE__, size);
    return nullptr;
  }
  const int count = static_cast<int>(fread(buffer, 1, static_cast<size_t>(size), file));
  if (count < size) {
    fprintf(stderr, "[%s] Error line[%d], reason(firmware file read, %d vs %d)\n", kName, __LINE__,
            count, size);
    free(buffer);
    return nullptr;
  }
  *size_out = size;
  return buffer;
}

}  // namespace

uint8_t* CUTIL_LoadFile(const char* path, int* size_out) {
  if (path == nullptr || size_out == nullptr) {
    fprintf(stderr, "[%s] Error line[%d], reason(filename[%x] or filesize[%x] is NULL)\n", kName,
            __LINE__, PointerWord(path), PointerWord(size_out));
    return nullptr;
  }
  // A link could lead to a file that is nobody's business behind the line.
  FILE* file = CUTIL_OpenRegular(path, O_NOFOLLOW);
  if (file == nullptr) {
    fprintf(stderr, "[%s] Error line[%d], reason('fp' is NULL, filename'%s')\n", kName, __LINE__,
            path);
    return nullptr;
  }
  uint8_t* buffer = Load(file, size_out);
  fclose(file);
  return buffer;
}
