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

  // Calls `action` with the contender. More clients than it serves, or an exception, is the reason
  // why it has none of these figures.
  void Try(int clients, const std::vector<Figure>& figures,
           const std::function<void(Running&)>& action);

  // The same, and adds what `measure` returns, one value a figure.
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
