// In: a positions file.
// Holds: either both positions are taken, each the number that its line has, or none; saving them
// gives a file from which the same are taken.
#include <string>

#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/target.h"
#include "lens/position.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file(data, data + size);
  fuzz::PutFile(MFZ_CONF_PATH, file);
  int16_t zoom = 77;
  int16_t focus = 77;
  const int result = load_positions(&zoom, &focus);
  FUZZ_CHECK(result == 1 || (result == -1 && zoom == 0 && focus == 0));

  fuzz::PutFile(MFZ_CONF_PATH, "");
  save_positions(zoom, focus);
  const bool is_known = zoom != -1 && focus != -1;
  int16_t saved_zoom = 77;
  int16_t saved_focus = 77;
  FUZZ_CHECK(load_positions(&saved_zoom, &saved_focus) == (is_known ? 1 : -1));
  FUZZ_CHECK(!is_known || (saved_zoom == zoom && saved_focus == focus));
  return 0;
}
