#include "relay/send_queue.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include "net/tcp_socket.h"

namespace {

bool MapMemory(SendQueue* queue) {
  if (queue->bytes != nullptr) return true;
  void* memory =
      mmap(nullptr, SEND_QUEUE_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return false;
  queue->bytes = static_cast<uint8_t*>(memory);
  return true;
}

// Returns the bytes from `place` to the end of the memory, at most `len`.
int InOnePiece(int place, int len) {
  return std::min(len, SEND_QUEUE_SIZE - place);
}

}  // namespace

bool SendQueuePut(SendQueue* queue, const uint8_t* bytes, int len) {
  if (len > SEND_QUEUE_SIZE - queue->count || !MapMemory(queue)) return false;
  const int place = (queue->first + queue->count) % SEND_QUEUE_SIZE;
  const int head = InOnePiece(place, len);
  memcpy(queue->bytes + place, bytes, static_cast<size_t>(head));
  memcpy(queue->bytes, bytes + head, static_cast<size_t>(len - head));
  queue->count += len;
  return true;
}

int SendQueueDrain(SendQueue* queue, int fd) {
  int taken = 0;
  while (queue->count > 0) {
    const int piece = InOnePiece(queue->first, queue->count);
    const int sent = ZSK_SendTCPNow(fd, queue->bytes + queue->first, piece);
    if (sent < 0) return sent;
    queue->first = (queue->first + sent) % SEND_QUEUE_SIZE;
    queue->count -= sent;
    taken += sent;
    if (sent < piece) return taken;
  }
  SendQueueClear(queue);
  return taken;
}

void SendQueueClear(SendQueue* queue) {
  if (queue->bytes != nullptr) munmap(queue->bytes, SEND_QUEUE_SIZE);
  *queue = {};
}
