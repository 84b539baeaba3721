#include "bench/session.h"

#include <exception>

namespace bench {
namespace {

constexpr char kSection[] = "Start-up and size";
const Figure kStart = {"start", kSection, "from exec to a listening port", "ms"};
const Figure kSize = {"size", kSection, "program, stripped, without its shared libraries", "KiB"};
constexpr double kMsPerS = 1000;

}  // namespace

// Returns the contender and starts it if necessary. Every start is a sample of the start-up time. A
// contender that failed to start is not started again.
Running& Session::Get() {
  if (fails_to_start_) throw Unmeasured("does not start");
  if (running_ == nullptr) {
    fails_to_start_ = true;
    running_ = std::make_unique<Running>(contender_, seat_);
    fails_to_start_ = false;
    results_->Add(kStart, contender_, running_->StartSeconds() * kMsPerS);
  }
  return *running_;
}

void Session::Try(int clients, const std::vector<Figure>& figures,
                  const std::function<void(Running&)>& action) {
  if (clients > contender_.most_clients) {
    Refuse(figures, contender_.no_more_clients);
    return;
  }
  try {
    action(Get());
  } catch (const std::exception& error) {
    Refuse(figures, error.what());
    running_.reset();
  }
}

void Session::Record(int clients, const std::vector<Figure>& figures,
                     const std::function<std::vector<double>(Running&)>& measure) {
  Try(clients, figures, [&](Running& running) {
    const std::vector<double> values = measure(running);
    for (size_t i = 0; i < figures.size(); ++i)
      results_->Add(figures[i], contender_, values.at(i));
  });
}

void Session::Refuse(const std::vector<Figure>& figures, const std::string& reason) {
  for (const Figure& figure : figures)
    results_->AddReason(figure, contender_, reason);
}

void Session::RecordSize() {
  try {
    results_->Add(kSize, contender_, StrippedKib(contender_));
  } catch (const std::exception& error) {
    Refuse({kSize}, error.what());
  }
}

}  // namespace bench
