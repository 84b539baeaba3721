#include "bench/session.h"

#include <exception>

namespace bench {
namespace {

const Figure kStart = {.id = "start",
                       .section = "Start-up and size",
                       .label = "from exec to a listening port",
                       .unit = "ms",
                       .better = Better::kLess};
constexpr double kMsPerS = 1000;

}  // namespace

Running& Session::Get() {
  if (fails_to_start_) throw Unmeasured("does not start");
  if (running_ == nullptr) {
    fails_to_start_ = true;
    running_ = std::make_unique<Running>(contender_, seat_);
    fails_to_start_ = false;
    results_->Add(kStart, contender_.id, running_->StartSeconds() * kMsPerS);
  }
  return *running_;
}

void Session::Record(const std::vector<Figure>& figures,
                     const std::function<std::vector<double>(Running&)>& measure) {
  try {
    const std::vector<double> values = measure(Get());
    for (size_t i = 0; i < figures.size(); ++i)
      results_->Add(figures[i], contender_.id, values.at(i));
  } catch (const std::exception& error) {
    Refuse(figures, error.what());
    running_.reset();
  }
}

void Session::Record(int clients, const std::vector<Figure>& figures,
                     const std::function<std::vector<double>(Running&)>& measure) {
  if (clients <= contender_.most_clients) {
    Record(figures, measure);
  } else {
    Refuse(figures, contender_.no_more_clients);
  }
}

void Session::Refuse(const std::vector<Figure>& figures, const std::string& reason) {
  for (const Figure& figure : figures)
    results_->AddReason(figure, contender_.id, reason);
}

}  // namespace bench
