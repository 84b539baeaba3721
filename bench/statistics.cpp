#include "bench/statistics.h"

#include <algorithm>
#include <cmath>

namespace bench {

double Median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  const size_t middle = samples.size() / 2;
  if (samples.size() % 2 == 1) return samples[middle];
  return (samples[middle - 1] + samples[middle]) / 2;
}

double Percentile(std::vector<double> samples, double percent) {
  constexpr double kWhole = 100;
  std::sort(samples.begin(), samples.end());
  const double rank = std::ceil(percent / kWhole * static_cast<double>(samples.size()));
  const size_t index = static_cast<size_t>(std::max(rank, 1.0)) - 1;
  return samples[std::min(index, samples.size() - 1)];
}

}  // namespace bench
