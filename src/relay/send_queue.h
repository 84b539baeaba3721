// SendQueue: bytes that wait for a peer which cannot take them now.
//
// A bounded first-in, first-out buffer of one connection. Its memory is mapped with the first
// byte that waits and given back when none does, so a queue costs nothing while its peer keeps
// up. A queue that is all zero is empty. Main thread only; nothing here blocks.
#pragma once

#include <cstdint>

// Bytes that may wait. A line of 115200 bits per second brings 11520 bytes a second: 22 seconds of
// it.
constexpr int SEND_QUEUE_SIZE = 256 * 1024;

struct SendQueue {
  uint8_t* bytes;  // SEND_QUEUE_SIZE bytes, null while nothing waits
  int first;       // place of the oldest byte
  int count;       // bytes that wait, 0 to SEND_QUEUE_SIZE
};

// Appends `len` bytes (not negative). Returns true, or false with the queue as it was when they do
// not fit or there is no memory.
bool SendQueuePut(SendQueue* queue, const uint8_t* bytes, int len);

// Sends what the peer of the socket `fd` takes at once. Returns the bytes that it took, 0 when it
// has no room, or ZSKE_TCP_SEND_CRITICAL when the connection failed.
int SendQueueDrain(SendQueue* queue, int fd);

// Empties the queue and gives its memory back.
void SendQueueClear(SendQueue* queue);
