#include "numerics/tkNMWideDistances.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// |z - x|^2 - |g|^2 is a sum of parabolas x (x - 2 z) + constant, whose largest and smallest values over the bytes are
// known. The unit is 1/65535 of the difference of the sums of these. In units, then, no term exceeds the difference in
// its column, nor a partial sum 2 * 65535, so that rounding to floats, with relative errors of 2^-24, four to a term
// and one to an addition, moves the sum by (2 n + 6) 65535 2^-24 at most, which is less than the slack. Conversion to
// a whole number rounds down, or up to 0, which is never too much.

namespace
{
using Bytes = tkNMByteDistances;
using Line = Bytes::Line;
using Shape = tkNMWideDistances::Shape;

constexpr double largestSum = 65535.0;

void portableSums(const Shape& shape, const Line* block, std::uint16_t* sums)
{
    for (long row = 0; row < Bytes::blockRows; ++row)
    {
        float total = shape.offset;
        for (long c = 0; c < shape.columns; ++c)
        {
            const float x = block->bytes[Bytes::offset(shape.columns, row, c)];
            total += x * (x * shape.square + shape.linear[c]);
        }
        sums[row] = static_cast<std::uint16_t>(std::min(std::max(total, 0.0f), 65535.0f));
    }
}

void portableMinima(const Shape& shape, const Line* blocks, long count, std::uint16_t* minima)
{
    std::uint16_t sums[Bytes::blockRows];
    for (long i = 0; i < count; ++i)
    {
        portableSums(shape, blocks + i * shape.columns, sums);
        minima[i] = *std::min_element(sums, sums + Bytes::blockRows);
    }
}

#if TK_HAS_X86_TARGETS

// 16 rows.
using Floats = float __attribute__((vector_size(64)));
using Words = short __attribute__((vector_size(32)));
using Integers = int __attribute__((vector_size(64)));
using Sums = std::uint16_t __attribute__((vector_size(32)));

TK_ALWAYS_INLINE void addTerms(Floats& total, const Words& bytes, const Shape& shape, long column)
{
    const Floats x = __builtin_convertvector(bytes, Floats);
    total += x * (x * shape.square + shape.linear[column]);
}

// The totals of rows 16 r .. 16 r + 15.
TK_ALWAYS_INLINE void addUp(const Shape& shape, const Line* block, int r, Floats& total)
{
    const long pairs = shape.columns / 2;
    total = Floats{} + shape.offset;
    for (long pair = 0; pair < pairs; ++pair)
    {
        Words both; // of each row, the first column in the lower byte
        std::memcpy(&both, block[2 * pair + r / 2].bytes + r % 2 * 32, sizeof both);
        addTerms(total, (both << 8) >> 8, shape, 2 * pair);
        addTerms(total, both >> 8, shape, 2 * pair + 1);
    }
    if (shape.columns % 2 != 0)
    {
        Words single;
        for (int row = 0; row < 16; ++row)
            single[row] = block[2 * pairs].bytes[16 * r + row];
        addTerms(total, single, shape, 2 * pairs);
    }
    total = total < 0.0f ? Floats{} : total;
    total = total > 65535.0f ? Floats{} + 65535.0f : total;
}

TK_ALWAYS_INLINE void sumsOf(const Shape& shape, const Line* block, std::uint16_t* sums)
{
    for (int r = 0; r < 4; ++r)
    {
        Floats total;
        addUp(shape, block, r, total);
        const Sums whole = __builtin_convertvector(__builtin_convertvector(total, Integers), Sums);
        std::memcpy(sums + 16 * r, &whole, sizeof whole);
    }
}

TK_ALWAYS_INLINE void minimaOf(const Shape& shape, const Line* blocks, long count, std::uint16_t* minima)
{
    for (long i = 0; i < count; ++i)
    {
        Floats smallest = Floats{} + 65535.0f;
        for (int r = 0; r < 4; ++r)
        {
            Floats total;
            addUp(shape, blocks + i * shape.columns, r, total);
            smallest = total < smallest ? total : smallest;
        }
        float rows[16];
        std::memcpy(rows, &smallest, sizeof smallest);
        for (int half = 8; half > 0; half /= 2)
            for (int row = 0; row < half; ++row)
                rows[row] = rows[row + half] < rows[row] ? rows[row + half] : rows[row];
        minima[i] = static_cast<std::uint16_t>(rows[0]);
    }
}

// clang-format off
#define TK_LEVEL(name, attributes)                                                                                  \
    attributes void name##Sums(const Shape& shape, const Line* block, std::uint16_t* sums)                          \
    {                                                                                                               \
        sumsOf(shape, block, sums);                                                                                 \
    }                                                                                                               \
    attributes void name##Minima(const Shape& shape, const Line* blocks, long count, std::uint16_t* minima)         \
    {                                                                                                               \
        minimaOf(shape, blocks, count, minima);                                                                     \
    }
TK_LEVEL(sse2, )
TK_LEVEL(avx2, TK_TARGET_AVX2)
TK_LEVEL(avx512, TK_TARGET_AVX512)
// clang-format on

#endif

// The largest and the smallest value of x (x - 2 z) for x in [-127, 127].
double highest(double z)
{
    return 127.0 * (127.0 + 2.0 * std::fabs(z));
}
double lowest(double z)
{
    const double nearest = std::min(std::fabs(z), 127.0);
    return nearest * (nearest - 2.0 * std::fabs(z));
}
} // namespace

tkNMWideDistances::tkNMWideDistances(long columns, const double* query, const double* centres, double scale,
                                     tkNMInstructions instructions)
    : sums_(portableSums),
      minima_(portableMinima)
{
    TK_ASSERT(columns >= 1 && columns <= Bytes::maxColumns);
    double high = 0.0;
    double low = 0.0;
    for (long c = 0; c < columns; ++c)
    {
        const double z = (query[c] - centres[c]) * scale;
        high += highest(z);
        low += lowest(z);
    }
    unit_ = (high - low) / largestSum;
    shape_.columns = columns;
    shape_.square = static_cast<float>(1.0 / unit_);
    shape_.offset = static_cast<float>(-low / unit_);
    for (long c = 0; c < columns; ++c)
        shape_.linear[c] = static_cast<float>(-2.0 * ((query[c] - centres[c]) * scale) / unit_);
#if TK_HAS_X86_TARGETS
    switch (std::min(instructions, tkNMBestInstructions()))
    {
    case tkNMInstructions::Definition:
    case tkNMInstructions::Portable:
        break;
    case tkNMInstructions::Sse2:
        sums_ = sse2Sums;
        minima_ = sse2Minima;
        break;
    case tkNMInstructions::Avx2:
        sums_ = avx2Sums;
        minima_ = avx2Minima;
        break;
    case tkNMInstructions::Avx512:
        sums_ = avx512Sums;
        minima_ = avx512Minima;
        break;
    }
#else
    static_cast<void>(instructions);
#endif
}
