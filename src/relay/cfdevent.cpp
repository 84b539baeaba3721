#include "relay/cfdevent.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr int kFreeSlot = -1;

bool FitsSet(int fd) {
  return fd >= 0 && fd < FD_SETSIZE;
}

void TraceTable(const CFDEVENT* self, const char* operation, int fd) {
  if (self->debug == 0) return;
  printf("%s %8d, CNT %3d : ", operation, fd, self->reg_count);
  for (const int registered : self->fds) {
    if (registered >= 0) printf("%d ", registered);
  }
  printf("\n");
}

void CFDEVENT_Deinit(CFDEVENT* self) {
  self->reg_count = 0;
}

int CFDEVENT_Add(CFDEVENT* self, int fd) {
  if (self->reg_count == CFDEVENT_MAX_FDS) {
    printf("[%s] rror, reason(_this->reg_count is full [%d])\n", "CFDEVENT_Add", self->reg_count);
    return -1;
  }
  if (fd >= FD_SETSIZE) return -1;
  int slot = -1;
  int* const free_slot =
      std::find_if(std::begin(self->fds), std::end(self->fds), [](int held) { return held < 0; });
  if (free_slot != std::end(self->fds)) {
    *free_slot = fd;
    ++self->reg_count;
    slot = static_cast<int>(free_slot - self->fds);
  }
  TraceTable(self, "ADD", fd);
  return slot;
}

int CFDEVENT_Del(CFDEVENT* self, int fd) {
  int* const end = std::end(self->fds);
  int* const slot = fd < 0 ? end : std::find(std::begin(self->fds), end, fd);
  if (slot != end) {
    std::copy(slot + 1, end, slot);
    *(end - 1) = kFreeSlot;
    --self->reg_count;
  }
  TraceTable(self, "DEL", fd);
  return 0;
}

int CFDEVENT_Wait(CFDEVENT* self, int ms) {
  if (self->reg_count < 1) return CFDEVENT_WAIT_EMPTY;
  FD_ZERO(&self->fdset);
  int largest = -1;
  for (const int fd : self->fds) {
    if (fd < 0) continue;
    FD_SET(fd, &self->fdset);
    largest = std::max(largest, fd);
  }
  timeval limit = {.tv_sec = ms / 1000, .tv_usec = static_cast<suseconds_t>(ms % 1000) * 1000};
  const int ready = select(largest + 1, &self->fdset, nullptr, nullptr, &limit);
  if (ready == 0) return CFDEVENT_WAIT_TIMEOUT;
  if (ready < 0) {
    FD_ZERO(&self->fdset);
    return CFDEVENT_WAIT_FAILED;
  }
  if (self->debug != 0) printf("EVENTIN %d\n", largest);
  return 0;
}

int CFDEVENT_IsSet(CFDEVENT* self, int fd) {
  const bool ready = FitsSet(fd) && FD_ISSET(fd, &self->fdset);
  if (self->debug != 0) printf("DETECT %d-%d\n", fd, ready ? 1 : 0);
  return ready ? 0 : -1;
}

}  // namespace

int CFDEVENT_Init(CFDEVENT* self) {
  self->debug = 0;
  std::fill(std::begin(self->fds), std::end(self->fds), kFreeSlot);
  FD_ZERO(&self->fdset);
  self->reg_count = 0;
  self->Deinit = CFDEVENT_Deinit;
  self->Add = CFDEVENT_Add;
  self->Del = CFDEVENT_Del;
  self->Wait = CFDEVENT_Wait;
  self->IsSet = CFDEVENT_IsSet;
  return 0;
}
