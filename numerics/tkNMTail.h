#ifndef NUMERICS_TKNMTAIL_H
#define NUMERICS_TKNMTAIL_H

#include "foundation/tkExport.h"

/// Natural logarithms of tail probabilities, also of those that are far below the smallest double. Each is at most 0.0;
/// minus infinity for what is impossible.
///
/// Uses tkNMElementary and + - * /, so that the bits are the same everywhere. Up to 10,000 degrees of freedom and tails
/// of e^-20,000 the logarithm is off by less than 1e-11 of itself. docs/numerics.md has the formulas and the largest
/// errors found. No argument may be NaN.
struct TK_EXPORT tkNMTail
{
    /// Of the F distribution: P(F >= x). *Requires* x >= 0 and degrees of freedom > 0, whole or not. Time in proportion
    /// to the square root of the degrees at most.
    static double lnF(double x, double numerator, double denominator);

    /// Of the chi-squared distribution with 2 m degrees of freedom: P(chi² >= 2 h). By Fisher's method (Statistical
    /// Methods for Research Workers, 4th ed., 1932, section 21.1) the probability that m independent p-values have a
    /// product of e^-h or less. *Requires* h >= 0 and m >= 1. Time in proportion to m at most.
    static double lnChiSquared(double h, long m);

    /// Of the binomial distribution of n trials: P(K >= k). *Requires* n >= 0 and 0 < p < 1. As lnF().
    static double lnBinomial(long k, long n, double p);

    /// The regularised incomplete beta function I_w(b, a), with v = 1 - w given for itself, so that w may be close
    /// to 1. *Requires* 0 <= w <= 1, a > 0 and b > 0. As lnF().
    static double lnIncompleteBeta(double w, double v, double b, double a);
};

#endif
