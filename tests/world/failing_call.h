// Makes one libc function fail while the object exists, for every caller in this program.
#pragma once

#include <dlfcn.h>

#include <cerrno>

class FailingCall {
 public:
  // The source lists the functions that can fail at its end; "": none. The first `passes` calls
  // succeed.
  explicit FailingCall(const char* name, int error = EPERM, int passes = 0);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
};

// Calls the libc function that a function of this program overrides.
template <typename Result, typename... Arguments>
Result CallNext(const char* name, Arguments... arguments) {
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}
