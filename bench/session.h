// One contender's turn in a scene: started when the first figure asks for it, started anew after
// one that failed, so that a failure spoils no other figure.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "bench/results.h"
#include "bench/running.h"

namespace bench {

class Session {
 public:
  // `results` outlives the session.
  Session(const Contender& contender, const Seat& seat, Results* results)
      : contender_(contender), seat_(seat), results_(results) {}

  const Contender& Kind() const { return contender_; }

  // The contender, started if need be; every start is a sample of the start-up time. Throws
  // Unmeasured when it does not start, and at once when it did not before.
  Running& Get();

  // Calls `measure` with the contender and adds what it returns, one value a figure; where it
  // throws, the reason instead.
  void Record(const std::vector<Figure>& figures,
              const std::function<std::vector<double>(Running&)>& measure);

  // The same for a measurement with `clients` clients: more than the contender serves is a reason.
  void Record(int clients, const std::vector<Figure>& figures,
              const std::function<std::vector<double>(Running&)>& measure);

  // Adds the same reason to several figures.
  void Refuse(const std::vector<Figure>& figures, const std::string& reason);

 private:
  const Contender& contender_;
  Seat seat_;
  Results* results_;
  std::unique_ptr<Running> running_;
  bool fails_to_start_ = false;
};

}  // namespace bench
