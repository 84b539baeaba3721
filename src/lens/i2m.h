// The register protocol of the lens microcontroller (the micom).
//
// Frames of six bytes in both directions. The daemon writes and reads numbered 16-bit registers;
// the micom answers reads and sends requests of its own. A write is not acknowledged. Any thread
// may call i2m_send, because a frame is one write; only the lens loop's thread may call
// i2m_read_reply. Keeps no state between calls.
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
  I2M_READ = 0x41,  // read request; its value is 0
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
  I2M_ADDR_AF_MODE = 0x23,    // write: an AfMode; 1 the daemon drives the lens, 0 the micom does
  I2M_ADDR_MFZ_MODEL = 0x30,  // from the micom: requests the sensor code and the lens model code
};

// Values of the jog registers; they make the micom drive a motor by itself.
enum I2mJog : uint16_t {
  I2M_JOG_NEGATIVE = 0,
  I2M_JOG_POSITIVE = 1,
  I2M_JOG_STOP = 2,
};

// Timeout of a reply, whole seconds.
constexpr int I2M_REPLY_TIMEOUT_S = 1;

using I2mFrame = std::array<uint8_t, I2M_FRAME_SIZE>;

// Returns the sum of the bytes before the checksum, sync byte included, modulo 256.
uint8_t I2mChecksum(const I2mFrame& frame);

// Returns a complete frame with its checksum.
I2mFrame I2mBuild(uint8_t kind, uint8_t address, uint8_t high, uint8_t low);

// Receive parser. An all-zero object waits for a sync byte.
struct I2mParser {
  uint8_t state;   // index of the next byte, 0 to 5
  I2mFrame frame;  // the bytes before it
};

// Parses one byte. Returns true when it completes a frame; parser->frame then holds the frame until
// the next call. The received checksum is not verified but replaced by the computed one.
bool I2mParserTake(I2mParser* parser, uint8_t byte);

// Sends one frame. Blocks until it has left the line. Returns the result of SerialSend.
int i2m_send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low);

// Send a write of the 16-bit `value`, or a read request, as i2m_send does.
int i2m_write(uint8_t address, uint16_t value);
int i2m_request(uint8_t address);

// Waits at most 2 seconds for the reply to a read request. Returns true if six bytes arrived; does
// not check their contents. The parser does not see bytes that are read here.
bool i2m_read_reply(I2mFrame* reply);
