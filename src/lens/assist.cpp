#include "lens/assist.h"

#include <algorithm>
#include <cstdio>

#include "lens/focus_search.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "util/sleep.h"

namespace {

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerS = 1'000'000;

void PrintPositions() {
  printf("posZoom=%d, posFocus=%d\n", g_mfz.posZoom, g_mfz.posFocus);
}

}  // namespace

void reset_zf() {
  const MfzProfile& profile = *g_mfz.profile;
  focus_search_stop();
  set_motor_speed(profile.reset_speed);
  printf("[Reset ZF] Focus:%dstep, Zoom:%dstep \n", profile.focus_maximum, profile.zoom_maximum);
  mfz_move(MFZ_AXIS_FOCUS, -profile.focus_maximum);
  mfz_move(MFZ_AXIS_ZOOM, -profile.zoom_maximum);
  const int32_t steps = std::max(profile.focus_maximum, profile.zoom_maximum);
  const int32_t wait_ms = MotorTimeMs(steps, g_mfz.DELAY_MS_RESET);
  CUTIL_SleepUs(wait_ms * kUsPerMs);
  printf("   sleep time: %d[step] * %4.2f[mS] = %d[mS]\n", steps,
         static_cast<double>(g_mfz.DELAY_MS_RESET), wait_ms);
  set_zero_positions();
  printf("   posZoom=%d, posFocus=%d\n", g_mfz.posZoom, g_mfz.posFocus);
  set_motor_speed(profile.normal_speed);
}

void assist_focus() {
  reset_zf();
  if (g_mfz.tracking_valid == 0) {
    save_positions(g_mfz.posZoom, g_mfz.posFocus);
    PrintPositions();
    return;
  }
  printf("Driving 'assist_focus()'\n");
  const int32_t delta = follow_curve(g_mfz.posZoom);
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  CUTIL_SleepUs(MotorTimeUs(delta, g_mfz.DELAY_MS_NORMAL));
  printf("done\n");
  CUTIL_SleepUs(kUsPerS);
  printf("start AF\n");
  focus_search_start(g_mfz.profile->af_range);
  PrintPositions();
}
