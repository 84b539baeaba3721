#include "lens/piris.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include "ipc/cicomm.h"
#include "lens/camera_query.h"
#include "lens/i2m.h"
#include "lens/mfz_state.h"
#include "util/bytes.h"
#include "util/cthread.h"
#include "util/sleep.h"

namespace {

constexpr int64_t kUsPerMs = 1000;
constexpr int kIdlePauseMs = 5;
constexpr int kStepPauseMs = 100;
constexpr int kSettlePauseMs = 3000;

// Coarse moves of the full travel and of half of it.
constexpr int kFullTravelSteps = PIRIS_TRAVEL / PIRIS_COARSE_STEP;
constexpr int kHalfTravelSteps = kFullTravelSteps / 2;

// Channel of the worker's queries; too large for the stack.
CICOMM g_exposure_channel;

void SleepMs(int ms) {
  CUTIL_SleepUs(ms * kUsPerMs);
}

// --- Moves and settings of the worker ------------------------------------------------------------

// Released: the worker may no longer use the mode's line and channel. Sending: it is using one of
// them. Each thread sets its own flag before it reads the other's, so at least one of them sees the
// other's.
std::atomic<bool> g_is_released = false;
std::atomic<bool> g_is_sending = false;

// Returns true if the worker may send; it must then call EndSend.
bool BeginSend() {
  g_is_sending = true;
  if (!g_is_released) return true;
  g_is_sending = false;
  return false;
}

void EndSend() {
  g_is_sending = false;
}

void MoveByWorker(int32_t steps) {
  if (!BeginSend()) return;
  PirisMove(steps);
  EndSend();
}

void CoarseMove(int count, int32_t steps) {
  for (int i = 0; i < count; ++i) {
    SleepMs(PIRIS_COARSE_PAUSE_MS);
    MoveByWorker(steps);
    g_mfz.iris_position = std::min(g_mfz.iris_position + steps, PIRIS_TRAVEL);
  }
}

void MakeExposure(PirisExposure setting) {
  if (g_mfz.exposure_in_force == setting) return;
  piris_set_exposure(setting);
  g_mfz.exposure_in_force = setting;
}

// --- The worker's sleep ------------------------------------------------------------------------

CTHREAD g_worker;

// Readable if there may be something to do. Opened and closed by the worker: -1 before its start
// and after its end.
std::atomic<int> g_wake_event = -1;
// Set before a stop: an idle worker then polls its state until it is stopped.
std::atomic<bool> g_is_ending = false;

void Wake() {
  if (g_wake_event >= 0) eventfd_write(g_wake_event, 1);
}

// Sleeps until Wake is called, or returns at once if it was called before. Without an event, or if
// poll fails, it only pauses.
void AwaitWork() {
  pollfd event = {.fd = g_wake_event, .events = POLLIN, .revents = 0};
  if (g_is_ending || event.fd < 0 || poll(&event, 1, -1) != 1) {
    SleepMs(kIdlePauseMs);
    return;
  }
  eventfd_t wake_ups = 0;
  eventfd_read(event.fd, &wake_ups);
}

// --- A step ------------------------------------------------------------------------------------

// Returns true if the request was raised, and clears it.
bool TakeRequest(std::atomic<int32_t>* request) {
  return request->exchange(0, std::memory_order_relaxed) == 1;
}

void HoldOpen() {
  if (!TakeRequest(&g_mfz.piris_manual_req)) {
    AwaitWork();
    return;
  }
  printf("<<piris_manual_req>>\n");
  piris_open_full();
  MakeExposure(PIRIS_EXPOSURE_OPEN);
}

// Moves the iris to half of its travel, the start position of the regulation.
void ServeAutoRequest() {
  if (!TakeRequest(&g_mfz.piris_auto_req)) return;
  printf("<<piris_auto_req>>\n");
  piris_open_full();
  printf("close half\n");
  piris_close_half();
  printf("wait 3sec\n");
  SleepMs(kSettlePauseMs);
}

// A failed query counts as a deviation of 0, inside the dead band.
void Regulate() {
  SleepMs(kStepPauseMs);
  PirisReading reading = {.level = 0, .deviation = 0};
  piris_query_exposure(&reading.level, &reading.deviation);
  const PirisOrder order = PirisRegulate(&g_mfz.piris, reading);
  MakeExposure(order.exposure);
  if (order.steps != 0) MoveByWorker(order.steps);
}

// --- The worker's routines ---------------------------------------------------------------------

int StartWork(void* /*arg*/) {
  g_wake_event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return piris_start();
}

int StepWork(void* /*arg*/) {
  return piris_step();
}

void EndWork(void* /*arg*/) {
  const int event = g_wake_event.exchange(-1);
  if (event >= 0) close(event);
}

}  // namespace

void PirisMove(int32_t steps) {
  i2m_write(I2M_ADDR_PIRIS_STEP, static_cast<uint16_t>(static_cast<uint32_t>(steps) & 0xFFFFU));
}

void piris_configure(int32_t antiflicker, int32_t sensor_supported) {
  const int32_t automatic = antiflicker == 1 ? 1 : 0;
  g_mfz.piris_auto_req.store(automatic, std::memory_order_relaxed);
  g_mfz.piris_manual_req.store(1 - automatic, std::memory_order_relaxed);
  g_mfz.g_antiflk_enable.store(antiflicker, std::memory_order_release);
  g_mfz.g_sensor_supported.store(sensor_supported, std::memory_order_release);
  Wake();
}

void piris_start_worker() {
  CTHREAD_Init(&g_worker, nullptr, StartWork, StepWork, EndWork);
  g_is_ending = false;
  piris_claim();
  g_worker.Start(&g_worker);
}

void piris_stop_worker() {
  g_is_ending = true;
  Wake();
  g_worker.Stop(&g_worker);
  piris_release();
}

void piris_claim() {
  g_is_released = false;
}

int piris_start() {
  g_mfz.iris_position = PIRIS_TRAVEL;
  return 0;
}

int piris_step() {
  // Acquire: the requests were raised before these flags were set.
  if (g_mfz.g_sensor_supported.load(std::memory_order_acquire) == 0) {
    AwaitWork();
  } else if (g_mfz.g_antiflk_enable.load(std::memory_order_acquire) == 0) {
    HoldOpen();
  } else {
    ServeAutoRequest();
    Regulate();
  }
  return 0;
}

void piris_release() {
  constexpr int kLookAgainMs = 1;
  g_is_released = true;
  while (g_is_sending)
    SleepMs(kLookAgainMs);
}

void piris_open_full() {
  CoarseMove(kFullTravelSteps, PIRIS_COARSE_STEP);
}

void piris_close_half() {
  CoarseMove(kHalfTravelSteps, -PIRIS_COARSE_STEP);
}

int piris_query_exposure(int32_t* level, int32_t* deviation) {
  const CameraAnswer answer = CameraAsk(&g_exposure_channel, CAMERA_QUERY_EXPOSURE);
  if (answer == CameraAnswer::kNoChannel) return -1;
  if (answer == CameraAnswer::kValid) {
    const uint8_t* record = g_exposure_channel.GetData(&g_exposure_channel);
    *level = static_cast<int32_t>(LoadLe32(record + CAMERA_QUERY_LEVEL_AT));
    *deviation = static_cast<int32_t>(LoadLe32(record + CAMERA_QUERY_DEVIATION_AT));
  }
  return 0;
}

void piris_set_exposure(int32_t setting) {
  if (g_mfz.command == nullptr || !BeginSend()) return;
  CameraSetExposure(g_mfz.command, setting);
  EndSend();
}
