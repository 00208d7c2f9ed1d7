#include "numerics/tkNMTriangle.h"

#include <algorithm>
#include <cstring>
#include <iterator>

// Wider instructions than the target's own are used where the compiler can be told to and the processor has them.
// Contraction is off for the whole library, so that a wider level rounds exactly where the plain one does.
#if defined(__GNUC__) && defined(__x86_64__)
#define TK_WIDER_LEVELS 1
#else
#define TK_WIDER_LEVELS 0
#endif

#if defined(__GNUC__)
#define TK_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define TK_ALWAYS_INLINE inline
#endif

namespace
{
#if defined(__GNUC__)
using Lanes = double __attribute__((vector_size(64)));
#else
struct Lanes
{
    double lanes[8];
    double operator[](int l) const { return lanes[l]; }
    double& operator[](int l) { return lanes[l]; }
};
inline Lanes operator+(const Lanes& a, const Lanes& b)
{
    Lanes sum;
    for (int l = 0; l < 8; ++l)
        sum.lanes[l] = a.lanes[l] + b.lanes[l];
    return sum;
}
inline Lanes operator*(const Lanes& a, const Lanes& b)
{
    Lanes product;
    for (int l = 0; l < 8; ++l)
        product.lanes[l] = a.lanes[l] * b.lanes[l];
    return product;
}
inline Lanes operator*(const Lanes& a, double b)
{
    Lanes product;
    for (int l = 0; l < 8; ++l)
        product.lanes[l] = a.lanes[l] * b;
    return product;
}
#endif

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

/// On the diagonal, the rows above it drop out column by column: their zeros stay what they are.
TK_ALWAYS_INLINE void addProductTo(double* blocks, const double* a, const double* b, std::size_t dimension)
{
    Lanes* w = reinterpret_cast<Lanes*>(blocks);
    for (std::size_t first = 0; first < dimension; first += 8)
    {
        Lanes rows;
        std::memcpy(&rows, a + first, sizeof rows);
        for (std::size_t j = 0; j < first; ++j)
            w[j] = w[j] + rows * b[j];
        w += first;
        for (int l = 0; l < 8; ++l)
        {
            w[l] = w[l] + rows * b[first + static_cast<std::size_t>(l)];
            rows[l] = 0.0;
        }
        w += 8;
    }
}

void addProductPlain(double* blocks, const double* a, const double* b, std::size_t dimension)
{
    addProductTo(blocks, a, b, dimension);
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

__attribute__((target("avx2"))) void addProductAVX2(double* blocks, const double* a, const double* b,
                                                    std::size_t dimension)
{
    addProductTo(blocks, a, b, dimension);
}

__attribute__((target("avx512f"))) void addProductAVX512(double* blocks, const double* a, const double* b,
                                                         std::size_t dimension)
{
    addProductTo(blocks, a, b, dimension);
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

void tkNMTriangle::addProduct(const double* a, const double* b, Level level)
{
    double* blocks = blocks_.empty() ? nullptr : blocks_.front().rows;
#if TK_WIDER_LEVELS
    if (level == eAVX512)
        return addProductAVX512(blocks, a, b, dimension_);
    if (level == eAVX2)
        return addProductAVX2(blocks, a, b, dimension_);
#else
    static_cast<void>(level);
#endif
    addProductPlain(blocks, a, b, dimension_);
}

bool tkNMTriangle::operator==(const tkNMTriangle& other) const
{
    const auto haveEqualRows = [](const Column_& a, const Column_& b)
    { return std::equal(std::begin(a.rows), std::end(a.rows), std::begin(b.rows)); };
    return dimension_ == other.dimension_ &&
           std::equal(blocks_.begin(), blocks_.end(), other.blocks_.begin(), haveEqualRows);
}
