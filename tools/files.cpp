#include "tools/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/failure.h"
#include "tools/unique_fd.h"

namespace tools {

namespace {

constexpr mode_t kFileMode = 0644;

[[noreturn]] void Fail(const char* act, const std::string& path, int error) {
  throw Failure(EXIT_STATUS_FAILED,
                std::string("cannot ") + act + ' ' + path + ": " + strerror(error));
}

std::vector<uint8_t> ReadAll(int fd, const std::string& name) {
  std::vector<uint8_t> bytes;
  std::array<uint8_t, 1 << 16> piece;
  while (true) {
    const ssize_t count = read(fd, piece.data(), piece.size());
    if (count == 0) return bytes;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Fail("read", name, errno);
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
  }
}

bool WriteAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
  return true;
}

// Writes the new file `path`; removes it on failure.
void Fill(int fd, const std::string& path, std::span<const uint8_t> bytes,
          const std::string& shown_path) {
  const UniqueFd file(fd);
  if (WriteAll(fd, bytes) && fchmod(fd, kFileMode) == 0 && fsync(fd) == 0) return;
  const int error = errno;
  unlink(path.c_str());
  Fail("write", shown_path, error);
}

// A new name survives a loss of power only after its directory was synchronized.
bool SyncDirectoryOf(const std::string& path) {
  const std::string directory = std::filesystem::absolute(path).parent_path();
  const UniqueFd file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return file.Get() >= 0 && fsync(file.Get()) == 0;
}

}  // namespace

std::vector<uint8_t> ReadFile(const std::string& path) {
  // O_NONBLOCK: a pipe without a writer must not block the tool.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.Get() < 0) Fail("open", path, errno);
  struct stat status;
  if (fstat(file.Get(), &status) != 0) Fail("open", path, errno);
  if (!S_ISREG(status.st_mode)) throw Failure(EXIT_STATUS_FAILED, path + " is not a regular file");
  return ReadAll(file.Get(), path);
}

std::vector<uint8_t> ReadStream(const std::string& path) {
  if (path == "-") return ReadAll(STDIN_FILENO, "standard input");
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.Get() < 0) Fail("open", path, errno);
  return ReadAll(file.Get(), path);
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) Fail("write", path, errno);
}

void PlaceFile(const std::string& path, std::span<const uint8_t> bytes) {
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) Fail("write", path, errno);
  Fill(fd, temporary, bytes, path);
  if (rename(temporary.c_str(), path.c_str()) == 0) return;
  const int error = errno;
  unlink(temporary.c_str());
  Fail("write", path, error);
}

void CreateFile(const std::string& path, std::span<const uint8_t> bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
  if (fd < 0) Fail("create", path, errno);
  Fill(fd, path, bytes, path);
  if (SyncDirectoryOf(path)) return;
  const int error = errno;
  unlink(path.c_str());
  Fail("create", path, error);
}

}  // namespace tools
