#include "numerics/tkNMReferenceDeviation.h"

#include <algorithm>
#include <cmath>

void tkNMReferenceDeviation::addMean(double count, double mean, double compensation)
{
    if (count_ == 0.0)
    {
        origin_ = mean;
        originCompensation_ = compensation;
    }
    count_ += count;
    distances_ += count * distance_(mean, compensation);
    largestMean_ = std::max(largestMean_, std::fabs(mean));
}

void tkNMReferenceDeviation::addSquares(double count, double mean, double compensation, double squares)
{
    const double e = distance_(mean, compensation) - distances_ / count_;
    squares_ += squares + count * (e * e);
}

double tkNMReferenceDeviation::value() const
{
    const double deviation = std::sqrt(squares_ / count_);
    return deviation <= 0x1p-52 * largestMean_ ? 0.0 : deviation;
}

double tkNMReferenceDeviation::distance_(double mean, double compensation) const
{
    return (mean - origin_) + (compensation - originCompensation_);
}
