#include "util/cthread.h"

#include <pthread.h>

#include <thread>

#include "tests/support.h"

namespace {

using sim::milliseconds;

constexpr int kAllPollsMs = CTHREAD_POLL_MS * CTHREAD_POLLS;

// The calls of the worker's routines, and the results of these.
struct Work {
  std::atomic<int> starts{0};
  std::atomic<int> steps{0};
  std::atomic<int> ends{0};
  std::atomic<bool> is_held{false};  // a step blocks until this is false
  int start_result = 0;
  int failing_step = 0;  // number of the step that fails, from 1
};

int StartRoutine(void* arg) {
  Work* work = static_cast<Work*>(arg);
  ++work->starts;
  while (work->is_held)
    std::this_thread::sleep_for(milliseconds(1));
  return work->start_result;
}

int StepRoutine(void* arg) {
  Work* work = static_cast<Work*>(arg);
  ++work->steps;
  do {
    std::this_thread::sleep_for(milliseconds(1));
  } while (work->is_held);
  return work->steps == work->failing_step ? -1 : 0;
}

void EndRoutine(void* arg) {
  ++static_cast<Work*>(arg)->ends;
}

class Cthread : public testing::Test {
 protected:
  Cthread() {
    EXPECT_EQ(CTHREAD_Init(&thread_, &work_, StartRoutine, StepRoutine, EndRoutine), 0);
    EXPECT_EQ(thread_.state, CTHREAD_IDLE);
  }

  // The worker uses the members until it has stopped.
  void WaitFor(CthreadState state) {
    ASSERT_TRUE(sim::WaitUntil([&] { return thread_.state == state; }, milliseconds(kAllPollsMs)));
  }

  // Calls a slot that takes at least `least_ms`; returns its result and output.
  std::string Call(int (*slot)(CTHREAD* self), int least_ms = CTHREAD_POLL_MS) {
    std::string outcome;
    const auto call = [&] { return slot(&thread_); };
    support::ExpectTakes(least_ms, [&] { outcome = support::OnStdout(call); });
    return outcome;
  }

  CTHREAD thread_;
  Work work_;
};

TEST_F(Cthread, RunsUntilStoppedAndRestarts) {
  for (const int runs : {1, 2}) {
    const int steps = work_.steps;
    EXPECT_EQ(Call(thread_.Start), "0 ");
    EXPECT_EQ(thread_.state, CTHREAD_RUNNING);
    EXPECT_EQ(Call(runs == 1 ? thread_.Stop : thread_.Deinit), "0 ");
    EXPECT_EQ(thread_.state, CTHREAD_STOPPED);
    EXPECT_EQ(work_.starts, runs);
    EXPECT_GT(work_.steps, steps + 1);
    EXPECT_EQ(work_.ends, runs);
  }
}

TEST_F(Cthread, TimesOutWhenStoppingAnEndedWorker) {
  work_.failing_step = 3;
  for (const int steps : {0, 3}) {
    work_.start_result = steps == 0 ? -1 : 0;  // skips the steps
    EXPECT_EQ(Call(thread_.Start), "0 ");
    WaitFor(CTHREAD_STOPPED);
    EXPECT_EQ(work_.steps, steps);
    EXPECT_EQ(Call(thread_.Stop, kAllPollsMs), "-1 [CTHREAD_Stop] error, reason(timeout)\n");
  }
  EXPECT_EQ(work_.ends, 2);
}

// A stop requested during a long routine remains in force. Start and end routines are optional.
TEST_F(Cthread, LongRoutinesOutlastStartAndStop) {
  for (const bool is_step : {false, true}) {
    work_.is_held = true;
    if (is_step) CTHREAD_Init(&thread_, &work_, nullptr, StepRoutine, nullptr);
    EXPECT_EQ(Call(thread_.Start, is_step ? CTHREAD_POLL_MS : kAllPollsMs),
              is_step ? "0 " : "-2 [CTHREAD_Start] error, reason(timeout)\n");
    EXPECT_EQ(Call(thread_.Stop, kAllPollsMs), "-1 [CTHREAD_Stop] error, reason(timeout)\n");
    EXPECT_EQ(thread_.state, CTHREAD_STOPPING);
    work_.is_held = false;
    WaitFor(CTHREAD_STOPPED);
    EXPECT_EQ(work_.steps, is_step ? 2 : 1);
    EXPECT_EQ(work_.ends, 1);
  }
}

TEST_F(Cthread, ReportsAThreadThatCannotBeCreated) {
  pthread_attr_t attributes;
  pthread_attr_t impossible;
  ASSERT_EQ(pthread_getattr_default_np(&attributes), 0);
  pthread_attr_init(&impossible);
  pthread_attr_setstacksize(&impossible, ~size_t{0xFFFFF});  // the whole address space
  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  EXPECT_EQ(Call(thread_.Start, 0),
            "-1 [CTHREAD_Start] error, reason(pthread_create failed, 11, 'Resource temporarily "
            "unavailable')\n");
  pthread_setattr_default_np(&attributes);
  EXPECT_EQ(thread_.state, CTHREAD_FAILED);
  EXPECT_EQ(Call(thread_.Stop, 0), "-1 [CTHREAD_Stop] error, reason(error)\n");
  EXPECT_EQ(work_.starts, 0);
}

}  // namespace
