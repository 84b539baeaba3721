// What the lens micom sends of its own accord: frames are printed, and its question for the lens
// model is answered. Lens loop's thread only.
#pragma once

#include <cstdint>

// Feeds one received byte to the lens mode's parser; a frame that it completes is printed and
// dispatched.
void i2m_parse_byte(uint8_t byte);

// Prints one received frame's register and value, which ends a line, and answers the micom's
// question for the lens model.
void i2m_dispatch(uint8_t address, uint8_t high, uint8_t low);
