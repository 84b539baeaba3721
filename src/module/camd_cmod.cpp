#include "module/camd_cmod.h"

#include <cstdio>

#include "relay/mode_pass.h"

namespace {

constexpr ModeHooks kHooks = {.periodic = nullptr,
                              .camera_control = nullptr,
                              .command = nullptr,
                              .serial_bytes = nullptr,
                              .sends_serial_data = true};

void ServeRawLine(const Rs232Context* context, const char* name) {
  printf("[%s] error, reason(module control is not available, raw serial data only)\n", name);
  ModePass pass;
  ModePassInit(&pass, context, &kHooks, nullptr);
  pass.Run(&pass);
}

}  // namespace

int camd_cmod_sd(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_cmod_sd", __LINE__);
    return -1;
  }
  ServeRawLine(p_param, "camd_cmod_sd");
  return 0;
}

int camd_cmod_hd(Rs232Context* p_param) {
  if (p_param == nullptr) {
    printf("[%s] Error line[%d], reason('p_param' is NULL)\n", "camd_cmod_hd", __LINE__);
    return -1;
  }
  ServeRawLine(p_param, "camd_cmod_hd");
  return 0;
}
