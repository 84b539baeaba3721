#include "daemon/dispatch.h"

#include <array>

#include "daemon/model_family.h"
#include "lens/control.h"
#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "relay/relay_loop.h"

namespace {

// QB-710 has an entry point of its own that always declines, so the relay serves it.
int DeclineQb710(Rs232Context* /*p_param*/) {
  return -1;
}

struct ModeRow {
  int (*is_of_family)(const char* model);
  int (*run)(Rs232Context* p_param);
  bool may_decline;  // a negative result runs the relay instead
};

// Checked in this order.
constexpr std::array<ModeRow, 4> kModes = {{
    {IsQb710Model, DeclineQb710, true},
    {IsSdModuleModel, camd_cmod_sd, false},
    {IsHdModuleModel, camd_cmod_hd, false},
    {IsMotorizedLensModel, camd_a5s, false},
}};

}  // namespace

void RunMode(Rs232Context* context) {
  for (const ModeRow& mode : kModes) {
    if (mode.is_of_family(context->settings->model) == 0) continue;
    const int result = mode.run(context);
    if (!mode.may_decline || result >= 0) return;
    break;
  }
  RelayLoop(context);
}
