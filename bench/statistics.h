// Statistics of samples: what the reports show of a series of measurements.
#pragma once

#include <vector>

namespace bench {

// The middle of the sorted samples; of an even number the mean of the two in the middle. The
// samples must not be empty.
double Median(std::vector<double> samples);

// The least sample that at least `percent` (above 0, at most 100) of the samples do not exceed.
// The samples must not be empty.
double Percentile(std::vector<double> samples, double percent);

}  // namespace bench
