// SendQueue: bytes that a peer cannot accept yet.
//
// A bounded FIFO buffer for one connection. Its memory is mapped when the first byte is queued and
// unmapped when the queue is empty again, so an idle queue costs nothing. An all-zero object is an
// empty queue. Main thread only; nothing here blocks.
#pragma once

#include <cstdint>

// Capacity in bytes. A line at 115200 bits per second delivers 11520 bytes per second, so the queue
// holds 22 seconds of it.
constexpr int SEND_QUEUE_SIZE = 256 * 1024;

struct SendQueue {
  uint8_t* bytes;  // SEND_QUEUE_SIZE bytes, null while the queue is empty
  int first;       // index of the oldest byte
  int count;       // queued bytes, 0 to SEND_QUEUE_SIZE
};

// Appends `len` bytes (not negative). Returns true, or false with the queue unchanged if they do
// not fit or memory is short.
bool SendQueuePut(SendQueue* queue, const uint8_t* bytes, int len);

// Sends as much as the socket `fd` accepts without waiting. Returns the bytes sent, 0 if there is
// no room, or ZSKE_TCP_SEND_CRITICAL if the connection failed.
int SendQueueDrain(SendQueue* queue, int fd);

// Empties the queue and unmaps its memory.
void SendQueueClear(SendQueue* queue);
