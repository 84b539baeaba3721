#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <numeric>
#include <vector>

#include "relay/cfdevent.h"
#include "tests/support.h"

namespace {

struct Pipe {
  Pipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    reader.Reset(ends[0]);
    writer.Reset(ends[1]);
  }
  int Fd() const { return reader.Get(); }
  void Fill() const { EXPECT_EQ(write(writer.Get(), "x", 1), 1); }

  sim::UniqueFd reader;
  sim::UniqueFd writer;
};

using SlotList = std::vector<int>;

class EventSet : public testing::Test {
 protected:
  EventSet() { EXPECT_EQ(CFDEVENT_Init(&set_), 0); }

  int Add(int fd) { return set_.Add(&set_, fd); }
  int Del(int fd) { return set_.Del(&set_, fd); }
  int Wait(int ms) { return set_.Wait(&set_, ms); }
  bool IsSet(int fd) {
    const int result = set_.IsSet(&set_, fd);
    EXPECT_TRUE(result == 0 || result == -1);
    return result == 0;
  }
  // The slots up to the last one taken.
  SlotList Slots() const {
    SlotList slots(set_.fds, set_.fds + CFDEVENT_MAX_FDS);
    while (!slots.empty() && slots.back() == -1)
      slots.pop_back();
    return slots;
  }
  void AddUntilFull() {
    for (int i = 0; i < CFDEVENT_MAX_FDS; ++i)
      EXPECT_EQ(Add(100 + i), i);
  }

  CFDEVENT set_;
};

TEST_F(EventSet, KeepsItsSlotsWithoutGaps) {
  EXPECT_EQ(Add(5), 0);
  EXPECT_EQ(Add(6), 1);
  EXPECT_EQ(Add(7), 2);
  EXPECT_EQ(Del(5), 0);
  EXPECT_EQ(Slots(), (SlotList{6, 7}));
  EXPECT_EQ(set_.reg_count, 2);
  EXPECT_EQ(Add(5), 2);
  EXPECT_EQ(Add(6), 3);  // a second time
  EXPECT_EQ(Slots(), (SlotList{6, 7, 5, 6}));
  EXPECT_EQ(Del(6), 0);
  EXPECT_EQ(Slots(), (SlotList{7, 5, 6}));
  for (const int absent : {8, -1, 5000})
    EXPECT_EQ(Del(absent), 0);
  EXPECT_EQ(Slots(), (SlotList{7, 5, 6}));
  EXPECT_EQ(set_.reg_count, 3);
}

TEST_F(EventSet, RefusesMoreThanItsTableHolds) {
  AddUntilFull();
  EXPECT_EQ(support::StdoutOf([this] { EXPECT_EQ(Add(9), -1); }),
            "[CFDEVENT_Add] rror, reason(_this->reg_count is full [128])\n");
  EXPECT_EQ(set_.reg_count, 128);
  SlotList expected(127);
  std::iota(expected.begin(), expected.end(), 101);
  Del(100);
  EXPECT_EQ(Slots(), expected);
  EXPECT_EQ(Add(9), 127);
}

TEST_F(EventSet, RefusesDescriptorsThatFitNoSet) {
  EXPECT_EQ(Add(1024), -1);
  EXPECT_EQ(Add(100000), -1);
  EXPECT_EQ(set_.reg_count, 0);
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_EMPTY);
  EXPECT_EQ(Add(1023), 0);
  for (const int fd : {-1, 1023, 1024, 100000})
    EXPECT_FALSE(IsSet(fd)) << fd;
}

TEST_F(EventSet, DeinitClearsTheCountOnly) {
  const Pipe first;
  const Pipe second;
  Add(first.Fd());
  set_.Deinit(&set_);
  first.Fill();
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_EMPTY);
  EXPECT_EQ(Add(second.Fd()), 1);
  EXPECT_EQ(set_.reg_count, 1);
  EXPECT_EQ(Wait(0), 0);
  EXPECT_TRUE(IsSet(first.Fd()));
  EXPECT_FALSE(IsSet(second.Fd()));
}

TEST_F(EventSet, FindsNoSlotAfterDeinitOfAFullTable) {
  AddUntilFull();
  set_.Deinit(&set_);
  EXPECT_EQ(support::StdoutOf([this] { EXPECT_EQ(Add(9), -1); }), "");
  EXPECT_EQ(set_.reg_count, 0);
}

TEST_F(EventSet, ReportsWhatIsReady) {
  const Pipe idle;
  const Pipe filled;
  Pipe ended;
  EXPECT_EQ(Wait(1000), CFDEVENT_WAIT_EMPTY);
  for (const int fd : {idle.Fd(), filled.Fd(), ended.Fd()})
    Add(fd);
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_TIMEOUT);
  filled.Fill();
  ended.writer.Reset();
  EXPECT_LT(support::MsOf([this] { EXPECT_EQ(Wait(60000), 0); }), 1000);
  EXPECT_FALSE(IsSet(idle.Fd()));
  EXPECT_TRUE(IsSet(filled.Fd()));
  EXPECT_TRUE(IsSet(ended.Fd()));
  EXPECT_FALSE(IsSet(idle.writer.Get()));  // never registered
  Del(filled.Fd());
  Del(ended.Fd());
  EXPECT_EQ(Wait(0), CFDEVENT_WAIT_TIMEOUT);
  EXPECT_FALSE(IsSet(filled.Fd()));
}

TEST_F(EventSet, WaitsAsLongAsAsked) {
  const Pipe idle;
  Add(idle.Fd());
  for (const int ms : {0, 1, 150, 1250}) {
    const double taken = support::MsOf([&] { EXPECT_EQ(Wait(ms), CFDEVENT_WAIT_TIMEOUT); });
    EXPECT_GE(taken, ms);
    EXPECT_LT(taken, ms + 500);
  }
}

TEST_F(EventSet, SaysThatAWaitFailed) {
  Pipe pipe;
  Add(pipe.Fd());
  signal(SIGALRM, [](int) {});
  const itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 50000}};
  setitimer(ITIMER_REAL, &soon, nullptr);
  EXPECT_LT(support::MsOf([this] { EXPECT_EQ(Wait(60000), CFDEVENT_WAIT_FAILED); }), 5000);
  signal(SIGALRM, SIG_DFL);
  pipe.reader.Reset();
  EXPECT_EQ(Wait(60000), CFDEVENT_WAIT_FAILED);
}

TEST_F(EventSet, TracesEveryOperation) {
  const Pipe pipe;
  pipe.Fill();
  const std::string fd = std::to_string(pipe.Fd());
  const std::string wide = std::string(8 - fd.size(), ' ') + fd;
  set_.debug = 1;
  EXPECT_EQ(support::StdoutOf([&] {
              Add(pipe.Fd());
              Add(1000);
              Del(7);
              Del(1000);
              Wait(0);
              IsSet(pipe.Fd());
              IsSet(1000);
            }),
            "ADD " + wide + ", CNT   1 : " + fd + " \n" +       //
                "ADD     1000, CNT   2 : " + fd + " 1000 \n" +  //
                "DEL        7, CNT   2 : " + fd + " 1000 \n" +  //
                "DEL     1000, CNT   1 : " + fd + " \n" +       //
                "EVENTIN " + fd + "\n" +                        //
                "DETECT " + fd + "-1\n" +                       //
                "DETECT 1000-0\n");
}

}  // namespace
