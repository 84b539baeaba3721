#include <memory>
#include <thread>

#include "bench/measure.h"

namespace bench {
namespace {

constexpr char kSection[] = "Idle";
constexpr std::chrono::milliseconds kSettle{500};
constexpr int kFirstPort = 4101;

std::vector<Figure> Figures(int clients) {
  const std::string id = "idle." + std::to_string(clients);
  const std::string with = ", " + std::to_string(clients) + " clients";
  return {{id + ".cpu", kSection, "processor" + with, "%", Better::kLess},
          {id + ".wakeups", kSection, "wake-ups" + with, "1/s", Better::kLess}};
}

// A contender at rest, or the reason why it is not.
struct Resting {
  const Contender* contender;
  std::unique_ptr<Running> running;
  std::string reason;
  double cpu_before = 0;
  double wake_ups_before = 0;
};

void Connect(int clients, Resting* resting) {
  if (resting->running == nullptr) return;
  if (clients > resting->contender->most_clients) {
    resting->reason = resting->contender->no_more_clients;
    resting->running.reset();
    return;
  }
  try {
    resting->running->Connect(clients);
  } catch (const std::exception& error) {
    resting->reason = error.what();
    resting->running.reset();
  }
}

Resting Start(const Contender& contender, int number) {
  Resting resting = {.contender = &contender, .running = nullptr, .reason = ""};
  try {
    resting.running = std::make_unique<Running>(
        contender,
        Seat{.serial_path = "/dev/ttyB" + std::to_string(number), .port = kFirstPort + number});
  } catch (const std::exception& error) {
    resting.reason = error.what();
  }
  return resting;
}

void MeasureAtRest(double seconds, int clients, std::vector<Resting>* all, Results* results) {
  for (Resting& resting : *all)
    Connect(clients, &resting);
  std::this_thread::sleep_for(kSettle);
  for (Resting& resting : *all) {
    if (resting.running == nullptr) continue;
    resting.cpu_before = resting.running->Cpu();
    resting.wake_ups_before = WakeUps(resting.running->Pid());
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const std::vector<Figure> figures = Figures(clients);
  for (Resting& resting : *all) {
    const char* id = resting.contender->id;
    if (resting.running == nullptr) {
      for (const Figure& figure : figures)
        results->AddReason(figure, id, resting.reason);
      continue;
    }
    constexpr double kPercent = 100;
    results->Add(figures[0], id,
                 kPercent * (resting.running->Cpu() - resting.cpu_before) / seconds);
    results->Add(figures[1], id,
                 (WakeUps(resting.running->Pid()) - resting.wake_ups_before) / seconds);
  }
}

}  // namespace

void MeasureIdle(const Plan& plan, const std::vector<const Contender*>& contenders,
                 Results* results) {
  std::vector<Resting> all;
  for (const Contender* contender : contenders)
    all.push_back(Start(*contender, static_cast<int>(all.size())));
  for (const int clients : {0, kManyClients})
    MeasureAtRest(plan.idle_seconds, clients, &all, results);
}

}  // namespace bench
