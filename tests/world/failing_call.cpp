#include "tests/world/failing_call.h"

#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <string_view>

namespace {

constinit std::string_view g_name;
int g_error = 0;
int g_passes = 0;

template <typename Result, typename... Arguments>
Result FailOrCall(const char* name, Arguments... arguments) {
  if (g_name == name && g_passes-- <= 0) {
    errno = g_error;
    return -1;
  }
  return CallNext<Result>(name, arguments...);
}

}  // namespace

FailingCall::FailingCall(const char* name, int error, int passes) {
  g_name = name;
  g_error = error;
  g_passes = passes;
}

FailingCall::~FailingCall() {
  g_name = {};
}

extern "C" {

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  return FailOrCall<int>("accept4", fd, address, length, flags);
}

int access(const char* path, int mode) noexcept {
  return FailOrCall<int>("access", path, mode);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  return FailOrCall<int>("bind", fd, address, length);
}

int fsync(int fd) {
  return FailOrCall<int>("fsync", fd);
}

int listen(int fd, int backlog) noexcept {
  return FailOrCall<int>("listen", fd, backlog);
}

int msync(void* memory, size_t size, int flags) {
  return FailOrCall<int>("msync", memory, size, flags);
}

ssize_t read(int fd, void* bytes, size_t size) {
  return FailOrCall<ssize_t>("read", fd, bytes, size);
}

int semctl(int set, int number, int command, ...) noexcept {
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return FailOrCall<int>("semctl", set, number, command, argument);
}

int semget(key_t key, int count, int flags) noexcept {
  return FailOrCall<int>("semget", key, count, flags);
}

ssize_t sendto(int fd, const void* bytes, size_t size, int flags, const sockaddr* to,
               socklen_t to_length) {
  return FailOrCall<ssize_t>("sendto", fd, bytes, size, flags, to, to_length);
}

int setsockopt(int fd, int level, int option, const void* value, socklen_t size) noexcept {
  return FailOrCall<int>("setsockopt", fd, level, option, value, size);
}

int socket(int domain, int type, int protocol) noexcept {
  return FailOrCall<int>("socket", domain, type, protocol);
}

}  // extern "C"
