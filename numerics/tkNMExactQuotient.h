#ifndef NUMERICS_TKNMEXACTQUOTIENT_H
#define NUMERICS_TKNMEXACTQUOTIENT_H

#include "foundation/tkExport.h"

/// A quotient from which the dividend comes back to the last bit, at every scale.
///
/// `value` is dividend / divisor, rounded, and `remainder` what the rounding left. Near the smallest doubles, where the
/// remainder would be lost, it is stored in a larger unit: for |value| < 2^-940 it is 2^600 times what the rounding
/// left. Not finite dividends have a remainder of 0.0.
struct TK_EXPORT tkNMExactQuotient
{
    /// *Requires* an integer divisor from 1 to 2^31.
    static tkNMExactQuotient of(double dividend, double divisor);

    /// The dividend, for the divisor that it was divided by.
    double times(double divisor) const;

    double value;
    double remainder;
};

#endif
