// Runs one contender in a scene. Starts it for the first figure and again after a failure, so a
// failure affects no other figure.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "bench/results.h"
#include "bench/running.h"

namespace bench {

class Session {
 public:
  // `results` must outlive the session.
  Session(const Contender& contender, const Seat& seat, Results* results)
      : contender_(contender), seat_(seat), results_(results) {}

  const Contender& Kind() const { return contender_; }

  // Calls `action` with the running contender. If it does not serve that many clients, or on an
  // exception, records the reason for these figures.
  void Try(int clients, const std::vector<Figure>& figures,
           const std::function<void(Running&)>& action);

  // Like Try, and adds the values that `measure` returns, one per figure.
  void Record(int clients, const std::vector<Figure>& figures,
              const std::function<std::vector<double>(Running&)>& measure);

  // Adds the same reason to several figures.
  void Refuse(const std::vector<Figure>& figures, const std::string& reason);

  // Adds the size of the program.
  void RecordSize();

 private:
  Running& Get();

  const Contender& contender_;
  Seat seat_;
  Results* results_;
  std::unique_ptr<Running> running_;
  bool fails_to_start_ = false;
};

}  // namespace bench
