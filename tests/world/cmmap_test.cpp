#include "cmmap/cmmap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "tests/support.h"

namespace {

using std::string;
using support::OnStdout;

constexpr char kPath[] = "/var/nvt/test.dat";
constexpr int kKey = 823;
constexpr int kSize = 10000;

// The set of the key, -1 when there is none.
int SemaphoreSet() {
  return semget(kKey, 1, 0);
}

int SemaphoreValue() {
  return semctl(SemaphoreSet(), 0, GETVAL);
}

void MakeSemaphore(int value) {
  ASSERT_EQ(semctl(semget(kKey, 1, IPC_CREAT | IPC_EXCL | 0666), 0, SETVAL, value), 0);
}

// A process of its own that runs `body` on an open map. `stage` is shared with it.
class Other {
 public:
  explicit Other(const std::function<void(CMMAP*, volatile int* stage)>& body) {
    *stage = 0;
    pid = fork();
    if (pid != 0) return;
    CMMAP map;
    if (CMMAP_Init(&map, kPath, kKey, CMMAP_OPEN, kSize) == 0) body(&map, stage);
    map.Deinit(&map);
    _exit(0);
  }
  ~Other() {
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(status == 0 || WIFSIGNALED(status)) << status;
  }
  Other(const Other&) = delete;
  Other& operator=(const Other&) = delete;
  bool Reaches(int wanted, int ms = 5000) const {
    return sim::WaitUntil([&] { return *stage == wanted; }, sim::milliseconds(ms));
  }

