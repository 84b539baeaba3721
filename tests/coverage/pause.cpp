// Only in the coverage build: writes the counters before pause. After a reboot the daemon pauses
// until it is killed, so it never reaches the normal exit that writes them.
extern "C" {
#include <gcov.h>
}

int WrapPause() asm("__wrap_pause");
int RealPause() asm("__real_pause");

int WrapPause() {
  __gcov_dump();
  return RealPause();
}
