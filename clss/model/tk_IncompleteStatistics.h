#ifndef CLSS_MODEL_TK_INCOMPLETESTATISTICS_H
#define CLSS_MODEL_TK_INCOMPLETESTATISTICS_H

#include "numerics/tkNMStatistics.h"

#include <vector>

/// Mean and variance of a measurement.
struct tk_Moments
{
    double mean;
    double variance;
};

/// The statistics of maximum likelihood for patterns with gaps, in at most `maxSteps` steps of the EM algorithm.
///
/// With O the measurements that a pattern has and M those that it lacks, a step fills M by its expectation
///     m_M + C_MO C_OO^-1 (x_O - m_O)
/// and takes mean and covariance (divisor count) of the filled patterns, where each adds C_MM - C_MO C_OO^-1 C_OM to
/// the part of M. It starts from the means and variances of what is there, without covariances. The sums that are
/// returned are the count times this covariance, so that patterns without gaps give those of tkNMStatistics::add, but
/// for rounding.
///
/// Each row is a pattern, with NaN for a measurement that it lacks; each has a measurement. A measurement that no row
/// has gets the moments of `others`, and is independent. *Requires* finite measurements, a row, and one moment for each
/// measurement. Time in proportion to steps * (rows * d^2 + distinct gaps * d^3).
TK_EXPORT tkNMStatistics tk_incompleteStatistics(const std::vector<std::vector<double>>& rows,
                                                 const std::vector<tk_Moments>& others, long maxSteps);

#endif
