#ifndef NUMERICS_TKNMWIDEDISTANCES_H
#define NUMERICS_TKNMWIDEDISTANCES_H

#include "numerics/tkNMByteDistances.h"

/// Distances between blocks of rows, as tkNMByteDistances has them, and one query that need not fit into bytes. They
/// take some times as long. No part of the interface that the library promises to keep.
///
/// For a row x and a query z the *sum* is a whole number of units, in 16 bits without sign:
///
///   (sum - slack()) unit() <= |z - x|^2 - |g|^2,    g_c = max(|z_c| - 127, 0)
///
/// where g is what z lies outside of the bytes, so that the right hand side is never negative, and small where
/// x is as near to z as a row of bytes can be. Every instruction set gives the same sums.
class TK_EXPORT tkNMWideDistances
{
public:
    using Line = tkNMByteDistances::Line;

    /// z_c = (query[c] - centres[c]) * scale, which are finite, for 1 to tkNMByteDistances::maxColumns columns. Uses
    /// `instructions`, or the best there are if the processor has not got them.
    tkNMWideDistances(long columns, const double* query, const double* centres, double scale,
                      tkNMInstructions instructions);

    double unit() const { return unit_; }
    double slack() const { return static_cast<double>(shape_.columns + 8) / 128.0; }

    /// The 64 sums of a block.
    void sums(const Line* block, std::uint16_t* sums) const { sums_(shape_, block, sums); }

    /// The smallest sum of each of `count` consecutive blocks.
    void minima(const Line* blocks, long count, std::uint16_t* minima) const { minima_(shape_, blocks, count, minima); }

    /// A sum is offset + the sum of x_c (x_c square + linear_c).
    struct Shape
    {
        long columns;
        float square;
        float offset;
        float linear[tkNMByteDistances::maxColumns];
    };

private:
    using SumsFunction = void (*)(const Shape&, const Line*, std::uint16_t*);
    using MinimaFunction = void (*)(const Shape&, const Line*, long, std::uint16_t*);

    Shape shape_;
    double unit_;
    SumsFunction sums_;
    MinimaFunction minima_;
};

#endif
