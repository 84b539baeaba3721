#include "lens/i2m.h"

#include <cstddef>

#include "serial/serial_io.h"

namespace {

// Returns true if `byte` is valid at position `place` of a frame. From the address on, any byte is.
bool Fits(uint8_t place, uint8_t byte) {
  if (place == I2M_SYNC_AT) return byte == I2M_SYNC;
  if (place == I2M_KIND_AT) return byte == I2M_WRITE || byte == I2M_READ;
  return true;
}

}  // namespace

uint8_t I2mChecksum(const I2mFrame& frame) {
  unsigned sum = 0;
  for (size_t i = 0; i < I2M_CHECKSUM_AT; ++i)
    sum += frame[i];
  return static_cast<uint8_t>(sum & 0xFF);
}

I2mFrame I2mBuild(uint8_t kind, uint8_t address, uint8_t high, uint8_t low) {
  I2mFrame frame = {I2M_SYNC, kind, address, high, low, 0};
  frame[I2M_CHECKSUM_AT] = I2mChecksum(frame);
  return frame;
}

bool I2mParserTake(I2mParser* parser, uint8_t byte) {
  if (!Fits(parser->state, byte)) {
    // A sync byte in place of the kind may itself start the frame.
    parser->state = byte == I2M_SYNC ? I2M_KIND_AT : I2M_SYNC_AT;
    return false;
  }
  parser->frame[parser->state++] = byte;
  if (parser->state < I2M_FRAME_SIZE) return false;
  parser->state = I2M_SYNC_AT;
  parser->frame[I2M_CHECKSUM_AT] = I2mChecksum(parser->frame);
  return true;
}

int i2m_send(uint8_t kind, uint8_t address, uint8_t high, uint8_t low) {
  const I2mFrame frame = I2mBuild(kind, address, high, low);
  return SerialSend(SERIAL_ONE_PORT, frame.data(), I2M_FRAME_SIZE);
}

int i2m_write(uint8_t address, uint16_t value) {
  return i2m_send(I2M_WRITE, address, static_cast<uint8_t>(value >> 8),
                  static_cast<uint8_t>(value & 0xFF));
}

int i2m_request(uint8_t address) {
  return i2m_send(I2M_READ, address, 0, 0);
}

bool i2m_read_reply(I2mFrame* reply) {
  return SerialRecv(SERIAL_ONE_PORT, reply->data(), I2M_FRAME_SIZE, I2M_REPLY_TIMEOUT_S) >=
         I2M_FRAME_SIZE;
}
