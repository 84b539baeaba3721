// The continuous drive of zoom and focus.
//
// While a drive request is active, each pass of the loop moves the motor by one drive step and
// sleeps until the steps are done. At the limit the request stays active but moves nothing. A
// moving zoom moves the focus along its curve. Distances are motor steps. Lens loop's thread only;
// drive_step blocks while the motors move.
#pragma once

#include <cstdint>

#include "lens/mfz_state.h"

// Largest index of the speed tables.
constexpr int DRIVE_SPEED_INDEX_MAX = 10;
// A zoom move is sent in chunks of at most this many steps, spread over the time of the move.
constexpr int32_t DRIVE_CHUNK_STEPS = 10;

// Returns the index into the speed tables for the magnitude of a command's value (not 0).
int DriveSpeedIndex(int8_t value);

// Return the number of steps of one tick from `position`, never negative; 0 if nothing is left to
// move. The caller applies the direction. Toward zero, if `position` is less than `minimum` +
// `step`, the result is `position` itself: the tick ends at 0, even if `minimum` is larger. Toward
// the maximum, it ends at `maximum`.
int32_t DriveTowardZero(int32_t position, int32_t minimum, int32_t step);
int32_t DriveTowardMaximum(int32_t position, int32_t maximum, int32_t step);

// Returns the time in microseconds for `chunk` of the `amount` zoom steps of a move. The whole move
// takes as long as `longest` steps at `delay_ms` each.
int32_t DriveChunkTimeUs(int32_t longest, int32_t amount, int32_t chunk, float delay_ms);

// Sets the steps per tick to those of the lens in use. Commands change them later.
void drive_init();

// Set the steps per tick from the magnitude of a command's value (not 0).
void set_zoom_drive_step(int8_t value);
void set_focus_drive_step(int8_t value);

// Requests a drive by a command's signed value: positive toward the zero end, negative toward the
// maximum; 0 stops an active drive.
void drive_request(MfzAxis axis, int8_t value);

// Runs one tick: the focus request, then the zoom request. A stop request saves the positions. If
// the lens profile says so, a zoom stop also pauses for `af_wait_ms` and starts a focus search.
void drive_step();

// Returns the microseconds until the next tick is due: MODE_PASS_PACE_US while a request has
// something to do, otherwise MODE_PASS_NO_WORK.
int64_t drive_wait_us();
