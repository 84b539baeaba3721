// Unsolicited frames of the lens micom: prints them and answers its query for the lens model. Lens
// loop's thread only.
#pragma once

#include <cstdint>

// Passes one received byte to the lens mode's parser; prints and dispatches a completed frame.
void i2m_parse_byte(uint8_t byte);

// Prints the register and value of a received frame and a line feed (i2m_parse_byte prints the
// beginning of the line), and answers the micom's query for the lens model.
void i2m_dispatch(uint8_t address, uint8_t high, uint8_t low);
