#include "numerics/tkNMMahalanobis.h"

#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{
/// Adds the columns before `end`, from j on, to the sums of block c and those below it; then those of these blocks.
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

/// `v` has the deviations, and 0.0 behind them up to the end of their block.
template <class Eight>
TK_ALWAYS_INLINE double squaredDistanceOf(const tkNMTriangle& w, const double* v)
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
TK_TARGET_AVX2 double squaredDistanceAVX2(const tkNMTriangle& w, const double* v)
{
    return squaredDistanceOf<LanesOf<4>>(w, v);
}

TK_TARGET_AVX512 double squaredDistanceAVX512(const tkNMTriangle& w, const double* v)
{
    return squaredDistanceOf<LanesOf<8>>(w, v);
}
#endif
} // namespace

tkNMMahalanobis::tkNMMahalanobis(std::vector<double> mean, std::vector<double> remainder, tkNMTriangle w)
    : mean_(std::move(mean)),
      remainder_(std::move(remainder)),
      w_(std::move(w))
{
}

double tkNMMahalanobis::squaredDistance(const double* x, tkNMInstructions level) const
{
    if (dimension() == 1)
    {
        const double y = w_(0, 0) * deviation_(x, 0);
        return y * y;
    }
    tkScratch<double, 256> v((dimension() + 7) / 8 * 8);
    for (std::size_t j = 0; j < dimension(); ++j)
        v[j] = deviation_(x, j);
    std::fill(v.begin() + dimension(), v.end(), 0.0);
#if TK_HAS_X86_TARGETS
    if (level == tkNMInstructions::Avx512)
        return squaredDistanceAVX512(w_, v.data());
    if (level == tkNMInstructions::Avx2)
        return squaredDistanceAVX2(w_, v.data());
#else
    static_cast<void>(level);
#endif
    return squaredDistanceOf<LanesOf<plainWidth>>(w_, v.data());
}

bool tkNMMahalanobis::isFiniteAt(const double* x) const
{
    for (std::size_t j = 0; j < dimension(); ++j)
        if (!std::isfinite(deviation_(x, j)))
            return false;
    return true;
}
