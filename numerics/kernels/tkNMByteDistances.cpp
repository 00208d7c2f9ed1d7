#include "numerics/kernels/tkNMByteDistances.h"

#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#if TK_HAS_X86_TARGETS
#include <immintrin.h>
#endif
#if TK_HAS_NEON
#include <arm_neon.h>
#endif

namespace
{
using Bytes = tkNMByteDistances;
using Line = Bytes::Line;
using Query = Bytes::Query;
using Shape = Bytes::Shape;

constexpr long groupPairs = 8;
constexpr std::uintptr_t readAhead = 8192; // bytes: processors by themselves look ahead less, and never past a page

// Blocks are mostly allocated one after the other, so that what follows the last one is usually the next one to come.
inline void prefetchAhead(const void* bytes)
{
    const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(bytes) + readAhead; // may lie beyond the array
    tkPrefetch(reinterpret_cast<const void*>(ahead)); // NOLINT(performance-no-int-to-ptr)
}

// ---- any processor --------------------------------------------------------------------------------------------------

template <int power>
unsigned term(int q, int x)
{
    const unsigned d = static_cast<unsigned>(std::min(std::abs(q - x), 127));
    return power == 2 ? d * d : d;
}

template <int power>
void portableSums(const Shape& shape, const Line* block, const Query& query, std::uint16_t* sums)
{
    const long pairs = shape.columns / 2;
    for (long row = 0; row < Bytes::blockRows; ++row)
    {
        unsigned total = 0;
        unsigned group = 0;
        if (shape.columns % 2 != 0)
            group = term<power>(query.bytes[2 * pairs], block[2 * pairs].bytes[row]);
        for (long first = 0; first == 0 || first < pairs; first += groupPairs)
        {
            for (long pair = first; pair < std::min(first + groupPairs, pairs); ++pair)
            {
                const std::int8_t* x = &block[2 * pair + row / 32].bytes[row % 32 * 2];
                group += term<power>(query.bytes[2 * pair], x[0]) + term<power>(query.bytes[2 * pair + 1], x[1]);
            }
            total += std::min(group, 65535u) >> shape.shift;
            group = 0;
        }
        sums[row] = static_cast<std::uint16_t>(total);
    }
}

template <int power>
void portableMinima(const Shape& shape, const Line* blocks, long count, const Query& query, std::uint16_t* minima)
{
    std::uint16_t sums[Bytes::blockRows];
    for (long i = 0; i < count; ++i)
    {
        portableSums<power>(shape, blocks + i * shape.columns, query, sums);
        minima[i] = *std::min_element(sums, sums + Bytes::blockRows);
    }
}

// In what follows a register of 16-bit sums holds consecutive rows; `totals` are the registers of a whole block.

#if TK_HAS_X86_TARGETS

// ---- SSE2: what every x86-64 processor has --------------------------------------------------------------------------

#define TK_SSE2 [[gnu::always_inline]] inline

// The terms of 8 rows from 16-bit differences, which stand for bytes in [-127, 127].
template <int power>
TK_SSE2 __m128i sse2Terms(__m128i d)
{
    return power == 2 ? _mm_mullo_epi16(d, d) : _mm_max_epi16(d, _mm_sub_epi16(_mm_setzero_si128(), d));
}

// Differences of bytes, kept within [-127, 127]: the subtraction saturates, and taking 1 away and giving it back
// moves nothing but -128.
TK_SSE2 __m128i sse2Difference(__m128i q, const void* x)
{
    const __m128i one = _mm_set1_epi8(1);
    const __m128i d = _mm_subs_epi8(q, _mm_load_si128(static_cast<const __m128i*>(x)));
    return _mm_adds_epi8(_mm_subs_epi8(d, one), one);
}

template <int power>
TK_SSE2 void sse2Totals(const Shape& shape, const Line* block, const Query& query, __m128i* totals)
{
    const long pairs = shape.columns / 2;
    const __m128i shift = _mm_cvtsi32_si128(shape.shift);
    for (int half = 0; half < 2; ++half, totals += 4)
    {
        __m128i group[4] = {};
        if (shape.columns % 2 != 0)
        {
            const __m128i q = _mm_set1_epi8(query.bytes[2 * pairs]);
            for (int r = 0; r < 2; ++r)
            {
                const __m128i d = sse2Difference(q, block[2 * pairs].bytes + 32 * half + 16 * r);
                group[2 * r] = sse2Terms<power>(_mm_srai_epi16(_mm_unpacklo_epi8(d, d), 8));
                group[2 * r + 1] = sse2Terms<power>(_mm_srai_epi16(_mm_unpackhi_epi8(d, d), 8));
            }
        }
        for (int r = 0; r < 4; ++r)
            totals[r] = _mm_setzero_si128();
        for (long first = 0; first == 0 || first < pairs; first += groupPairs)
        {
            for (long pair = first; pair < std::min(first + groupPairs, pairs); ++pair)
            {
                const __m128i q = _mm_set1_epi32(static_cast<int>(query.pairs[pair]));
                for (int r = 0; r < 4; ++r)
                {
                    const __m128i d = sse2Difference(q, block[2 * pair + half].bytes + 16 * r);
                    const __m128i even = sse2Terms<power>(_mm_srai_epi16(_mm_slli_epi16(d, 8), 8));
                    const __m128i odd = sse2Terms<power>(_mm_srai_epi16(d, 8));
                    group[r] = _mm_adds_epu16(group[r], _mm_add_epi16(even, odd));
                }
            }
            for (int r = 0; r < 4; ++r)
            {
                totals[r] = _mm_add_epi16(totals[r], _mm_srl_epi16(group[r], shift));
                group[r] = _mm_setzero_si128();
            }
        }
    }
}

TK_SSE2 __m128i sse2Smaller(__m128i a, __m128i b)
{
    return _mm_sub_epi16(a, _mm_subs_epu16(a, b));
}

template <int power>
void sse2Sums(const Shape& shape, const Line* block, const Query& query, std::uint16_t* sums)
{
    __m128i totals[8];
    sse2Totals<power>(shape, block, query, totals);
    std::memcpy(sums, totals, sizeof totals);
}

template <int power>
void sse2Minima(const Shape& shape, const Line* blocks, long count, const Query& query, std::uint16_t* minima)
{
    for (long i = 0; i < count; ++i)
    {
        __m128i totals[8];
        sse2Totals<power>(shape, blocks + i * shape.columns, query, totals);
        __m128i m = totals[0];
        for (int r = 1; r < 8; ++r)
            m = sse2Smaller(m, totals[r]);
        m = sse2Smaller(m, _mm_srli_si128(m, 8));
        m = sse2Smaller(m, _mm_srli_si128(m, 4));
        m = sse2Smaller(m, _mm_srli_si128(m, 2));
        minima[i] = static_cast<std::uint16_t>(_mm_extract_epi16(m, 0));
    }
}

// ---- AVX2 -----------------------------------------------------------------------------------------------------------

#define TK_AVX2_INLINE [[gnu::always_inline]] TK_TARGET_AVX2 inline

template <int power, bool ahead = false>
TK_AVX2_INLINE void avx2Totals(const Shape& shape, const Line* block, const Query& query, __m256i* totals)
{
    const long pairs = shape.columns / 2;
    const __m128i shift = _mm_cvtsi32_si128(shape.shift);
    const __m256i one = _mm256_set1_epi8(1);
    const __m256i lowest = _mm256_set1_epi8(-127);
    __m256i group[4] = {};
    if (shape.columns % 2 != 0)
    {
        const __m256i q = _mm256_set1_epi16(query.bytes[2 * pairs]);
        for (int r = 0; r < 4; ++r)
        {
            const void* x = block[2 * pairs].bytes + 16 * r;
            __m256i d = _mm256_sub_epi16(q, _mm256_cvtepi8_epi16(_mm_load_si128(static_cast<const __m128i*>(x))));
            d = _mm256_min_epi16(_mm256_abs_epi16(d), _mm256_set1_epi16(127));
            group[r] = power == 2 ? _mm256_mullo_epi16(d, d) : d;
        }
    }
    for (int r = 0; r < 4; ++r)
        totals[r] = _mm256_setzero_si256();
    for (long first = 0; first == 0 || first < pairs; first += groupPairs)
    {
        for (long pair = first; pair < std::min(first + groupPairs, pairs); ++pair)
        {
            const __m256i q = _mm256_set1_epi32(static_cast<int>(query.pairs[pair]));
            if (ahead)
            {
                prefetchAhead(block + 2 * pair);
                prefetchAhead(block + 2 * pair + 1);
            }
            for (int r = 0; r < 4; ++r)
            {
                const void* x = block[2 * pair + r / 2].bytes + r % 2 * 32;
                __m256i d = _mm256_subs_epi8(q, _mm256_load_si256(static_cast<const __m256i*>(x)));
                d = _mm256_abs_epi8(_mm256_max_epi8(d, lowest));
                group[r] = _mm256_adds_epu16(group[r], _mm256_maddubs_epi16(d, power == 2 ? d : one));
            }
        }
        for (int r = 0; r < 4; ++r)
        {
            totals[r] = _mm256_add_epi16(totals[r], _mm256_srl_epi16(group[r], shift));
            group[r] = _mm256_setzero_si256();
        }
    }
}

template <int power>
TK_TARGET_AVX2 void avx2Sums(const Shape& shape, const Line* block, const Query& query, std::uint16_t* sums)
{
    __m256i totals[4];
    avx2Totals<power>(shape, block, query, totals);
    std::memcpy(sums, totals, sizeof totals);
}

TK_AVX2_INLINE std::uint16_t avx2Smallest(__m256i totals)
{
    const __m128i m = _mm_min_epu16(_mm256_castsi256_si128(totals), _mm256_extracti128_si256(totals, 1));
    return static_cast<std::uint16_t>(_mm_extract_epi16(_mm_minpos_epu16(m), 0));
}

template <int power>
TK_TARGET_AVX2 void avx2Minima(const Shape& shape, const Line* blocks, long count, const Query& query,
                               std::uint16_t* minima)
{
    for (long i = 0; i < count; ++i)
    {
        __m256i totals[4];
        avx2Totals<power, true>(shape, blocks + i * shape.columns, query, totals);
        minima[i] = avx2Smallest(
            _mm256_min_epu16(_mm256_min_epu16(totals[0], totals[1]), _mm256_min_epu16(totals[2], totals[3])));
    }
}

// ---- AVX-512 --------------------------------------------------------------------------------------------------------

#define TK_AVX512_INLINE [[gnu::always_inline]] TK_TARGET_AVX512 inline

template <int power, bool ahead>
TK_AVX512_INLINE void avx512AddPair(const Line* lines, std::uint32_t columns, __m512i* group)
{
    const __m512i q = _mm512_set1_epi32(static_cast<int>(columns));
    for (int r = 0; r < 2; ++r)
    {
        if (ahead)
            prefetchAhead(lines + r);
        __m512i d = _mm512_subs_epi8(q, _mm512_load_si512(lines[r].bytes));
        d = _mm512_abs_epi8(_mm512_max_epi8(d, _mm512_set1_epi8(-127)));
        group[r] = _mm512_adds_epu16(group[r], _mm512_maddubs_epi16(d, power == 2 ? d : _mm512_set1_epi8(1)));
    }
}

template <int power, bool ahead = false>
TK_AVX512_INLINE void avx512Totals(const Shape& shape, const Line* block, const Query& query, __m512i* totals)
{
    const long pairs = shape.columns / 2;
    const __m128i shift = _mm_cvtsi32_si128(shape.shift);
    __m512i group[2] = {};
    if (shape.columns % 2 != 0)
    {
        const __m512i q = _mm512_set1_epi16(query.bytes[2 * pairs]);
        for (int r = 0; r < 2; ++r)
        {
            const void* x = block[2 * pairs].bytes + 32 * r;
            __m512i d = _mm512_sub_epi16(q, _mm512_cvtepi8_epi16(_mm256_load_si256(static_cast<const __m256i*>(x))));
            d = _mm512_min_epi16(_mm512_abs_epi16(d), _mm512_set1_epi16(127));
            group[r] = power == 2 ? _mm512_mullo_epi16(d, d) : d;
        }
    }
    for (int r = 0; r < 2; ++r)
        totals[r] = _mm512_setzero_si512();
    for (long first = 0; first == 0 || first < pairs; first += groupPairs)
    {
        const long end = std::min(first + groupPairs, pairs);
        long pair = first;
        for (; pair + 4 <= end; pair += 4) // by hand: where a loop of one pair comes to stand shows in its time
            for (long p = pair; p < pair + 4; ++p)
                avx512AddPair<power, ahead>(block + 2 * p, query.pairs[p], group);
        for (; pair < end; ++pair)
            avx512AddPair<power, ahead>(block + 2 * pair, query.pairs[pair], group);
        for (int r = 0; r < 2; ++r)
        {
            totals[r] = _mm512_add_epi16(totals[r], _mm512_srl_epi16(group[r], shift));
            group[r] = _mm512_setzero_si512();
        }
    }
}

template <int power>
TK_TARGET_AVX512 void avx512Sums(const Shape& shape, const Line* block, const Query& query, std::uint16_t* sums)
{
    __m512i totals[2];
    avx512Totals<power>(shape, block, query, totals);
    std::memcpy(sums, totals, sizeof totals);
}

template <int power>
TK_TARGET_AVX512 void avx512Minima(const Shape& shape, const Line* blocks, long count, const Query& query,
                                   std::uint16_t* minima)
{
    for (long i = 0; i < count; ++i)
    {
        __m512i totals[2];
        avx512Totals<power, true>(shape, blocks + i * shape.columns, query, totals);
        __m256i halves[2];
        totals[0] = _mm512_min_epu16(totals[0], totals[1]);
        std::memcpy(halves, totals, sizeof halves);
        minima[i] = avx2Smallest(_mm256_min_epu16(halves[0], halves[1]));
    }
}

#endif

#if TK_HAS_NEON

// ---- NEON: what every 64-bit ARM processor has ----------------------------------------------------------------------

#define TK_NEON [[gnu::always_inline]] inline

// min(|q - x|, 127): the subtraction saturates, and so does the negation of -128.
TK_NEON uint8x16_t neonDistance(int8x16_t q, const std::int8_t* x)
{
    return vreinterpretq_u8_s8(vqabsq_s8(vqsubq_s8(q, vld1q_s8(x))));
}

// The terms of 8 rows of one column.
template <int power>
TK_NEON uint16x8_t neonTerms(uint8x8_t d)
{
    return power == 2 ? vmull_u8(d, d) : vmovl_u8(d);
}

// Sums of the terms of a pair of columns, of 8 rows.
template <int power>
TK_NEON uint16x8_t neonPairTerms(uint8x16_t d)
{
    if constexpr (power == 2)
        return vpaddq_u16(neonTerms<2>(vget_low_u8(d)), neonTerms<2>(vget_high_u8(d)));
    else
        return vpaddlq_u8(d);
}

template <int power>
TK_NEON void neonTotals(const Shape& shape, const Line* block, const Query& query, uint16x8_t* totals)
{
    const long pairs = shape.columns / 2;
    const int16x8_t shift = vdupq_n_s16(static_cast<std::int16_t>(-shape.shift));
    uint16x8_t group[8];
    for (int r = 0; r < 8; ++r)
        totals[r] = group[r] = vdupq_n_u16(0);
    if (shape.columns % 2 != 0)
    {
        const int8x16_t q = vdupq_n_s8(query.bytes[2 * pairs]);
        for (int r = 0; r < 4; ++r)
        {
            const uint8x16_t d = neonDistance(q, block[2 * pairs].bytes + 16 * r);
            group[2 * r] = neonTerms<power>(vget_low_u8(d));
            group[2 * r + 1] = neonTerms<power>(vget_high_u8(d));
        }
    }
    for (long first = 0; first == 0 || first < pairs; first += groupPairs)
    {
        for (long pair = first; pair < std::min(first + groupPairs, pairs); ++pair)
        {
            const int8x16_t q = vreinterpretq_s8_u32(vdupq_n_u32(query.pairs[pair]));
            for (int r = 0; r < 8; ++r)
            {
                const uint8x16_t d = neonDistance(q, block[2 * pair + r / 4].bytes + r % 4 * 16);
                group[r] = vqaddq_u16(group[r], neonPairTerms<power>(d));
            }
        }
        for (int r = 0; r < 8; ++r)
        {
            totals[r] = vaddq_u16(totals[r], vshlq_u16(group[r], shift)); // to the right: the shift is negative
            group[r] = vdupq_n_u16(0);
        }
    }
}

template <int power>
void neonSums(const Shape& shape, const Line* block, const Query& query, std::uint16_t* sums)
{
    uint16x8_t totals[8];
    neonTotals<power>(shape, block, query, totals);
    std::memcpy(sums, totals, sizeof totals);
}

template <int power>
void neonMinima(const Shape& shape, const Line* blocks, long count, const Query& query, std::uint16_t* minima)
{
    for (long i = 0; i < count; ++i)
    {
        uint16x8_t totals[8];
        neonTotals<power>(shape, blocks + i * shape.columns, query, totals);
        uint16x8_t m = totals[0];
        for (int r = 1; r < 8; ++r)
            m = vminq_u16(m, totals[r]);
        minima[i] = vminvq_u16(m);
    }
}

#endif

template <int power>
void choose(tkNMInstructions instructions, void (*&sums)(const Shape&, const Line*, const Query&, std::uint16_t*),
            void (*&minima)(const Shape&, const Line*, long, const Query&, std::uint16_t*))
{
    sums = portableSums<power>;
    minima = portableMinima<power>;
#if TK_HAS_X86_TARGETS
    switch (instructions)
    {
    case tkNMInstructions::Definition:
    case tkNMInstructions::Portable:
        break;
    case tkNMInstructions::Sse2:
        sums = sse2Sums<power>;
        minima = sse2Minima<power>;
        break;
    case tkNMInstructions::Avx2:
        sums = avx2Sums<power>;
        minima = avx2Minima<power>;
        break;
    case tkNMInstructions::Avx512:
        sums = avx512Sums<power>;
        minima = avx512Minima<power>;
        break;
    }
#elif TK_HAS_NEON
    if (instructions == tkNMInstructions::Neon)
    {
        sums = neonSums<power>;
        minima = neonMinima<power>;
    }
#else
    static_cast<void>(instructions);
#endif
}
} // namespace

