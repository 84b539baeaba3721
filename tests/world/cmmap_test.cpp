#include "cmmap/cmmap.h"

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>

#include "tests/support.h"
#include "tests/world/failing_call.h"

static std::function<void()> g_on_semop;

extern "C" int semop(int set, sembuf* operations, size_t count) noexcept {
  if (g_on_semop) g_on_semop();
  return CallNext<int>("semop", set, operations, count);
}

namespace {

using std::string;
using support::OnStdout;

constexpr char kPath[] = "/var/nvt/test.dat";
constexpr int kKey = 823;
constexpr int kSize = 10000;

// The semaphore set of the key; -1 if none exists.
int SemaphoreSet() {
  return semget(kKey, 1, 0);
}

int SemaphoreValue() {
  return semctl(SemaphoreSet(), 0, GETVAL);
}

void MakeSemaphore(int value) {
  ASSERT_EQ(semctl(semget(kKey, 1, IPC_CREAT | IPC_EXCL | 0666), 0, SETVAL, value), 0);
}

// Starts a process that takes the locks and holds them until it dies.
pid_t TakeLocks() {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  CMMAP map;
  CMMAP_Init(&map, kPath, kKey, CMMAP_OPEN, kSize);
  map.Lock(&map);
  pause();
  _exit(0);
}

bool HasLocks(pid_t pid) {
  return sim::WaitUntil([&] { return semctl(SemaphoreSet(), 0, GETPID) == pid; });
}

void End(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

class Map : public testing::Test {
 protected:
  // The file is longer than the map.
  Map() { sim::WriteTextFile(kPath, string(kSize, 'a') + "behind"); }
  ~Map() override {
    if (map_.Deinit != nullptr) map_.Deinit(&map_);
    if (SemaphoreSet() >= 0) semctl(SemaphoreSet(), 0, IPC_RMID);
    unlink(kPath);
  }

  string Init(int mode = CMMAP_OPEN, int size = kSize, const char* path = kPath) {
    return OnStdout([&] { return CMMAP_Init(&map_, path, kKey, mode, size); });
  }
  string Deinit() {
    return OnStdout([this] { return map_.Deinit(&map_); });
  }
  string Read(void* destination, int length) {
    return OnStdout([&] { return map_.Read(&map_, destination, length); });
  }
  string Write(const void* source, int length) {
    return OnStdout([&] { return map_.Write(&map_, source, length); });
  }

  CMMAP map_ = {};
};

// It also creates a semaphore that every user may access.
TEST_F(Map, CreatesAZeroFilledFile) {
  const mode_t mask = umask(0);
  for (const bool existing : {true, false}) {
    if (!existing) unlink(kPath);
    EXPECT_EQ(Init(CMMAP_CREATE), "0 ");
    EXPECT_EQ(sim::ReadTextFile(kPath), string(kSize, '\0'));
    EXPECT_EQ(SemaphoreValue(), 1);
    semid_ds set = {};
    semctl(map_.sem, 0, IPC_STAT, &set);
    EXPECT_EQ(set.sem_perm.mode & 0777, 0666);
    EXPECT_EQ(Deinit(), "0 ");
    EXPECT_EQ(SemaphoreSet(), -1);
  }
  umask(mask);
  EXPECT_EQ(std::filesystem::status(kPath).permissions(), std::filesystem::perms{0644});
}

TEST_F(Map, KeepsAnExistingSemaphore) {
  MakeSemaphore(5);
  EXPECT_EQ(Init(), "0 ");
  EXPECT_EQ(Deinit(), "0 ");
  EXPECT_EQ(SemaphoreValue(), 5);
}

TEST_F(Map, PrintsWhyItCannotOpen) {
  const std::tuple<const char*, int, int, string, const char*> rows[] = {
      {"/var/none/x.dat", CMMAP_CREATE, kSize, "open, reason(No such file or directory)\n", "-1 "},
      {"/var/nvt", CMMAP_OPEN, kSize, "open, reason(Is a directory)\n", "-1 "},
      {kPath, CMMAP_OPEN, kSize + 7, "open, reason(file shorter than 10007 bytes)\n", "0 "},
      {kPath, CMMAP_CREATE, 0, "mmap, reason(Invalid argument)\n", "0 "},
  };
  const auto descriptors = support::OpenDescriptors();
  for (const auto& [path, mode, size, said, deinit] : rows) {
    EXPECT_EQ(Init(mode, size, path), "-1 [CMMAP_Init] error " + said);
    char byte = 'x';
    EXPECT_EQ(Read(&byte, 1), "-1 ");
    EXPECT_EQ(Write(&byte, 1), "-1 ");
    EXPECT_EQ(Deinit(), deinit);
    EXPECT_EQ(SemaphoreSet(), -1);
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST_F(Map, CopiesWithinItsBounds) {
  ASSERT_EQ(Init(), "0 ");
  for (const int length : {0, 1, 17, kSize, kSize + 1, -1}) {
    memset(map_.map, 'a', kSize);
    const bool fits = length >= 0 && length <= kSize;
    const char* const result = fits ? "0 " : "-1 ";
    const size_t copied = fits ? static_cast<size_t>(length) : 0;
    string buffer(kSize + 1, 'b');
    EXPECT_EQ(Read(buffer.data(), length), result);
    EXPECT_EQ(buffer, string(copied, 'a') + string(kSize + 1 - copied, 'b')) << length;
    EXPECT_EQ(Write(string(kSize + 1, 'c').data(), length), result);
    EXPECT_EQ(sim::ReadTextFile(kPath),
              string(copied, 'c') + string(kSize - copied, 'a') + "behind")
        << length;
    EXPECT_EQ(SemaphoreValue(), 1);
  }
}

// It locks the first byte of the file.
TEST_F(Map, LocksTheFileWheneverItChangesTheSemaphore) {
  ASSERT_EQ(Init(), "0 ");
  const tools::UniqueFd file(open(kPath, O_RDWR | O_CLOEXEC));
  int changes = 0;
  g_on_semop = [&] {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(fcntl(file.Get(), F_OFD_GETLK, &lock), 0);
    EXPECT_EQ(std::tuple(lock.l_type, lock.l_start, lock.l_len), std::tuple(F_WRLCK, 0, 1));
    ++changes;
  };
  char byte = 0;
  EXPECT_EQ(Read(&byte, 1), "0 ");
  g_on_semop = nullptr;
  EXPECT_EQ(changes, 2);
}

// The file was truncated by an earlier holder of the locks.
TEST_F(Map, CopiesNothingFromATruncatedFile) {
  ASSERT_EQ(Init(), "0 ");
  const string kept(4096, 'a');
  g_on_semop = [] { EXPECT_EQ(truncate(kPath, 4096), 0); };
  string buffer(kSize, 'b');
  EXPECT_EQ(Read(buffer.data(), kSize),
            "-1 [CMMAP_Read] error copy, reason(file shorter than 10000 bytes)\n");
  EXPECT_EQ(Write(buffer.data(), kSize),
            "-1 [CMMAP_Write] error copy, reason(file shorter than 10000 bytes)\n");
  EXPECT_EQ(buffer, string(kSize, 'b'));
  EXPECT_EQ(sim::ReadTextFile(kPath), kept);
  EXPECT_EQ(Read(buffer.data(), 4096), "0 ");
  g_on_semop = nullptr;
  EXPECT_EQ(SemaphoreValue(), 1);
}

class RealTimeMap : public Map {};

// A process that dies releases its locks.
TEST_F(RealTimeMap, WaitsForTheFileAndThenForTheSemaphore) {
  MakeSemaphore(0);
  const auto waits = [] { return semctl(SemaphoreSet(), 0, GETNCNT); };
  const pid_t holder = TakeLocks();
  EXPECT_TRUE(sim::WaitUntil([&] { return waits() == 1; }));
  const pid_t waiting = TakeLocks();
  EXPECT_FALSE(sim::WaitUntil([&] { return waits() == 2; }, sim::milliseconds(150)));
  semctl(SemaphoreSet(), 0, SETVAL, 1);
  EXPECT_TRUE(HasLocks(holder));
  EXPECT_EQ(SemaphoreValue(), 0);
  End(holder);
  EXPECT_TRUE(HasLocks(waiting));
  End(waiting);
}

TEST_F(Map, CopiesEvenWithoutItsLocks) {
  ASSERT_EQ(Init(), "0 ");
  const string id = std::to_string(map_.sem);
  const auto failed = [](const string& set) {
    return "0 [CMMAP_SemLock] error semop, reason(Invalid argument, " + set +
           ")\n[CMMAP_SemUnlock] error semop, reason(Invalid argument, " + set + ")\n";
  };
  semctl(map_.sem, 0, IPC_RMID);
  char byte = 0;
  EXPECT_EQ(Read(&byte, 1), failed(id));
  EXPECT_EQ(byte, 'a');
  EXPECT_EQ(Deinit(), "0 [CMMAP_DeinitLock] error semctl, reason(Invalid argument)\n");
  // No semaphore can be created, or none can be initialized.
  for (const char* const call : {"semget", "semctl"}) {
    {
      const FailingCall failing(call);
      EXPECT_TRUE(Init().starts_with("0 [CMMAP_InitLock] error, reason(Operation not permitted,"));
    }
    EXPECT_EQ(Write("z", 1), failed("-1"));
    EXPECT_EQ(Deinit(), "0 ");
  }
  semctl(SemaphoreSet(), 0, IPC_RMID);
  // The file cannot be locked: it is open only for reading, then not open at all.
  ASSERT_EQ(Init(), "0 ");
  const string no_lock = " [CMMAP_FileLock] error fcntl, reason(Bad file descriptor)\n";
  close(std::exchange(map_.fd, open(kPath, O_RDONLY | O_CLOEXEC)));
  EXPECT_EQ(Read(&byte, 1), "0" + no_lock);
  EXPECT_EQ(byte, 'z');
  close(std::exchange(map_.fd, -1));
  EXPECT_EQ(Read(&byte, 1), "-1" + no_lock +
                                "[CMMAP_FileUnlock] error fcntl, reason(Bad file descriptor)\n"
                                "[CMMAP_Read] error copy, reason(file shorter than 1 bytes)\n");
}

}  // namespace
