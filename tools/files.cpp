#include "tools/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/failure.h"
#include "tools/format.h"
#include "tools/unique_fd.h"

namespace tools {

namespace {

constexpr mode_t kFileMode = 0644;

UniqueFd OpenToRead(const std::string& path, int flags = 0) {
  UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | flags));
  if (!file.IsOpen()) FailOn("open", path);
  return file;
}

std::vector<uint8_t> ReadAll(int fd, const std::string& name) {
  std::vector<uint8_t> bytes;
  std::array<uint8_t, 1 << 16> piece;
  while (const ssize_t count = read(fd, piece.data(), piece.size())) {
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) FailOn("read", name);
    bytes.insert(bytes.end(), piece.begin(), piece.begin() + count);
  }
  return bytes;
}

// Writes the bytes to the medium and closes the file.
bool Fill(int fd, std::span<const uint8_t> bytes) {
  const UniqueFd file(fd);
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<size_t>(count));
  }
  return fchmod(fd, kFileMode) == 0 && fsync(fd) == 0;
}

// A new name survives a loss of power only once its directory is on the medium.
bool SyncDirectoryOf(const std::string& path) {
  const std::string directory = std::filesystem::absolute(path).parent_path();
  const UniqueFd file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return file.IsOpen() && fsync(file.Get()) == 0;
}

// Removes an incomplete file and throws.
[[noreturn]] void Discard(const std::string& file, const char* act, const std::string& path) {
  const int error = errno;
  unlink(file.c_str());
  errno = error;
  FailOn(act, path);
}

}  // namespace

void FailOn(const char* act, const std::string& path) {
  throw Failure(Format("cannot %s %s: %s", act, path.c_str(), strerror(errno)));
}

std::vector<uint8_t> ReadFile(const std::string& path) {
  // Do not block on a pipe without a writer.
  const UniqueFd file = OpenToRead(path, O_NONBLOCK);
  struct stat status;
  if (fstat(file.Get(), &status) != 0) FailOn("open", path);
  if (!S_ISREG(status.st_mode)) throw Failure(path + " is not a regular file");
  return ReadAll(file.Get(), path);
}

std::vector<uint8_t> ReadStream(const std::string& path) {
  if (path == "-") return ReadAll(STDIN_FILENO, "standard input");
  return ReadAll(OpenToRead(path).Get(), path);
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) FailOn("write", path);
}

void PlaceFile(const std::string& path, std::span<const uint8_t> bytes) {
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) FailOn("write", path);
  const bool is_placed = Fill(fd, bytes) && rename(temporary.c_str(), path.c_str()) == 0;
  if (!is_placed) Discard(temporary, "write", path);
}

void CreateFile(const std::string& path, std::span<const uint8_t> bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
  if (fd < 0) FailOn("create", path);
  if (!Fill(fd, bytes) || !SyncDirectoryOf(path)) Discard(path, "create", path);
}

}  // namespace tools