  volatile int* const stage = static_cast<volatile int*>(
      mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  pid_t pid;
};

class Map : public testing::Test {
 protected:
  Map() { sim::WriteTextFile(kPath, string(kSize, 'a')); }
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

// And a semaphore for everyone.
TEST_F(Map, CreatesAFileOfZeros) {
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
  }
  umask(mask);
  struct stat file;
  ASSERT_EQ(stat(kPath, &file), 0);
  EXPECT_EQ(file.st_mode & 07777, 0644U);
}

TEST_F(Map, RemovesOnlyASemaphoreOfItsOwn) {
  EXPECT_EQ(Init(), "0 ");
  EXPECT_EQ(Deinit(), "0 ");
  EXPECT_EQ(SemaphoreSet(), -1);
  MakeSemaphore(5);
  EXPECT_EQ(Init(), "0 ");
  EXPECT_EQ(Deinit(), "0 ");
  EXPECT_EQ(SemaphoreValue(), 5);
}

TEST_F(Map, SaysWhyItCannotOpen) {
  const struct {
    const char* path;
    int mode, size;
    string said;  // a beginning
    const char* deinit;
  } rows[] = {
      {"/var/none/x.dat", CMMAP_CREATE, kSize, "open, reason(No such file or directory)\n", "-1 "},
      {"/var/nvt", CMMAP_OPEN, kSize, "open, reason(Is a directory)\n", "-1 "},
      {kPath, CMMAP_OPEN, kSize + 1, "open, reason(", "0 "},
      {kPath, CMMAP_CREATE, 0, "mmap, reason(Invalid argument)\n", "0 "},
  };
  const auto descriptors = support::OpenDescriptors();
  for (const auto& row : rows) {
    const string said = Init(row.mode, row.size, row.path);
    EXPECT_EQ(said.find("-1 [CMMAP_Init] error " + row.said), 0U) << said;
    EXPECT_EQ(said.find('\n'), said.size() - 1);
    char byte = 'x';
    EXPECT_EQ(Read(&byte, 1), "-1 ");
    EXPECT_EQ(Write(&byte, 1), "-1 ");
    EXPECT_EQ(Deinit(), row.deinit);
    EXPECT_EQ(SemaphoreSet(), -1);
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST_F(Map, CopiesWithinItsBounds) {
  sim::WriteTextFile(kPath, string(kSize, 'a') + "behind");  // longer than the map
  ASSERT_EQ(Init(), "0 ");
  for (const int length : {0, 1, 17, kSize, kSize + 1, -1}) {
    memset(map_.map, 'a', kSize);
    const bool fits = length >= 0 && length <= kSize;
    const size_t copied = fits ? static_cast<size_t>(length) : 0;
    string buffer(kSize + 1, 'b');
    EXPECT_EQ(Read(buffer.data(), length), fits ? "0 " : "-1 ");
    EXPECT_EQ(buffer, string(copied, 'a') + string(kSize + 1 - copied, 'b')) << length;
    EXPECT_EQ(Write(string(kSize + 1, 'c').data(), length), fits ? "0 " : "-1 ");
    EXPECT_EQ(sim::ReadTextFile(kPath),
              string(copied, 'c') + string(kSize - copied, 'a') + "behind")
        << length;
    EXPECT_EQ(SemaphoreValue(), 1);
  }
}

TEST_F(Map, TakesTheFileThenTheSemaphore) {
  MakeSemaphore(1);
  const auto lock_once = [](CMMAP* map, volatile int* stage) {
    *stage = 1;
    map->Lock(map);
    *stage = 2;
    map->Unlock(map);
  };
  const sim::UniqueFd file(open(kPath, O_RDWR | O_CLOEXEC));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_len = 1;
  ASSERT_EQ(fcntl(file.Get(), F_SETLK, &lock), 0);
  {
    const Other other(lock_once);
    EXPECT_TRUE(other.Reaches(1));
    EXPECT_FALSE(other.Reaches(2, 150));
    EXPECT_EQ(SemaphoreValue(), 1);  // not taken before the file
    lock.l_type = F_UNLCK;
    ASSERT_EQ(fcntl(file.Get(), F_SETLK, &lock), 0);
    EXPECT_TRUE(other.Reaches(2));
  }
  semctl(SemaphoreSet(), 0, SETVAL, 0);
  {
    const Other other(lock_once);
    EXPECT_TRUE(sim::WaitUntil([] { return semctl(SemaphoreSet(), 0, GETNCNT) == 1; }));
    lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(file.Get(), F_GETLK, &lock), 0);
    EXPECT_EQ(lock.l_pid, other.pid);  // has the file while it waits
    EXPECT_EQ(std::pair(lock.l_start, lock.l_len), std::pair(off_t(0), off_t(1)));
    EXPECT_EQ(*other.stage, 1);
    semctl(SemaphoreSet(), 0, SETVAL, 1);
    EXPECT_TRUE(other.Reaches(2));
  }
  EXPECT_EQ(SemaphoreValue(), 1);
}

TEST_F(Map, GetsTheLocksBackFromADeadHolder) {
  MakeSemaphore(1);
  ASSERT_EQ(Init(), "0 ");
  const Other holder([](CMMAP* map, volatile int* stage) {
    map->Lock(map);
    *stage = 1;
    pause();
  });
  ASSERT_TRUE(holder.Reaches(1));
  EXPECT_EQ(SemaphoreValue(), 0);
  kill(holder.pid, SIGKILL);
  char byte = 0;
  support::ExpectTakes(0, 2000, [&] { EXPECT_EQ(Read(&byte, 1), "0 "); });
  EXPECT_EQ(byte, 'a');
  EXPECT_EQ(SemaphoreValue(), 1);
}

TEST_F(Map, CopiesWithoutItsLocks) {
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
  // No semaphore to be had at all.
  std::vector<int> sets;
  for (int set; (set = semget(IPC_PRIVATE, 1, 0600)) >= 0;)
    sets.push_back(set);
  EXPECT_EQ(Init(), "0 [CMMAP_InitLock] error, reason(No space left on device,-1,0)\n");
  for (const int set : sets)
    semctl(set, 0, IPC_RMID);
  EXPECT_EQ(Write("z", 1), failed("-1"));
  EXPECT_EQ(sim::ReadTextFile(kPath)[0], 'z');
  EXPECT_EQ(Deinit(), "0 ");
  // No file to lock.
  ASSERT_EQ(Init(), "0 ");
  close(std::exchange(map_.fd, -1));
  EXPECT_EQ(Read(&byte, 1),
            "0 [CMMAP_FileLock] error fcntl, reason(Bad file descriptor)\n"
            "[CMMAP_FileUnlock] error fcntl, reason(Bad file descriptor)\n");
  EXPECT_EQ(byte, 'z');
}

}  // namespace
