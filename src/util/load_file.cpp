#include "util/load_file.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "util/regular_file.h"

namespace {

constexpr char kName[] = "CUTIL_LoadFile";

// The low 32 bits of a pointer; the message prints it so.
unsigned PointerWord(const void* pointer) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

// Returns the length of an open file and rewinds it, or -1 if the file cannot seek.
long FileLength(FILE* file) {
  if (fseek(file, 0, SEEK_END) != 0) return -1;
  const long length = ftell(file);
  return fseek(file, 0, SEEK_SET) == 0 ? length : -1;
}

// Returns a zeroed buffer, or null if memory is short or the length is negative or too large.
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
  // A symbolic link could expose any file of the device to the peer on the line.
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
