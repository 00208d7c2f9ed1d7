#include "numerics/tkNMTriangle.h"

#include "numerics/tkNMLanes.h"

#include <algorithm>
#include <iterator>

namespace
{
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

#if TK_WIDER_LEVELS
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
