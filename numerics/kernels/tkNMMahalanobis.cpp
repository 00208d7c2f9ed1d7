#include "numerics/kernels/tkNMMahalanobis.h"

#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cmath>

namespace
{
/// Adds columns j to end - 1 to the sums of block c and those below it, then the columns of these blocks.
template <std::size_t blocks, std::size_t c, class Eight>
TK_ALWAYS_INLINE void addColumns(const tkNMTriangle& w, std::size_t first, std::size_t j, std::size_t end,
                                 const double* v, Eight* y)
{
    for (; j < end; ++j)
        for (std::size_t b = c; b < blocks; ++b)
        {
            Eight part;
            part.load(w.column(first + b, j));
            y[b].addProduct(part, v[j]);
        }
    if constexpr (c + 1 < blocks)
        addColumns<blocks, c + 1>(w, first, end, end + 8, v, y);
}

/// Adds the squares of the sums of these blocks of rows. Four sums of eight lanes hide the latency of an addition, and
/// share each v_j.
template <std::size_t blocks, class Eight>
TK_ALWAYS_INLINE void addSquares(const tkNMTriangle& w, std::size_t first, const double* v, Eight& squares)
{
    Eight y[blocks];
    for (Eight& sum : y)
        sum.clear();
    addColumns<blocks, 0>(w, first, 0, 8 * first + 8, v, y);
    for (const Eight& sum : y)
        squares.addSquare(sum);
}

/// `v` has the deviations, then 0.0 up to a multiple of eight.
template <class Eight>
TK_ALWAYS_INLINE double squaredDistanceInLanes(const tkNMTriangle& w, const double* v)
{
    Eight squares;
    squares.clear();
    const std::size_t blockCount = (w.dimension() + 7) / 8;
    std::size_t block = 0;
    for (; block + 4 <= blockCount; block += 4)
        addSquares<4>(w, block, v, squares);
    for (; block + 2 <= blockCount; block += 2)
        addSquares<2>(w, block, v, squares);
    if (block < blockCount)
        addSquares<1>(w, block, v, squares);
    return ((squares[0] + squares[4]) + (squares[2] + squares[6])) +
           ((squares[1] + squares[5]) + (squares[3] + squares[7]));
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 double squaredDistanceAvx2(const tkNMTriangle& w, const double* v)
{
    return squaredDistanceInLanes<LanesOf<4>>(w, v);
}

TK_TARGET_AVX512 double squaredDistanceAvx512(const tkNMTriangle& w, const double* v)
{
    return squaredDistanceInLanes<LanesOf<8>>(w, v);
}
#endif

double squaredDistanceOf(const tkNMTriangle& w, const double* v, tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return squaredDistanceAvx512(w, v);
    if (instructions == tkNMInstructions::Avx2)
        return squaredDistanceAvx2(w, v);
#endif
    static_cast<void>(instructions);
    return squaredDistanceInLanes<LanesOf<plainWidth>>(w, v);
}
} // namespace

double tkNMSquaredMahalanobis(const tkNMFactorisation& factorisation, const double* x, tkNMInstructions instructions)
{
    const std::size_t d = factorisation.dimension();
    tkScratch<double, 256> v((d + 7) / 8 * 8);
    for (std::size_t j = 0; j < d; ++j)
        v[j] = (x[j] - factorisation.mean[j]) - factorisation.compensation[j];
    std::fill(v.begin() + d, v.end(), 0.0);
    const double square = squaredDistanceOf(factorisation.covariance.w, v.data(), instructions);
    // A measurement without a term adds its deviation times 0.0, which is 0.0 unless the deviation is not finite.
    return std::isnan(square) ? factorisation.squaredDistance(x, tkNMInstructions::Definition) : square;
}
