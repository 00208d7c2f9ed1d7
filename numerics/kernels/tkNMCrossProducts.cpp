#include "numerics/kernels/tkNMCrossProducts.h"

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

namespace
{
/// Eight rows and `columns` columns at a time, whose sums stay in registers: they hide the latency of an addition, and
/// share the rows' factors.
template <std::size_t width, std::size_t columns>
TK_ALWAYS_INLINE void addCrossProducts(double* blocks, const double* a, const double* b, std::size_t count,
                                       std::size_t stride, std::size_t dimension)
{
    double* s = blocks;
    for (std::size_t first = 0; first < dimension; first += 8)
    {
        for (std::size_t j = 0; j < first + 8; j += columns, s += 8 * columns)
        {
            LanesOf<width> sums[columns];
            for (std::size_t c = 0; c < columns; ++c)
                sums[c].load(s + 8 * c);
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
                    sums[c].keepFrom(j - first + c); // zeros stand above the diagonal
                sums[c].store(s + 8 * c);
            }
        }
    }
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 void addCrossProductsAvx2(double* blocks, const double* a, const double* b, std::size_t count,
                                         std::size_t stride, std::size_t dimension)
{
    addCrossProducts<4, 4>(blocks, a, b, count, stride, dimension);
}

TK_TARGET_AVX512 void addCrossProductsAvx512(double* blocks, const double* a, const double* b, std::size_t count,
                                             std::size_t stride, std::size_t dimension)
{
    addCrossProducts<8, 8>(blocks, a, b, count, stride, dimension);
}
#endif
} // namespace

void tkNMAddCrossProducts(tkNMTriangle& s, const double* a, const double* b, std::size_t count, std::size_t stride,
                          tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return addCrossProductsAvx512(s.blocks(), a, b, count, stride, s.dimension());
    if (instructions == tkNMInstructions::Avx2)
        return addCrossProductsAvx2(s.blocks(), a, b, count, stride, s.dimension());
#endif
    static_cast<void>(instructions);
    addCrossProducts<plainWidth, 2>(s.blocks(), a, b, count, stride, s.dimension());
}
