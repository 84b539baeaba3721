// The continuous drive of zoom and focus.
//
// While a drive request stands, each pass of the loop moves the motor by one drive step and
// sleeps for as long as the steps take; the drive ends at the limit or at the stop request. A
// moving zoom takes the focus along its curve. Distances are motor steps. Lens loop's thread
// only; everything here blocks for the time of the moves.
#pragma once

#include <cstdint>

#include "lens/mfz_state.h"

// Largest index of the speed tables.
constexpr int DRIVE_SPEED_INDEX_MAX = 10;
// A zoom move is sent in pieces of at most this many steps, spread over the time of the move.
constexpr int32_t DRIVE_CHUNK_STEPS = 10;

// Index of the speed tables for a command's signed value other than 0, by its size.
int DriveSpeedIndex(int8_t value);

// Steps of one tick from `position`; 0 when nothing is left to move.
int32_t DriveTowardZero(int32_t position, int32_t minimum, int32_t step);
int32_t DriveTowardMaximum(int32_t position, int32_t maximum, int32_t step);

// Microseconds for `chunk` of the `amount` zoom steps of a move that takes as long as `longest`
// steps at `delay_ms` each.
int32_t DriveChunkTimeUs(int32_t longest, int32_t amount, int32_t chunk, float delay_ms);

// Takes the steps of a tick from the lens in use, until a command sets others.
void drive_init();

// Set the steps of a tick from a command's signed value other than 0.
void set_zoom_drive_step(int8_t value);
void set_focus_drive_step(int8_t value);

// Asks for a drive by a command's signed value: above 0 toward the zero end, below 0 toward the
// maximum; 0 ends one that stands.
void drive_request(MfzAxis axis, int8_t value);

// One tick: the focus request, then the zoom request. A stop request is served by saving the
// positions; a zoom stop then starts a focus search.
void drive_step();

// Microseconds after which the next tick is due: MODE_PASS_PACE_US while a request stands,
// otherwise MODE_PASS_NO_WORK.
int64_t drive_wait_us();
