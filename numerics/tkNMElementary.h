#ifndef NUMERICS_TKNMELEMENTARY_H
#define NUMERICS_TKNMELEMENTARY_H

#include "foundation/tkExport.h"

/// exp, ln and power with the same bits on every platform: only + - * / and square root, each rounded once as IEEE 754
/// defines, operations on integers, comparisons and tables. docs/numerics.md has the largest errors found.
///
/// Special values are those of C's Annex F, except that every NaN returned is the same one, the default quiet NaN.
/// errno is left alone. Rounding must be to nearest. Method: tables and short polynomials (Tang, ACM TOMS 15, 1989,
/// 144-157, and 16, 1990, 378-400); products and sums of two words after Dekker (Numerische Mathematik 18, 1971,
/// 224-242).
struct TK_EXPORT tkNMElementary
{
    /// e^x, off by less than 0.51 units in the last place, also where the result is subnormal.
    static double exp(double x);

    /// The natural logarithm, off by less than 0.51 units in the last place.
    static double log(double x);

    /// x^y, off by less than 0.52 units in the last place, also where the result is subnormal; for y = 1, 2, 3 and
    /// 0.5 correctly rounded.
    static double pow(double x, double y);
};

#endif
