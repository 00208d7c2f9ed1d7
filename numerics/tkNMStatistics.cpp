#include "numerics/tkNMStatistics.h"

#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMCrossProducts.h"
#include "numerics/kernels/tkNMInstructions.h"

#include <algorithm>

namespace
{
/// One step of Welford's update with a compensated mean: mean + compensation += ((x - mean) - compensation) / n. The
/// rounding error of the new mean is exact (Knuth, The Art of Computer Programming 2, 4.2.2: TwoSum).
void addToMean(double x, double n, double& mean, double& compensation, double& before, double& after)
{
    before = (x - mean) - compensation;
    const double step = before / n + compensation;
    const double sum = mean + step;
    const double added = sum - mean;
    compensation = (mean - (sum - added)) + (step - added);
    mean = sum;
    after = (x - mean) - compensation;
}
} // namespace

void tkNMStatistics::add(const double* x, tkNMInstructions instructions)
{
    const std::size_t d = dimension();
    const double n = static_cast<double>(++count);
    const std::size_t padded = (d + 7) / 8 * 8;
    tkScratch<double, 256> before(padded);
    tkScratch<double, 256> after(padded);
    for (std::size_t j = 0; j < d; ++j)
        addToMean(x[j], n, mean[j], compensation[j], before[j], after[j]);

    // The kernel works by blocks of eight rows, and takes longer for a part of one.
    if (instructions == tkNMInstructions::Definition || d < 8)
    {
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
                crossProducts(i, j) += before[i] * after[j];
        return;
    }
    std::fill(before.begin() + d, before.end(), 0.0);
    std::fill(after.begin() + d, after.end(), 0.0);
    tkNMAddCrossProducts(crossProducts, before.data(), after.data(), 1, padded, instructions);
}
