// Positions of zoom and focus: limits, the tracking curve, and the positions stored across
// restarts.
//
// The motors report nothing. A position is the sum of all steps sent since both motors were last
// driven to their zero ends. Lens loop's thread only.
#pragma once

#include <cstdint>
#include <span>

#include "lens/mfz_state.h"
#include "lens/tracking_tables.h"

// The file of the stored positions (it must exist, or saving fails) and its keys.
constexpr char MFZ_CONF_PATH[] = "/etc/mfz.conf";
constexpr char MFZ_CONF_ZOOM_KEY[] = "zoom_position";
constexpr char MFZ_CONF_FOCUS_KEY[] = "focus_position";
// Longest text of a stored position, characters; loading a longer one fails.
constexpr int MFZ_CONF_VALUE_MAX = 15;

// Smallest number of entries in a curve.
constexpr size_t TRACKING_MIN_ENTRIES = 2;

// Returns `position` moved by `steps`, modulo 16 bits.
constexpr int16_t PositionAfter(int16_t position, int32_t steps) {
  return static_cast<int16_t>(
      static_cast<uint16_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(steps)));
}

// Looks up the focus position for `zoom` in `table` (at least TRACKING_MIN_ENTRIES entries, evenly
// spaced) and stores it in *focus. Interpolates linearly and truncates toward the value of the
// lower entry. A `zoom` below the table gets the value of the first entry, one less than one
// spacing above the table that of the last entry. For a larger `zoom`, returns false and leaves
// *focus unchanged.
bool TrackingFocus(std::span<const ZfEntry> table, int32_t zoom, int32_t* focus);

// Parses a stored position from its decimal text; keeps the low 32 bits of a larger number.
int32_t PositionFromText(const char* text);

// Sets the limits and the tracking flag for the lens in use, and prints them.
void set_limits();

// Moves the focus from `focus` onto the curve at `zoom`, within the focus limits. Returns the steps
// sent; the caller adds them to the position. Sends a move of 0 steps, too. If `zoom` is one
// spacing or more above the last entry, it sends nothing and returns 0.
int32_t track_focus(int32_t zoom, int32_t focus);

// Moves a motor as mfz_move does and adds the steps to its position.
void move_lens(MfzAxis axis, int32_t steps);

// Moves the focus from its current position onto the curve at `zoom`, as track_focus does, and adds
// the steps to its position. Returns the steps.
int32_t follow_curve(int32_t zoom);

// Sets both positions to 0, with the motors at their zero ends.
void set_zero_positions();

// Loads both positions. Returns 1, or -1 with both set to 0 if one is missing, too long or -1.
int load_positions(int16_t* zoom, int16_t* focus);

// Stores both positions and prints them. Prints a failure and otherwise ignores it.
void save_positions(int16_t zoom, int16_t focus);

// Loads the stored positions, or 0 and 0 if there are none, and prints the result. Moves nothing:
// it assumes that the lens is where the file says.
void restore_positions();