tkNMByteDistances::tkNMByteDistances(long columns, int power, tkNMInstructions instructions) : shape_{columns, 0}
{
    TK_ASSERT(columns >= 1 && columns <= maxColumns && (power == 1 || power == 2));
    // A group of absolute differences is at most 17 * 127, one of squares at most 65535 because it saturates there.
    const long groups = (columns / 2 + groupPairs - 1) / groupPairs;
    const long headroom = power == 1 ? 32 : 1;
    while (groups > headroom << shape_.shift)
        ++shape_.shift;
    instructions = std::min(instructions, tkNMBestInstructions());
    if (power == 1)
        choose<1>(instructions, sums_, minima_);
    else
        choose<2>(instructions, sums_, minima_);
}

std::uint64_t tkNMByteDistances::rowsUpTo(std::uint16_t highest, const std::uint16_t* sums)
{
    std::uint64_t rows = 0;
#if TK_HAS_X86_TARGETS
    const __m128i limit = _mm_set1_epi16(static_cast<short>(highest));
    const auto excess = [&](const std::uint16_t* eight) // 0 for the rows that are wanted
    { return _mm_subs_epu16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(eight)), limit); };
    for (int first = 0; first < blockRows; first += 16)
    {
        const __m128i both = _mm_packs_epi16(excess(sums + first), excess(sums + first + 8)); // no 0 but from 0
        const int wanted = _mm_movemask_epi8(_mm_cmpeq_epi8(both, _mm_setzero_si128()));
        rows |= static_cast<std::uint64_t>(wanted) << first;
    }
#elif TK_HAS_NEON
    static constexpr std::uint16_t bits[8] = {1, 2, 4, 8, 16, 32, 64, 128};
    const uint16x8_t limit = vdupq_n_u16(highest);
    for (int first = 0; first < blockRows; first += 8)
    {
        const uint16x8_t wanted = vandq_u16(vcleq_u16(vld1q_u16(sums + first), limit), vld1q_u16(bits));
        rows |= static_cast<std::uint64_t>(vaddvq_u16(wanted)) << first;
    }
#else
    for (int row = 0; row < blockRows; ++row)
        rows |= static_cast<std::uint64_t>(sums[row] <= highest) << row;
#endif
    return rows;
}

void tkNMByteDistances::prepare(Query& query) const
{
    for (long pair = 0; pair < shape_.columns / 2; ++pair)
    {
        std::uint16_t both;
        std::memcpy(&both, query.bytes + 2 * pair, sizeof both);
        query.pairs[pair] = both * 0x10001u;
    }
}
