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

// Half the distance between the first and the third quarter, as a share of the median: how far
// the rounds lie apart. 0 for a single sample or a median of 0.
double Spread(const std::vector<double>& samples);

}  // namespace bench
