// What a series of samples says.
#ifndef KELVRIN_BENCH_STATISTICS_H_
#define KELVRIN_BENCH_STATISTICS_H_

#include <vector>

namespace kelvrin::bench {

// One value a round: seconds per call, or a ratio.
using Samples = std::vector<double>;

// The value at `fraction` (0 to 1) of the sorted samples, interpolated between neighbours. The
// samples must not be empty.
double Quantile(Samples samples, double fraction);

double Median(const Samples& samples);

// The distance between the quartiles as a fraction of the median.
double Spread(const Samples& samples);

// What each round's sample of `numerator` is of the same round's sample of `denominator`. Rounds
// are compared with themselves alone, so that a machine that slows down for some of them changes
// both sides. Throws std::invalid_argument when the numbers of rounds differ.
Samples Ratios(const Samples& numerator, const Samples& denominator);

}  // namespace kelvrin::bench

#endif  // KELVRIN_BENCH_STATISTICS_H_
