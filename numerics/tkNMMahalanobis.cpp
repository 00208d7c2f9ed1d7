#include "numerics/tkNMMahalanobis.h"

#include "foundation/tkScratch.h"
#include "numerics/tkNMLanes.h"

#include <algorithm>
#include <cmath>

// Up to four blocks of eight rows, one below the other, form a tile: four sums of eight lanes hide the latency of an
// addition, and share each v_j. With C columns in front of those on its diagonal, a tile of B blocks lies as
//
//     for each of the C columns: its part in each of the B blocks
//     for each block b: if b is even, the pair of diagonal blocks b and b + 1, or block b alone if it is the last;
//                       then for each of the eight columns of block b: its part in each of the blocks below b
//
// where a part is eight doubles. A pair is nine times eight doubles: column l of its first block stands in the lanes
// from l on of the l-th eight, column m of its second in the lanes before 8 - m of the (8 - m)-th. Counted from
// 64 - 9 m, where the lanes of another eight precede it, each row of the latter stands in its own lane.

namespace
{
constexpr std::size_t tileBlocks = 4;

/// Where eight doubles are stored that are read one by one soon after: crossing a cache line, they would wait for it.
struct alignas(64) Part
{
    double elements[8];
};

/// Offset of column l of the diagonal block b, counted from its pair.
constexpr std::size_t diagonalColumn(std::size_t b, std::size_t l)
{
    return b % 2 == 0 ? 8 * l : 64 - 9 * l;
}

/// Adds the columns of block c, and goes on with those behind it; returns what follows the tile. Of a tile of one
/// block, which small sets are, only `last` columns are not 0.0.
template <std::size_t blocks, std::size_t c, class Eight>
TK_ALWAYS_INLINE const double* addDiagonals(const double* w, const double* pair, const double* v, std::size_t last,
                                            Eight* y)
{
    if constexpr (c % 2 == 0)
    {
        pair = w;
        w += c + 1 < blocks ? 72 : 64;
    }
    for (std::size_t l = 0; l < (blocks > 1 ? 8 : last); ++l)
    {
        Eight part;
        part.load(pair + diagonalColumn(c, l));
        part.keepFrom(l);
        y[c].addProduct(part, v[l]);
        for (std::size_t b = c + 1; b < blocks; ++b, w += 8)
        {
            part.load(w);
            y[b].addProduct(part, v[l]);
        }
    }
    if constexpr (c + 1 < blocks)
        return addDiagonals<blocks, c + 1>(w, pair, v + 8, last, y);
    else
        return w;
}

/// Adds the squares of the sums of a tile, and returns what follows it.
template <std::size_t blocks, class Eight>
TK_ALWAYS_INLINE const double* addTile(const double* w, const double* v, std::size_t common, std::size_t last,
                                       Eight& squares)
{
    Eight y[blocks];
    for (Eight& sum : y)
        sum.clear();
    for (std::size_t j = 0; j < common; ++j, w += 8 * blocks)
        for (std::size_t b = 0; b < blocks; ++b)
        {
            Eight part;
            part.load(w + 8 * b);
            y[b].addProduct(part, v[j]);
        }
    w = addDiagonals<blocks, 0>(w, nullptr, v + common, last, y);
    for (const Eight& sum : y)
        squares.addSquare(sum);
    return w;
}

template <class Eight>
TK_ALWAYS_INLINE double squaredDistanceOf(const double* stream, const double* x, std::size_t dimension)
{
    const std::size_t blockCount = (dimension + 7) / 8;
    tkScratch<Part, 32> deviations(blockCount);
    double* const v = deviations.data()->elements;
    const double* const remainders = stream + 8 * blockCount;
    Eight squares;
    squares.clear();
    std::size_t j = 0;
    for (; j + 8 <= dimension; j += 8)
    {
        Eight deviation;
        deviation.load(x + j);
        Eight part;
        part.load(stream + j);
        deviation.subtract(part);
        part.load(remainders + j);
        deviation.subtract(part);
        deviation.store(v + j);
    }
    if (j < dimension)
        squares.store(v + j); // zeros
    for (; j < dimension; ++j)
        v[j] = (x[j] - stream[j]) - remainders[j];

    const double* w = remainders + 8 * blockCount;
    std::size_t block = 0;
    for (; block + tileBlocks <= blockCount; block += tileBlocks)
        w = addTile<tileBlocks>(w, v, 8 * block, 8, squares);
    const std::size_t last = dimension - (8 * blockCount - 8);
    if (blockCount - block == 3)
        addTile<3>(w, v, 8 * block, last, squares);
    else if (blockCount - block == 2)
        addTile<2>(w, v, 8 * block, last, squares);
    else if (blockCount - block == 1)
        addTile<1>(w, v, 8 * block, last, squares);
    return ((squares[0] + squares[4]) + (squares[2] + squares[6])) +
           ((squares[1] + squares[5]) + (squares[3] + squares[7]));
}

double squaredDistancePlain(const double* stream, const double* x, std::size_t dimension)
{
    return squaredDistanceOf<LanesOf<plainWidth>>(stream, x, dimension);
}

#if TK_WIDER_LEVELS
__attribute__((target("avx2"))) double squaredDistanceAVX2(const double* stream, const double* x, std::size_t dimension)
{
    return squaredDistanceOf<LanesOf<4>>(stream, x, dimension);
}

__attribute__((target("avx512f"))) double squaredDistanceAVX512(const double* stream, const double* x,
                                                                std::size_t dimension)
{
    return squaredDistanceOf<LanesOf<8>>(stream, x, dimension);
}
#endif
} // namespace

