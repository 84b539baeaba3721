#include "cmmap/cmmap.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr mode_t kFileMode = 0644;
constexpr int kSemMode = 0666;
constexpr int kSemFree = 1;

// The fourth argument of semctl. The C library leaves its declaration to the program.
union SemctlArgument {
  int val;
  semid_ds* buf;
  unsigned short* array;
};

// --- The two locks ---------------------------------------------------------------------------

struct flock FirstByte(short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 1;
  return lock;
}

void CMMAP_FileLock(const CMMAP* self) {
  struct flock lock = FirstByte(F_WRLCK);
  int result = 0;
  do {
    result = fcntl(self->fd, F_SETLKW, &lock);
  } while (result < 0 && errno == EINTR);
  if (result < 0) {
    printf("[%s] error fcntl, reason(%s)\n", "CMMAP_FileLock", strerror(errno));
  }
}

void CMMAP_FileUnlock(const CMMAP* self) {
  struct flock lock = FirstByte(F_UNLCK);
  if (fcntl(self->fd, F_SETLK, &lock) < 0) {
    printf("[%s] error fcntl, reason(%s)\n", "CMMAP_FileUnlock", strerror(errno));
  }
}

// Adds `step` to the semaphore; a step of -1 waits until it is free. With SEM_UNDO the system
// reverts the step if this process dies.
void ChangeSemaphore(const CMMAP* self, short step, const char* name) {
  sembuf operation = {.sem_num = 0, .sem_op = step, .sem_flg = SEM_UNDO};
  int result = 0;
  do {
    result = semop(self->sem, &operation, 1);
  } while (result < 0 && errno == EINTR);
  if (result < 0) {
    printf("[%s] error semop, reason(%s, %d)\n", name, strerror(errno), self->sem);
  }
}

int CMMAP_Lock(CMMAP* self) {
  CMMAP_FileLock(self);
  ChangeSemaphore(self, -1, "CMMAP_SemLock");
  return 0;
}

int CMMAP_Unlock(CMMAP* self) {
  ChangeSemaphore(self, 1, "CMMAP_SemUnlock");
  CMMAP_FileUnlock(self);
  return 0;
}

void PrintLockError(int id, int result) {
  printf("[%s] error, reason(%s,%d,%d)\n", "CMMAP_InitLock", strerror(errno), id, result);
}

// Returns true if no process has set the semaphore yet.
bool IsUnset(int sem) {
  return semctl(sem, 0, GETVAL) == 0 && semctl(sem, 0, GETPID) == 0;
}

// Sets the semaphore to its free value if its creator died before doing so; otherwise every process
// would wait for it forever. A running creator needs microseconds between the two calls.
void FreeAbandonedSet(int sem) {
  constexpr int kLooks = 100;
  constexpr useconds_t kLookUs = 1'000;
  for (int look = 0; look < kLooks; ++look) {
    if (!IsUnset(sem)) return;
    usleep(kLookUs);
  }
  SemctlArgument free_value = {.val = kSemFree};
  semctl(sem, 0, SETVAL, free_value);
}

// Creates the semaphore set, or attaches to an existing one.
void CMMAP_InitLock(CMMAP* self) {
  self->sem = semget(self->key, 1, IPC_CREAT | IPC_EXCL | kSemMode);
  if (self->sem >= 0) {
    self->created = 1;
    SemctlArgument free_value = {.val = kSemFree};
    if (const int result = semctl(self->sem, 0, SETVAL, free_value); result < 0) {
      PrintLockError(self->sem, result);
      // Without an initial value the set would block every other process forever.
      semctl(self->sem, 0, IPC_RMID);
      self->sem = -1;
      self->created = 0;
    }
    return;
  }
  if (errno == EEXIST) self->sem = semget(self->key, 1, 0);
  if (self->sem < 0) {
    PrintLockError(-1, 0);
    self->sem = -1;
    return;
  }
  FreeAbandonedSet(self->sem);
}

