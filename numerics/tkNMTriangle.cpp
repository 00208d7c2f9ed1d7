#include "numerics/tkNMTriangle.h"

#include "numerics/tkNMLanes.h"

#include <algorithm>
#include <iterator>

namespace
{
/// Blocks are taken in fours: four sums of eight lanes hide the latency of an addition, and share each v_j.
TK_ALWAYS_INLINE double squaredLengthOf(const double* blocks, const double* v, std::size_t dimension)
{
    const Lanes* w = reinterpret_cast<const Lanes*>(blocks);
    Lanes squares = {};
    const std::size_t blockCount = (dimension + 7) / 8;
    std::size_t block = 0;
    for (; block + 4 <= blockCount; block += 4)
    {
        const std::size_t common = 8 * block;
        const Lanes* w0 = w;
        const Lanes* w1 = w0 + common + 8;
        const Lanes* w2 = w1 + common + 16;
        const Lanes* w3 = w2 + common + 24;
        Lanes y0 = {};
        Lanes y1 = {};
        Lanes y2 = {};
        Lanes y3 = {};
        std::size_t j = 0;
        for (; j < common + 8; ++j)
        {
            y0 = y0 + w0[j] * v[j];
            y1 = y1 + w1[j] * v[j];
            y2 = y2 + w2[j] * v[j];
            y3 = y3 + w3[j] * v[j];
        }
        for (; j < common + 16; ++j)
        {
            y1 = y1 + w1[j] * v[j];
            y2 = y2 + w2[j] * v[j];
            y3 = y3 + w3[j] * v[j];
        }
        for (; j < common + 24; ++j)
        {
            y2 = y2 + w2[j] * v[j];
            y3 = y3 + w3[j] * v[j];
        }
        for (const std::size_t end = std::min(common + 32, dimension); j < end; ++j)
            y3 = y3 + w3[j] * v[j];
        squares = squares + y0 * y0;
        squares = squares + y1 * y1;
        squares = squares + y2 * y2;
        squares = squares + y3 * y3;
        w = w3 + common + 32;
    }
    for (; block < blockCount; ++block)
    {
        const std::size_t end = std::min(8 * block + 8, dimension);
        Lanes y = {};
        for (std::size_t j = 0; j < end; ++j)
            y = y + w[j] * v[j];
        squares = squares + y * y;
        w += 8 * block + 8;
    }
    return ((squares[0] + squares[4]) + (squares[2] + squares[6])) +
           ((squares[1] + squares[5]) + (squares[3] + squares[7]));
}

/// Row l keeps what it has above the diagonal, in the columns behind l of its block: 0.0 is added there.
const double belowDiagonal[8][8] = {{1, 1, 1, 1, 1, 1, 1, 1}, {0, 1, 1, 1, 1, 1, 1, 1}, {0, 0, 1, 1, 1, 1, 1, 1},
                                    {0, 0, 0, 1, 1, 1, 1, 1}, {0, 0, 0, 0, 1, 1, 1, 1}, {0, 0, 0, 0, 0, 1, 1, 1},
                                    {0, 0, 0, 0, 0, 0, 1, 1}, {0, 0, 0, 0, 0, 0, 0, 1}};

/// Four columns at a time: four sums hide the latency of an addition, and share the rows' factors.
TK_ALWAYS_INLINE void addProductsTo(double* blocks, const double* a, const double* b, std::size_t count,
                                    std::size_t stride, std::size_t dimension)
{
    Lanes* w = reinterpret_cast<Lanes*>(blocks);
    for (std::size_t first = 0; first < dimension; first += 8)
    {
        for (std::size_t j = 0; j < first; j += 4)
        {
            Lanes w0 = w[j];
            Lanes w1 = w[j + 1];
            Lanes w2 = w[j + 2];
            Lanes w3 = w[j + 3];
            for (std::size_t k = 0; k < count; ++k)
            {
                Lanes rows;
                loadLanes(rows, a + k * stride + first);
                const double* const columns = b + k * stride + j;
                w0 = w0 + rows * columns[0];
                w1 = w1 + rows * columns[1];
                w2 = w2 + rows * columns[2];
                w3 = w3 + rows * columns[3];
            }
            w[j] = w0;
            w[j + 1] = w1;
            w[j + 2] = w2;
            w[j + 3] = w3;
        }
        w += first;
        for (std::size_t l = 0; l < 8; l += 2)
        {
            Lanes keep0;
            Lanes keep1;
            loadLanes(keep0, belowDiagonal[l]);
            loadLanes(keep1, belowDiagonal[l + 1]);
            Lanes w0 = w[l];
            Lanes w1 = w[l + 1];
            for (std::size_t k = 0; k < count; ++k)
            {
                Lanes rows;
                loadLanes(rows, a + k * stride + first);
                const double* const columns = b + k * stride + first + l;
                w0 = w0 + (rows * keep0) * columns[0];
                w1 = w1 + (rows * keep1) * columns[1];
            }
            w[l] = w0;
            w[l + 1] = w1;
        }
        w += 8;
    }
}

void addProductsPlain(double* blocks, const double* a, const double* b, std::size_t count, std::size_t stride,
                      std::size_t dimension)
{
    addProductsTo(blocks, a, b, count, stride, dimension);
}

double squaredLengthPlain(const double* blocks, const double* v, std::size_t dimension)
{
    return squaredLengthOf(blocks, v, dimension);
}

#if TK_WIDER_LEVELS
__attribute__((target("avx2"))) double squaredLengthAVX2(const double* blocks, const double* v, std::size_t dimension)
{
    return squaredLengthOf(blocks, v, dimension);
}

__attribute__((target("avx512f"))) double squaredLengthAVX512(const double* blocks, const double* v,
                                                              std::size_t dimension)
{
    return squaredLengthOf(blocks, v, dimension);
}

__attribute__((target("avx2"))) void addProductsAVX2(double* blocks, const double* a, const double* b,
                                                     std::size_t count, std::size_t stride, std::size_t dimension)
{
    addProductsTo(blocks, a, b, count, stride, dimension);
}

__attribute__((target("avx512f"))) void addProductsAVX512(double* blocks, const double* a, const double* b,
                                                          std::size_t count, std::size_t stride, std::size_t dimension)
{
    addProductsTo(blocks, a, b, count, stride, dimension);
}
#endif
} // namespace

