#include "lens/drive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "lens/focus_search.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "relay/mode_pass.h"
#include "util/sleep.h"

namespace {

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerS = 1'000'000;

using SpeedTable = std::array<int32_t, DRIVE_SPEED_INDEX_MAX + 1>;
constexpr SpeedTable kZoomSteps = {5, 5, 10, 10, 10, 10, 50, 50, 50, 100, 100};
constexpr SpeedTable kFocusSteps = {2, 2, 2, 2, 5, 5, 10, 10, 50, 100, 200};

int32_t StepFor(const SpeedTable& table, int8_t value) {
  return table[static_cast<size_t>(DriveSpeedIndex(value))];
}

void PrintPositions() {
  printf("posZoom=%d, posFocus=%d\n", g_mfz.posZoom, g_mfz.posFocus);
}

// --- Focus -------------------------------------------------------------------------------------

// `steps` is 0 at the limit.
void MoveFocus(int32_t steps) {
  if (steps == 0) return;
  mfz_move(MFZ_AXIS_FOCUS, steps);
  g_mfz.posFocus = PositionAfter(g_mfz.posFocus, steps);
  CUTIL_SleepUs(MotorTimeUs(abs(steps), g_lens.DELAY_MS_NORMAL));
}

void StopFocus() {
  g_mfz.focus_req = DRIVE_IDLE;
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
}

void DriveFocus() {
  const int32_t step = g_lens.profile.focus_drive_step;
  switch (g_mfz.focus_req) {
    case DRIVE_TOWARD_ZERO:
      MoveFocus(-DriveTowardZero(g_mfz.posFocus, g_mfz.focus_minimum, step));
      break;
    case DRIVE_TOWARD_MAXIMUM:
      MoveFocus(DriveTowardMaximum(g_mfz.posFocus, g_mfz.focus_maximum, step));
      break;
    case DRIVE_STOP:
      StopFocus();
      break;
    default:
      break;
  }
}

// --- Zoom --------------------------------------------------------------------------------------

// Spreads a zoom move over the time of `longest` steps, so that zoom and focus end together.
void SendZoomChunks(int32_t amount, int32_t direction, int32_t longest) {
  for (int32_t remaining = amount; remaining > 0;) {
    const int32_t chunk = std::min(remaining, DRIVE_CHUNK_STEPS);
    CUTIL_SleepUs(DriveChunkTimeUs(longest, amount, chunk, g_lens.DELAY_MS_NORMAL));
    mfz_move(MFZ_AXIS_ZOOM, direction * chunk);
    remaining -= chunk;
  }
}

// Moves the zoom by `amount`, 0 at the limit, toward `direction` (1 or -1). The focus is sent to
// its new place first and travels while the zoom moves.
void MoveZoom(int32_t amount, int32_t direction) {
  if (amount == 0) return;
  const int32_t zoom = g_mfz.posZoom + direction * amount;
  const int32_t delta = g_mfz.tracking_valid != 0 ? track_focus(zoom, g_mfz.posFocus) : 0;
  g_mfz.posFocus = PositionAfter(g_mfz.posFocus, delta);
  g_mfz.posZoom = static_cast<int16_t>(zoom);
  SendZoomChunks(amount, direction, std::max(abs(delta), amount));
}

void StopZoom() {
  g_mfz.zoom_req = DRIVE_IDLE;
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  if (!g_lens.profile.af_after_zoom_stop) return;
  CUTIL_SleepUs(g_lens.profile.af_wait_ms * kUsPerMs);
  focus_search_start(g_lens.profile.af_range);
}

void DriveZoom() {
  const int32_t step = g_lens.profile.zoom_drive_step;
  switch (g_mfz.zoom_req) {
    case DRIVE_TOWARD_ZERO:
      MoveZoom(DriveTowardZero(g_mfz.posZoom, g_mfz.zoom_minimum, step), -1);
      break;
    case DRIVE_TOWARD_MAXIMUM:
      MoveZoom(DriveTowardMaximum(g_mfz.posZoom, g_mfz.zoom_maximum, step), 1);
      break;
    case DRIVE_STOP:
      StopZoom();
      break;
    default:
      break;
  }
}

// --- Waiting -----------------------------------------------------------------------------------

// Whether a request has nothing to do: there is none, or its limit is reached.
bool IsAtRest(uint8_t request, int32_t position, int32_t maximum) {
  return request == DRIVE_IDLE || (request == DRIVE_TOWARD_ZERO && position <= 0) ||
         (request == DRIVE_TOWARD_MAXIMUM && position >= maximum);
}

}  // namespace

int DriveSpeedIndex(int8_t value) {
  return std::min((abs(value) + 1) * 10 / 128, DRIVE_SPEED_INDEX_MAX);
}

int32_t DriveTowardZero(int32_t position, int32_t minimum, int32_t step) {
  if (position <= 0) return 0;
  return position < minimum + step ? position : step;
}

int32_t DriveTowardMaximum(int32_t position, int32_t maximum, int32_t step) {
  if (position >= maximum) return 0;
  return std::min(step, maximum - position);
}

int32_t DriveChunkTimeUs(int32_t longest, int32_t amount, int32_t chunk, float delay_ms) {
  const float step_ms = static_cast<float>(longest) * delay_ms / static_cast<float>(amount);
  return MotorTimeUs(chunk, step_ms);
}

void set_zoom_drive_step(int8_t value) {
  g_lens.profile.zoom_drive_step = StepFor(kZoomSteps, value);
}

void set_focus_drive_step(int8_t value) {
  g_lens.profile.focus_drive_step = StepFor(kFocusSteps, value);
}

void drive_step() {
  DriveFocus();
  DriveZoom();
}

int64_t drive_wait_us() {
  const bool at_rest = IsAtRest(g_mfz.focus_req, g_mfz.posFocus, g_mfz.focus_maximum) &&
                       IsAtRest(g_mfz.zoom_req, g_mfz.posZoom, g_mfz.zoom_maximum);
  return at_rest ? MODE_PASS_NO_WORK : MODE_PASS_PACE_US;
}

void assist_focus() {
  reset_zf();
  if (g_mfz.tracking_valid == 0) {
    save_positions(g_mfz.posZoom, g_mfz.posFocus);
    PrintPositions();
    return;
  }
  printf("Driving 'assist_focus()'\n");
  const int32_t delta = track_focus(g_mfz.posZoom, g_mfz.posFocus);
  g_mfz.posFocus = PositionAfter(g_mfz.posFocus, delta);
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  CUTIL_SleepUs(MotorTimeUs(delta, g_lens.DELAY_MS_NORMAL));
  printf("done\n");
  CUTIL_SleepUs(kUsPerS);
  printf("start AF\n");
  focus_search_start(g_lens.profile.af_range);
  PrintPositions();
}