void CMMAP_DeinitLock(const CMMAP* self) {
  if (semctl(self->sem, 0, IPC_RMID) < 0) {
    printf("[%s] error semctl, reason(%s)\n", "CMMAP_DeinitLock", strerror(errno));
  }
}

// --- Opening ---------------------------------------------------------------------------------

bool IsMapped(const CMMAP* self) {
  return self->map != nullptr && self->map != MAP_FAILED;
}

// If memory is short, nothing is written; IsLongEnough then refuses the file.
void FillWithZeros(int fd, int size) {
  const size_t length = static_cast<size_t>(size);
  void* zeros = calloc(1, length);
  if (zeros == nullptr) return;
  (void)!write(fd, zeros, length);
  free(zeros);
}

int OpenFile(const char* path, int mode) {
  if (mode != CMMAP_CREATE && mode != CMMAP_OPEN) {
    errno = EINVAL;
    return -1;
  }
  const int create = mode == CMMAP_CREATE ? O_CREAT | O_TRUNC : 0;
  return open(path, O_RDWR | O_CLOEXEC | create, kFileMode);
}

// An access to a mapped page past the end of the file raises SIGBUS.
bool IsLongEnough(int fd, int size) {
  struct stat file;
  return fstat(fd, &file) == 0 && file.st_size >= size;
}

void PrintTooShort(const char* name, const char* action, int size) {
  printf("[%s] error %s, reason(file shorter than %d bytes)\n", name, action, size);
}

// --- The other slots -------------------------------------------------------------------------

bool CanCopy(const CMMAP* self, int length) {
  return IsMapped(self) && length >= 0 && length <= self->size;
}

// Copies under the locks. The length is checked again, because another process may have truncated
// the file.
int CopyLocked(CMMAP* self, void* destination, const void* source, int length, const char* name) {
  if (!CanCopy(self, length)) return -1;
  CMMAP_Lock(self);
  const bool is_long_enough = IsLongEnough(self->fd, length);
  if (is_long_enough) memcpy(destination, source, static_cast<size_t>(length));
  CMMAP_Unlock(self);
  if (is_long_enough) return 0;
  PrintTooShort(name, "copy", length);
  return -1;
}

int CMMAP_Read(CMMAP* self, void* destination, int length) {
  return CopyLocked(self, destination, self->map, length, "CMMAP_Read");
}

int CMMAP_Write(CMMAP* self, const void* source, int length) {
  return CopyLocked(self, self->map, source, length, "CMMAP_Write");
}

int CMMAP_Deinit(CMMAP* self) {
  if (self->created == 1) {
    CMMAP_DeinitLock(self);
    self->created = 0;
  }
  if (IsMapped(self)) munmap(self->map, static_cast<size_t>(self->size));
  self->map = nullptr;
  if (self->fd < 0) return self->fd;
  const int result = close(self->fd);
  self->fd = -1;
  return result;
}

}  // namespace

int CMMAP_Init(CMMAP* self, const char* path, int key, int mode, int size) {
  *self = {.fd = -1,
           .map = nullptr,
           .size = size,
           .created = 0,
           .key = key,
           .sem = -1,
           .Deinit = CMMAP_Deinit,
           .Read = CMMAP_Read,
           .Write = CMMAP_Write,
           .Lock = CMMAP_Lock,
           .Unlock = CMMAP_Unlock};
  self->fd = OpenFile(path, mode);
  if (self->fd < 0) {
    printf("[%s] error open, reason(%s)\n", "CMMAP_Init", strerror(errno));
    return -1;
  }
  if (mode == CMMAP_CREATE && size != 0) FillWithZeros(self->fd, size);
  if (!IsLongEnough(self->fd, size)) {
    PrintTooShort("CMMAP_Init", "open", size);
    return -1;
  }
  CMMAP_InitLock(self);
  self->map =
      mmap(nullptr, static_cast<size_t>(size), PROT_READ | PROT_WRITE, MAP_SHARED, self->fd, 0);
  if (self->map == MAP_FAILED) {
    printf("[%s] error mmap, reason(%s)\n", "CMMAP_Init", strerror(errno));
    return -1;
  }
  return 0;
}
