// Where zoom and focus stand: limits, moves, the curve between them, and the positions kept
// across restarts.
//
// The motors report nothing. A position is the count of all steps sent since both motors last ran
// into their zero ends, and whoever moves a motor adds the steps to it. Lens loop's thread only.
#pragma once

#include <cstdint>
#include <span>

#include "lens/tracking_tables.h"

// The file of the positions, which must exist to be written, and its keys.
constexpr char MFZ_CONF_PATH[] = "/etc/mfz.conf";
constexpr char MFZ_CONF_ZOOM_KEY[] = "zoom_position";
constexpr char MFZ_CONF_FOCUS_KEY[] = "focus_position";
// Characters of a stored position; a longer one is not taken.
constexpr int MFZ_CONF_VALUE_MAX = 15;

// Entries that a curve must have.
constexpr size_t TRACKING_MIN_ENTRIES = 2;

enum MfzAxis : int {
  MFZ_AXIS_FOCUS = 0,
  MFZ_AXIS_ZOOM = 1,
  MFZ_AXIS_COUNT,
};

// `position` moved by `steps`, in 16 bits.
constexpr int16_t PositionAfter(int16_t position, int32_t steps) {
  return static_cast<int16_t>(
      static_cast<uint16_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(steps)));
}

// The 16-bit value that moves a motor by `steps`, counted the other way round for an inverted one.
constexpr uint16_t MoveValue(int32_t steps, bool inverted) {
  const uint32_t value = static_cast<uint32_t>(steps);
  return static_cast<uint16_t>((inverted ? 0U - value : value) & 0xFFFFU);
}

// Puts the focus that `table` (at least TRACKING_MIN_ENTRIES, evenly spaced) gives for `zoom`
// into *focus: linear between two entries, cut toward the lower one's; flat below the first and
// for one spacing above the last. Returns false, with *focus as it was, further up.
bool TrackingFocus(std::span<const ZfEntry> table, int32_t zoom, int32_t* focus);

// Takes a stored position from its decimal text; a number beyond 32 bits wraps round.
int32_t PositionFromText(const char* text);

// Sets the limits and the tracking flag from the lens in use, and prints them.
void set_limits();

// Microseconds after which a motor has certainly made all steps of its last move: a step's time for
// each of them, from when the move was sent. 0 when it is at rest.
int64_t mfz_move_left_us(MfzAxis axis);

// Moves a motor by `steps`: one frame. Changes no position. The micom drops what is left of a
// move when the next one comes; a motor that may not be at rest is waited for.
void mfz_move(MfzAxis axis, int32_t steps);

// Moves the focus from `focus` onto the curve at `zoom`, within the focus limits, and returns
// the steps sent, which the caller adds to the position. A move of 0 steps is sent as well.
// Above the curve's end nothing is sent and 0 returned.
int32_t track_focus(int32_t zoom, int32_t focus);

// Stops a running focus search and drives both motors into their zero ends; both positions are
// 0 then. Blocks for the longer of the two travels and two changes of the step rate.
void reset_zf();

// Reads both positions. Returns 1, or -1 with both set to 0 when one is missing, too long or -1.
int load_positions(int16_t* zoom, int16_t* focus);

// Stores both positions and prints them. A failure is printed and changes nothing else.
void save_positions(int16_t zoom, int16_t focus);

// Takes the stored positions over, or 0 and 0 where there are none, and prints which. Moves
// nothing: the lens is taken to be where the file says.
void restore_positions();
