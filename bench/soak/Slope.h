// Least-squares slopes of the soak samples, per phase, after warm-up.
#pragma once

#include <vector>

#include "Sampler.h"

namespace soak {

// Prints every sample, then for each phase the growth of resident size (bytes per operation and
// KiB per second) and of open descriptors in both processes, fitted to the samples after the
// phase's first fifth (the warm-up).
void printReport(const std::vector<Sample> &samples);

}  // namespace soak
