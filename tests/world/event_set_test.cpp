#include <sys/eventfd.h>

#include <numeric>
#include <vector>

#include "relay/cfdevent.h"
#include "tests/support.h"

namespace {

using SlotList = std::vector<int>;

// A descriptor that is readable after Fill.
struct Source : tools::UniqueFd {
  Source() : tools::UniqueFd(eventfd(0, EFD_CLOEXEC)) {}
  void Fill() const { EXPECT_EQ(eventfd_write(Get(), 1), 0); }
};

class EventSet : public testing::Test {
 protected:
  EventSet() { EXPECT_EQ(CFDEVENT_Init(&set_), 0); }

  int Add(int fd) { return set_.Add(&set_, fd); }
  int Del(int fd) { return set_.Del(&set_, fd); }
  int Wait(int ms) { return set_.Wait(&set_, ms); }
  int IsSet(int fd) { return set_.IsSet(&set_, fd); }
  void AddUntilFull() {
    for (int i = 0; i < CFDEVENT_MAX_FDS; ++i)
      EXPECT_EQ(Add(100 + i), i);
  }
  // The slots up to the last one in use.
  SlotList Slots() const {
    SlotList slots(set_.fds, set_.fds + CFDEVENT_MAX_FDS);
    while (!slots.empty() && slots.back() == -1)
      slots.pop_back();
    return slots;
  }

  CFDEVENT set_;
};

TEST_F(EventSet, KeepsItsSlotsWithoutGaps) {
  for (const int fd : {5, 6, 7})
    EXPECT_EQ(Add(fd), fd - 5);
  EXPECT_EQ(Del(5), 0);
  EXPECT_EQ(Slots(), (SlotList{6, 7}));
  EXPECT_EQ(Add(5), 2);
  EXPECT_EQ(Add(6), 3);  // again
  EXPECT_EQ(Del(6), 0);
  for (const int absent : {8, -1, 5000})
    EXPECT_EQ(Del(absent), 0);
  EXPECT_EQ(Slots(), (SlotList{7, 5, 6}));
  EXPECT_EQ(set_.reg_count, 3);
}

TEST_F(EventSet, RejectsWhatDoesNotFit) {
  for (const int fd : {1024, 100000})
    EXPECT_EQ(Add(fd), -1);
  for (const int fd : {-1, 1023, 1024, 100000})
    EXPECT_EQ(IsSet(fd), -1);
  AddUntilFull();
  EXPECT_EQ(support::OnStdout([this] { return Add(9); }),
            "-1 [CFDEVENT_Add] rror, reason(_this->reg_count is full [128])\n");
  EXPECT_EQ(set_.reg_count, 128);
  Del(100);
  SlotList expected(127);
  std::iota(expected.begin(), expected.end(), 101);
  EXPECT_EQ(Slots(), expected);
  EXPECT_EQ(Add(1023), 127);
}

TEST_F(EventSet, DeinitClearsOnlyTheCount) {
  const Source first;
  const Source second;
  Add(first.Get());
  set_.Deinit(&set_);
  first.Fill();
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_EMPTY);
  EXPECT_EQ(Add(second.Get()), 1);
  EXPECT_EQ(Wait(0), 0);
  EXPECT_EQ(IsSet(first.Get()), 0);
  EXPECT_EQ(IsSet(second.Get()), -1);
}

TEST_F(EventSet, ReportsReadyDescriptors) {
  const Source idle;
  Source filled;
  EXPECT_EQ(Wait(60000), CFDEVENT_WAIT_EMPTY);
  for (const int fd : {idle.Get(), filled.Get()})
    Add(fd);
  for (const int ms : {0, 150, 1250})
    support::ExpectTakes(ms, [&] { EXPECT_EQ(Wait(ms), CFDEVENT_WAIT_TIMEOUT); });
  filled.Fill();
  EXPECT_EQ(Wait(60000), 0);
  EXPECT_EQ(IsSet(idle.Get()), -1);
  EXPECT_EQ(IsSet(filled.Get()), 0);
  const int closed = filled.Get();
  filled.Reset();
  EXPECT_EQ(Wait(60000), CFDEVENT_WAIT_FAILED);
  EXPECT_EQ(IsSet(closed), -1);
  Del(closed);
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_TIMEOUT);
}

TEST_F(EventSet, TracesEveryOperation) {
  const Source source;
  source.Fill();
  ASSERT_EQ(dup2(source.Get(), 900), 900);
  set_.debug = 1;
  EXPECT_EQ(support::OnStdout([&] {
              Add(900);
              Add(1000);
              Del(7);
              Del(1000);
              Wait(0);
              IsSet(900);
              IsSet(1000);
            }),
            "ADD      900, CNT   1 : 900 \nADD     1000, CNT   2 : 900 1000 \n"
            "DEL        7, CNT   2 : 900 1000 \nDEL     1000, CNT   1 : 900 \n"
            "EVENTIN 900\nDETECT 900-1\nDETECT 1000-0\n");
  close(900);
}

}  // namespace
