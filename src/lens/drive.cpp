#include "lens/drive.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "lens/focus_search.h"
#include "lens/mfz_state.h"
#include "lens/motor.h"
#include "lens/position.h"
#include "relay/mode_pass.h"
#include "util/sleep.h"

namespace {

constexpr int64_t kUsPerMs = 1000;

using SpeedTable = std::array<int32_t, DRIVE_SPEED_INDEX_MAX + 1>;
constexpr SpeedTable kZoomSteps = {5, 5, 10, 10, 10, 10, 50, 50, 50, 100, 100};
constexpr SpeedTable kFocusSteps = {2, 2, 2, 2, 5, 5, 10, 10, 50, 100, 200};

int32_t StepFor(const SpeedTable& table, int8_t value) {
  return table[static_cast<size_t>(DriveSpeedIndex(value))];
}

// --- Focus -------------------------------------------------------------------------------------

// `steps` is 0 at the limit.
void MoveFocus(int32_t steps) {
  if (steps == 0) return;
  move_lens(MFZ_AXIS_FOCUS, steps);
  CUTIL_SleepUs(MotorTimeUs(abs(steps), g_mfz.DELAY_MS_NORMAL));
}

void StopFocus() {
  g_mfz.focus_req = DRIVE_IDLE;
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
}

void DriveFocus() {
  const int32_t step = g_mfz.focus_drive_step;
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

// Spreads a zoom move over the time of `longest` steps, so that zoom and focus end at the same
// time.
void SendZoomChunks(int32_t amount, int32_t direction, int32_t longest) {
  for (int32_t remaining = amount; remaining > 0;) {
    const int32_t chunk = std::min(remaining, DRIVE_CHUNK_STEPS);
    CUTIL_SleepUs(DriveChunkTimeUs(longest, amount, chunk, g_mfz.DELAY_MS_NORMAL));
    move_lens(MFZ_AXIS_ZOOM, direction * chunk);
    remaining -= chunk;
  }
}

// Moves the zoom by `amount` steps (0 at the limit) in `direction` (1 or -1). Sends the focus to
// its new position first, so that it moves together with the zoom.
void MoveZoom(int32_t amount, int32_t direction) {
  if (amount == 0) return;
  const int32_t zoom = g_mfz.posZoom + direction * amount;
  const int32_t delta = g_mfz.tracking_valid != 0 ? follow_curve(zoom) : 0;
  SendZoomChunks(amount, direction, std::max(abs(delta), amount));
}

void StopZoom() {
  g_mfz.zoom_req = DRIVE_IDLE;
  save_positions(g_mfz.posZoom, g_mfz.posFocus);
  if (!g_mfz.profile->af_after_zoom_stop) return;
  CUTIL_SleepUs(g_mfz.profile->af_wait_ms * kUsPerMs);
  focus_search_start(g_mfz.profile->af_range);
}

void DriveZoom() {
  const int32_t step = g_mfz.zoom_drive_step;
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

// --- Requests ----------------------------------------------------------------------------------

// Returns the request that replaces `request` after a command with `value`.
uint8_t NextRequest(uint8_t request, int8_t value) {
  if (value > 0) return DRIVE_TOWARD_ZERO;
  if (value < 0) return DRIVE_TOWARD_MAXIMUM;
  const bool moving = request == DRIVE_TOWARD_ZERO || request == DRIVE_TOWARD_MAXIMUM;
  return moving ? DRIVE_STOP : DRIVE_IDLE;
}

// --- Waiting -----------------------------------------------------------------------------------

// Returns true if a request has nothing to do: it is idle, or its limit is reached.
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
  g_mfz.zoom_drive_step = StepFor(kZoomSteps, value);
}

void set_focus_drive_step(int8_t value) {
  g_mfz.focus_drive_step = StepFor(kFocusSteps, value);
}

void drive_init() {
  g_mfz.zoom_drive_step = g_mfz.profile->zoom_drive_step;
  g_mfz.focus_drive_step = g_mfz.profile->focus_drive_step;
}

void drive_request(MfzAxis axis, int8_t value) {
  uint8_t* request = axis == MFZ_AXIS_ZOOM ? &g_mfz.zoom_req : &g_mfz.focus_req;
  *request = NextRequest(*request, value);
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
