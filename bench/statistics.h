// Statistics of samples.
#pragma once

#include <vector>

namespace bench {

// The median; of an even number of samples, the mean of the middle two. The samples must not be
// empty.
double Median(std::vector<double> samples);

// The smallest sample that at least `percent` (above 0, at most 100) of the samples do not exceed.
// The samples must not be empty.
double Percentile(std::vector<double> samples, double percent);

}  // namespace bench
