#include "lens/position.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "util/conf_file.h"

namespace {

constexpr int32_t kNoPosition = -1;

// Returns false if the key is missing or its value is too long.
bool LoadPosition(const char* key, int32_t* position) {
  char text[MFZ_CONF_VALUE_MAX + 2];  // one character more, to detect a value that is too long
  if (CUTIL_GetConfValue(MFZ_CONF_PATH, key, text, sizeof(text)) != 0) return false;
  if (strlen(text) > MFZ_CONF_VALUE_MAX) return false;
  *position = PositionFromText(text);
  return true;
}

void SavePosition(const char* key, int16_t position) {
  char text[MFZ_CONF_VALUE_MAX + 1];
  snprintf(text, sizeof(text), "%d", position);
  if (CUTIL_SetConfValue(MFZ_CONF_PATH, key, text) != 0) printf("fail in saving %s\n", key);
}

void CountSteps(MfzAxis axis, int32_t steps) {
  int16_t* position = axis == MFZ_AXIS_ZOOM ? &g_mfz.posZoom : &g_mfz.posFocus;
  *position = PositionAfter(*position, steps);
}

}  // namespace

bool TrackingFocus(std::span<const ZfEntry> table, int32_t zoom, int32_t* focus) {
  if (zoom < table[0].zoom) {
    *focus = table[0].focus;
    return true;
  }
  const int32_t spacing = table[1].zoom - table[0].zoom;
  const size_t lower = static_cast<size_t>(zoom / spacing);
  if (lower >= table.size()) return false;
  const size_t upper = std::min(lower + 1, table.size() - 1);
  *focus = table[lower].focus +
           (zoom - table[lower].zoom) * (table[upper].focus - table[lower].focus) / spacing;
  return true;
}

int32_t PositionFromText(const char* text) {
  return static_cast<int32_t>(strtoll(text, nullptr, 10));
}

void set_limits() {
  const MfzProfile& profile = *g_mfz.profile;
  g_mfz.focus_minimum = 0;
  g_mfz.focus_maximum = profile.focus_maximum;
  g_mfz.tracking_valid = profile.zftable.size() >= TRACKING_MIN_ENTRIES ? 1 : 0;
  if (g_mfz.tracking_valid == 0) {
    printf("invalid zftable[] !!! at least 2 entries are required\n");
    g_mfz.zoom_minimum = 0;
    g_mfz.zoom_maximum = profile.zoom_maximum;
    return;
  }
  g_mfz.zoom_minimum = profile.zftable.front().zoom;
  g_mfz.zoom_maximum = profile.zftable.back().zoom;
  printf("zftable_len=%d, zoom:%d~%d, focus:%d~%d\n", static_cast<int>(profile.zftable.size()),
         g_mfz.zoom_minimum, g_mfz.zoom_maximum, g_mfz.focus_minimum, g_mfz.focus_maximum);
}

int32_t track_focus(int32_t zoom, int32_t focus) {
  int32_t target = 0;
  if (!TrackingFocus(g_mfz.profile->zftable, zoom, &target)) return 0;
  target = std::max(std::min(target, g_mfz.focus_maximum), g_mfz.focus_minimum);
  const int32_t delta = target - focus;
  mfz_move(MFZ_AXIS_FOCUS, delta);
  return delta;
}

void move_lens(MfzAxis axis, int32_t steps) {
  mfz_move(axis, steps);
  CountSteps(axis, steps);
}

int32_t follow_curve(int32_t zoom) {
  const int32_t delta = track_focus(zoom, g_mfz.posFocus);
  CountSteps(MFZ_AXIS_FOCUS, delta);
  return delta;
}

void set_zero_positions() {
  g_mfz.posFocus = 0;
  g_mfz.posZoom = 0;
}

int load_positions(int16_t* zoom, int16_t* focus) {
  *zoom = 0;
  *focus = 0;
  int32_t stored_zoom = 0;
  int32_t stored_focus = 0;
  if (!LoadPosition(MFZ_CONF_ZOOM_KEY, &stored_zoom)) return -1;
  if (!LoadPosition(MFZ_CONF_FOCUS_KEY, &stored_focus)) return -1;
  if (stored_zoom == kNoPosition || stored_focus == kNoPosition) return -1;
  *zoom = PositionAfter(0, stored_zoom);
  *focus = PositionAfter(0, stored_focus);
  return 1;
}

void save_positions(int16_t zoom, int16_t focus) {
  SavePosition(MFZ_CONF_ZOOM_KEY, zoom);
  SavePosition(MFZ_CONF_FOCUS_KEY, focus);
  printf("zoom=%4d, focus=%4d  --> saved\n", zoom, focus);
}

void restore_positions() {
  if (load_positions(&g_mfz.posZoom, &g_mfz.posFocus) == 1) {
    printf("restored posZoom=%d, posFocus=%d\n", g_mfz.posZoom, g_mfz.posFocus);
    printf("  (CAUTION) if the positions are not reliable, click 'F' button !!!\n");
  } else {
    printf("!!! Click 'F' button to reset zoom & focus positions !!!\n");
  }
}
