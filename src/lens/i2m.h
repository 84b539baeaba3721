// The register protocol of the lens microcontroller (the micom).
//
// Frames of six bytes, the same both ways: the daemon writes and reads numbered 16-bit registers,
// the micom answers reads and sends requests of its own. A write is not acknowledged and complete
// once it is handed to the line. i2m_send may be called from any thread, since a frame is one
// write; i2m_read_reply belongs to the lens loop's thread. Nothing is kept.
#pragma once

#include <array>
#include <cstdint>

// Byte positions of a frame.
enum I2mOffset : int {
  I2M_SYNC_AT = 0,
  I2M_KIND_AT = 1,
  I2M_ADDRESS_AT = 2,
  I2M_HIGH_AT = 3,  // high byte of the value
  I2M_LOW_AT = 4,
  I2M_CHECKSUM_AT = 5,  // sum of all bytes before it, modulo 256
  I2M_FRAME_SIZE = 6,
};

constexpr uint8_t I2M_SYNC = 0xA5;

enum I2mKind : uint8_t {
  I2M_WRITE = 0x40,
  I2M_READ = 0x41,  // a request; its value is 0
};

// Registers. Step counts are signed 16-bit two's complement.
enum I2mAddress : uint8_t {
  I2M_ADDR_VERSION = 0x01,      // read: variant flag (bit 15), major (14-8), minor (7-0)
  I2M_ADDR_MOTOR_SPEED = 0x02,  // write: speed code; read: sign and size of the prescaler offset
  I2M_ADDR_FOCUS_JOG = 0x0A,    // write: an I2mJog
  I2M_ADDR_PIRIS_STEP = 0x0B,   // write: P-iris steps, positive opens
  I2M_ADDR_ZOOM_MOVE = 0x0C,    // write: zoom steps
  I2M_ADDR_FOCUS_MOVE = 0x0D,   // write: focus steps
  I2M_ADDR_ZOOM_JOG = 0x20,     // write: an I2mJog
  I2M_ADDR_FOCUS_VALUE = 0x21,  // write: focus measure of the image
  I2M_ADDR_FOCUS_VALUE_REQ = 0x22,  // from the micom: 1 starts the focus measures, 0 stops them
  I2M_ADDR_AF_MODE = 0x23,          // write: 1 the daemon drives the lens, 0 the micom does
  I2M_ADDR_MFZ_MODEL = 0x30,        // from the micom: asks for sensor code and lens model code
};

// Values of the jog registers, by which the micom drives a motor itself.
enum I2mJog : uint16_t {
  I2M_JOG_NEGATIVE = 0,
  I2M_JOG_POSITIVE = 1,
  I2M_JOG_STOP = 2,
};

// Whole seconds that a reply is waited for.
constexpr int I2M_REPLY_TIMEOUT_S = 1;

using I2mFrame = std::array<uint8_t, I2M_FRAME_SIZE>;

// Sum of the bytes before the checksum, the sync byte included.
uint8_t I2mChecksum(const I2mFrame& frame);

// The frame with its checksum.
I2mFrame I2mBuild(uint8_t kind, uint8_t address, uint8_t high, uint8_t low);

// Receive parser. A zeroed one hunts for a sync byte.
struct I2mParser {
  uint8_t state;   // index of the byte that comes next, 0 to 5
  I2mFrame frame;  // bytes before it
};

// Takes one byte. Returns true when it completes a frame, which then stands in parser->frame
// until the next call. The checksum that came is not verified; the computed one stands in its
// place.
bool I2mParserTake(I2mParser* parser, uint8_t byte);

// Sends one frame. Blocks until it has left the line. Returns what SerialSend returns.
int i2m_send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low);

// Sends a write of the 16-bit `value`, and a read request. As i2m_send.
int i2m_write(uint8_t address, uint16_t value);
int i2m_request(uint8_t address);

// Reads the reply to a read request, at most 2 seconds long. Returns true when six bytes came;
// nothing but their number is checked. Bytes taken here never reach the parser.
bool i2m_read_reply(I2mFrame* reply);
