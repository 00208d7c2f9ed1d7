#include "numerics/tkNMTriangle.h"

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <iterator>

namespace
{
/// Eight rows and `columns` columns at a time, whose sums stay in registers: they hide the latency of an addition, and
/// share the rows' factors.
template <std::size_t width, std::size_t columns>
TK_ALWAYS_INLINE void addProductsTo(double* blocks, const double* a, const double* b, std::size_t count,
                                    std::size_t stride, std::size_t dimension)
{
    double* w = blocks;
    for (std::size_t first = 0; first < dimension; first += 8)
    {
        for (std::size_t j = 0; j < first + 8; j += columns, w += 8 * columns)
        {
            LanesOf<width> sums[columns];
            for (std::size_t c = 0; c < columns; ++c)
                sums[c].load(w + 8 * c);
            for (std::size_t k = 0; k < count; ++k)
            {
                LanesOf<width> rows;
                rows.load(a + k * stride + first);
                const double* const factors = b + k * stride + j;
                for (std::size_t c = 0; c < columns; ++c)
                    sums[c].addProduct(rows, factors[c]);
            }
            for (std::size_t c = 0; c < columns; ++c)
            {
                if (j >= first)
                    sums[c].keepFrom(j - first + c); // above the diagonal stand zeros
                sums[c].store(w + 8 * c);
            }
        }
    }
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 void addProductsAVX2(double* blocks, const double* a, const double* b, std::size_t count,
                                    std::size_t stride, std::size_t dimension)
{
    addProductsTo<4, 4>(blocks, a, b, count, stride, dimension);
}

TK_TARGET_AVX512 void addProductsAVX512(double* blocks, const double* a, const double* b, std::size_t count,
                                        std::size_t stride, std::size_t dimension)
{
    addProductsTo<8, 8>(blocks, a, b, count, stride, dimension);
}
#endif
} // namespace

tkNMTriangle::tkNMTriangle(std::size_t dimension) : dimension_(dimension), blocks_(offset_((dimension + 7) / 8)) {}

void tkNMTriangle::addProducts(const double* a, const double* b, std::size_t count, std::size_t stride,
                               tkNMInstructions instructions)
{
    double* blocks = blocks_.empty() ? nullptr : blocks_.front().rows;
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return addProductsAVX512(blocks, a, b, count, stride, dimension_);
    if (instructions == tkNMInstructions::Avx2)
        return addProductsAVX2(blocks, a, b, count, stride, dimension_);
#else
    static_cast<void>(instructions);
#endif
    addProductsTo<plainWidth, 2>(blocks, a, b, count, stride, dimension_);
}

bool tkNMTriangle::operator==(const tkNMTriangle& other) const
{
    const auto haveEqualRows = [](const Column_& a, const Column_& b)
    { return std::equal(std::begin(a.rows), std::end(a.rows), std::begin(b.rows)); };
    return dimension_ == other.dimension_ &&
           std::equal(blocks_.begin(), blocks_.end(), other.blocks_.begin(), haveEqualRows);
}
