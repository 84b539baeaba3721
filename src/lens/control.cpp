#include "lens/control.h"

#include <cstdio>

#include "relay/mode_pass.h"

namespace {

// The number that the line of a missing parameter carries. It is part of the text.
constexpr int kNullParameterLine = 734;

constexpr ModeHooks kHooks = {.periodic = nullptr,
                              .camera_control = nullptr,
                              .command = nullptr,
                              .serial_bytes = nullptr,
                              .sends_serial_data = false};

}  // namespace

int camd_a5s(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_a5s", kNullParameterLine);
    return -1;
  }
  printf("[%s] error, reason(lens control is not available, raw serial data only)\n", "camd_a5s");
  ModePass pass;
  ModePassInit(&pass, p_param, &kHooks, nullptr);
  pass.Run(&pass);
  return 0;
}
