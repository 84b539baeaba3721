// Linked into the daemon of a coverage build only: it writes its counters when it ends, and after
// a reboot it does not end by itself but waits for the system to end it.
extern "C" {
#include <gcov.h>
}

int WrapPause() asm("__wrap_pause");
int RealPause() asm("__real_pause");

int WrapPause() {
  __gcov_dump();
  return RealPause();
}
