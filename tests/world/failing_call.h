// One function of libc that fails while an object of this class lives, whoever in this program
// calls it.
#pragma once

#include <dlfcn.h>

#include <cerrno>

class FailingCall {
 public:
  // The functions that can fail stand at the end of the source; "" for none. The first `passes`
  // calls go well.
  explicit FailingCall(const char* name, int error = EPERM, int passes = 0);
  ~FailingCall();
  FailingCall(const FailingCall&) = delete;
  FailingCall& operator=(const FailingCall&) = delete;
};

// Calls the function of libc that one of this program stands before.
template <typename Result, typename... Arguments>
Result CallNext(const char* name, Arguments... arguments) {
  return reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name))(arguments...);
}
