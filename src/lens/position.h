// Where zoom and focus stand: limits, the curve between them, and the positions kept across
// restarts.
//
// The motors report nothing. A position is the count of all steps sent since both motors last ran
// into their zero ends. Lens loop's thread only.
#pragma once

#include <cstdint>
#include <span>

#include "lens/mfz_state.h"
#include "lens/tracking_tables.h"

// The file of the positions, which must exist to be written, and its keys.
constexpr char MFZ_CONF_PATH[] = "/etc/mfz.conf";
constexpr char MFZ_CONF_ZOOM_KEY[] = "zoom_position";
constexpr char MFZ_CONF_FOCUS_KEY[] = "focus_position";
// Characters of a stored position; a longer one is not taken.
constexpr int MFZ_CONF_VALUE_MAX = 15;

// Entries that a curve must have.
constexpr size_t TRACKING_MIN_ENTRIES = 2;

// `position` moved by `steps`, in 16 bits.
constexpr int16_t PositionAfter(int16_t position, int32_t steps) {
  return static_cast<int16_t>(
      static_cast<uint16_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(steps)));
}

// Puts the focus that `table` (at least TRACKING_MIN_ENTRIES, evenly spaced) gives for `zoom`
// into *focus: linear between two entries, cut toward the lower one's; flat below the first and
// for one spacing above the last. Returns false, with *focus as it was, further up.
bool TrackingFocus(std::span<const ZfEntry> table, int32_t zoom, int32_t* focus);

// Takes a stored position from its decimal text; a number beyond 32 bits wraps round.
int32_t PositionFromText(const char* text);

// Sets the limits and the tracking flag from the lens in use, and prints them.
void set_limits();

// Moves the focus from `focus` onto the curve at `zoom`, within the focus limits, and returns
// the steps sent, which the caller adds to the position. A move of 0 steps is sent as well.
// Above the curve's end nothing is sent and 0 returned.
int32_t track_focus(int32_t zoom, int32_t focus);

// Moves a motor as mfz_move does, and counts the steps in its position.
void move_lens(MfzAxis axis, int32_t steps);

// Moves the focus from where it stands onto the curve at `zoom` as track_focus does, and counts the
// steps, which it returns.
int32_t follow_curve(int32_t zoom);

// Both motors stand at their zero ends.
void set_zero_positions();

// Reads both positions. Returns 1, or -1 with both set to 0 when one is missing, too long or -1.
int load_positions(int16_t* zoom, int16_t* focus);

// Stores both positions and prints them. A failure is printed and changes nothing else.
void save_positions(int16_t zoom, int16_t focus);

// Takes the stored positions over, or 0 and 0 where there are none, and prints which. Moves
// nothing: the lens is taken to be where the file says.
void restore_positions();
