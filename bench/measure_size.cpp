#include "bench/measure.h"

namespace bench {

void MeasureSizes(const std::vector<const Contender*>& contenders, Results* results) {
  const Figure size = {.id = "size",
                       .section = "Start-up and size",
                       .label = "program, stripped, without its shared libraries",
                       .unit = "KiB",
                       .better = Better::kLess};
  for (const Contender* contender : contenders) {
    try {
      results->Add(size, contender->id, StrippedKib(*contender));
    } catch (const std::exception& error) {
      results->AddReason(size, contender->id, error.what());
    }
  }
}

}  // namespace bench
