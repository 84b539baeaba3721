#include <deque>
#include <thread>

#include "bench/measure.h"

namespace bench {
namespace {

constexpr char kSection[] = "Idle";
constexpr std::chrono::milliseconds kSettle{500};
constexpr int kFirstPort = 4101;
constexpr double kPercent = 100;

struct Resting {
  Session* session;
  const Running* running;
  double cpu = 0;
  double wake_ups = 0;
};

void MeasureAtRest(double seconds, int clients, std::deque<Session>* sessions) {
  const std::string id = "idle." + std::to_string(clients);
  const std::string with = ", " + std::to_string(clients) + " clients";
  const std::vector<Figure> figures = {{id + ".cpu", kSection, "processor" + with, "%"},
                                       {id + ".wakeups", kSection, "wake-ups" + with, "1/s"}};
  std::vector<Resting> all;
  for (Session& session : *sessions) {
    session.Try(clients, figures, [&](Running& running) {
      running.Connect(clients);
      all.push_back({&session, &running});
    });
  }
  std::this_thread::sleep_for(kSettle);
  for (Resting& resting : all) {
    resting.cpu = resting.running->Cpu();
    resting.wake_ups = sim::WakeUps(resting.running->Pid());
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  for (const Resting& resting : all) {
    resting.session->Record(clients, figures, [&](const Running& running) -> std::vector<double> {
      return {kPercent * (running.Cpu() - resting.cpu) / seconds,
              (sim::WakeUps(running.Pid()) - resting.wake_ups) / seconds};
    });
  }
}

}  // namespace

void MeasureIdle(const Plan& plan, Results* results) {
  std::deque<Session> sessions;
  for (const Entrant& entrant : results->entrants) {
    const int number = static_cast<int>(sessions.size());
    const Seat seat = {.serial_path = "/dev/ttyB" + std::to_string(number),
                       .port = kFirstPort + number};
    sessions.emplace_back(*entrant.kind, seat, results);
  }
  for (const int clients : {0, kManyClients})
    MeasureAtRest(plan.idle_seconds, clients, &sessions);
}

}  // namespace bench