tkNMMahalanobis::tkNMMahalanobis(const std::vector<double>& mean, const std::vector<double>& remainder,
                                 const tkNMTriangle& w)
    : dimension_(w.dimension())
{
    const std::size_t blockCount = (dimension_ + 7) / 8;
    stream_.resize(blockCount * 2 + blockCount * (blockCount - 1) * 4 + blockCount / 2 * 9 + blockCount % 2 * 8);
    if (blockCount == 0)
        return;
    double* place = stream_.front().elements;
    std::copy(mean.begin(), mean.end(), place);
    place += 8 * blockCount;
    std::copy(remainder.begin(), remainder.end(), place);
    place += 8 * blockCount;

    const auto element = [&w](std::size_t i, std::size_t j) { return i < w.dimension() && j <= i ? w(i, j) : 0.0; };
    const auto putParts = [&](std::size_t column, std::size_t fromBlock, std::size_t toBlock)
    {
        for (std::size_t i = 8 * fromBlock; i < 8 * toBlock; ++i)
            *place++ = element(i, column);
    };
    for (std::size_t first = 0; first < blockCount; first += tileBlocks)
    {
        const std::size_t end = std::min(first + tileBlocks, blockCount);
        for (std::size_t j = 0; j < 8 * first; ++j)
            putParts(j, first, end);
        for (std::size_t b = first; b < end; ++b)
        {
            if ((b - first) % 2 == 0)
            {
                for (std::size_t i = 8 * b; i < 8 * std::min(b + 2, end); ++i)
                    for (std::size_t j = i / 8 * 8; j <= i; ++j)
                        place[diagonalColumn(i / 8 - b, j % 8) + i % 8] = element(i, j);
                place += b + 1 < end ? 72 : 64;
            }
            for (std::size_t j = 8 * b; j < 8 * b + 8; ++j)
                putParts(j, b + 1, end);
        }
    }
}

double tkNMMahalanobis::squaredDistance(const double* x, tkNMTriangle::Level level) const
{
    if (dimension_ == 0)
        return 0.0;
    const double* const stream = stream_.front().elements;
    if (dimension_ == 1)
    {
        const double y = stream[16] * ((*x - stream[0]) - stream[8]);
        return y * y;
    }
#if TK_WIDER_LEVELS
    if (level == tkNMTriangle::eAVX512)
        return squaredDistanceAVX512(stream, x, dimension_);
    if (level == tkNMTriangle::eAVX2)
        return squaredDistanceAVX2(stream, x, dimension_);
#else
    static_cast<void>(level);
#endif
    return squaredDistancePlain(stream, x, dimension_);
}

bool tkNMMahalanobis::isFiniteAt(const double* x) const
{
    const double* const means = stream_.empty() ? nullptr : stream_.front().elements;
    const double* const remainders = means + (dimension_ + 7) / 8 * 8;
    for (std::size_t j = 0; j < dimension_; ++j)
        if (!std::isfinite((x[j] - means[j]) - remainders[j]))
            return false;
    return true;
}