tkNMTriangle::Level tkNMTriangle::bestLevel()
{
#if TK_WIDER_LEVELS
    return __builtin_cpu_supports("avx512f") ? eAVX512 : __builtin_cpu_supports("avx2") ? eAVX2 : ePlain;
#else
    return ePlain;
#endif
}

tkNMTriangle::tkNMTriangle(std::size_t dimension) : dimension_(dimension), blocks_(offset_((dimension + 7) / 8)) {}

double tkNMTriangle::squaredLength(const double* v, Level level) const
{
    // A single measurement is the commonest set; its one product needs no lanes: y_0² + 0 + ... is y_0².
    const double* blocks = blocks_.empty() ? nullptr : blocks_.front().rows;
    if (dimension_ == 1)
        return (blocks[0] * v[0]) * (blocks[0] * v[0]);
#if TK_WIDER_LEVELS
    if (level == eAVX512)
        return squaredLengthAVX512(blocks, v, dimension_);
    if (level == eAVX2)
        return squaredLengthAVX2(blocks, v, dimension_);
#else
    static_cast<void>(level);
#endif
    return squaredLengthPlain(blocks, v, dimension_);
}

void tkNMTriangle::addProducts(const double* a, const double* b, std::size_t count, std::size_t stride, Level level)
{
    double* blocks = blocks_.empty() ? nullptr : blocks_.front().rows;
#if TK_WIDER_LEVELS
    if (level == eAVX512)
        return addProductsAVX512(blocks, a, b, count, stride, dimension_);
    if (level == eAVX2)
        return addProductsAVX2(blocks, a, b, count, stride, dimension_);
#else
    static_cast<void>(level);
#endif
    addProductsPlain(blocks, a, b, count, stride, dimension_);
}

bool tkNMTriangle::operator==(const tkNMTriangle& other) const
{
    const auto haveEqualRows = [](const Column_& a, const Column_& b)
    { return std::equal(std::begin(a.rows), std::end(a.rows), std::begin(b.rows)); };
    return dimension_ == other.dimension_ &&
           std::equal(blocks_.begin(), blocks_.end(), other.blocks_.begin(), haveEqualRows);
}
