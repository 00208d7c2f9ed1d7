#ifndef NUMERICS_TKNMEXACTQUOTIENT_H
#define NUMERICS_TKNMEXACTQUOTIENT_H

#include "foundation/tkExport.h"

/// A quotient from which the dividend comes back to the last bit, at every scale.
///
/// `value` is dividend / divisor, rounded, and `compensation` the rounding error: a double-double. Near the smallest
/// doubles, where the compensation would underflow, its unit is larger: for |value| < 2^-940 it is 2^600 times the
/// rounding error. A dividend that is not finite has the compensation 0.0.
struct TK_EXPORT tkNMExactQuotient
{
    /// *Requires* an integer divisor from 1 to 2^31.
    static tkNMExactQuotient of(double dividend, double divisor);

    /// The dividend, for the divisor that it was divided by.
    double times(double divisor) const;

    double value;
    double compensation;
};

#endif
