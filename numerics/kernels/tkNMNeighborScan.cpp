#include "numerics/kernels/tkNMNeighborScan.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/kernels/tkNMNormPower.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

// How the k smallest keys are found. Rows are taken in chunks. Of each group of four rows the smallest key is kept.
//
// For a set of few neighbours in one chunk, minima are taken of minima until 32 are left. Of these the k smallest are
// sorted out, then of their four entries each the k smallest, and so on down to the rows. What is sorted carries its
// position in its last bits. If the rows that were left out at any level are farther by more than these bits and the
// roundings, the k rows are the set.
//
// For lists, more neighbours and more rows, a key that k groups do not exceed bounds the k-th smallest key, and is
// found by bisection. The rows up to this bound are the candidates. If just k candidates are left within the rounding
// of the k-th key, they are the set.
//
// What is not decided so, the definition decides among the rows up to the k-th key and its rounding.

namespace
{
using Bits = std::uint64_t;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double beyond = 1e91;          // farther from any query than a row can be
constexpr double largestKey = 1e300;     // larger ones may have overflowed
constexpr double smallestKey = 0x1p-960; // tkNMNormPower::upperKey() distinguishes no smaller ones
constexpr long lanes = 8;
constexpr long groupRows = 4;
constexpr long blockRows = lanes * groupRows; // rows l, l + 8, l + 16, l + 24 are a group
constexpr long chunkBlocks = 64;
constexpr long chunkRows = chunkBlocks * blockRows;
constexpr long mostCandidates = 1024;
constexpr long mostSelected = 128; // larger k are left to the list
constexpr long fewBlocks = 4;
constexpr long mostSorted = 7; // neighbours
constexpr Bits positionBits = chunkRows - 1;

/// The keys of one chunk.
struct Chunk
{
    alignas(64) double keys[chunkRows];
    alignas(64) double minima[chunkRows / groupRows];                     // of block b and lane l at 8 b + l
    alignas(64) double minimaOfMinima[chunkRows / groupRows / groupRows]; // of those, likewise
    alignas(64) double highest[chunkRows / groupRows / groupRows / groupRows];
};
static_assert(sizeof Chunk::highest == blockRows * sizeof(double));

long roundUp(long count)
{
    return (count + lanes - 1) / lanes * lanes;
}

// ---- one source for all instruction sets ----------------------------------------------------------------------------

template <std::size_t width>
TK_ALWAYS_INLINE void takeMinima(const double* keys, double* minima)
{
    using Register = typename RegisterOf<double, width>::Type;
    for (long l = 0; l < lanes; l += width)
    {
        Register smallest;
        loadRegister(smallest, keys + l);
        for (long r = lanes; r < blockRows; r += lanes)
        {
            Register other;
            loadRegister(other, keys + l + r);
            smallest = other < smallest ? other : smallest;
        }
        storeRegister(smallest, minima + l);
    }
}

template <std::size_t width, tkNMNormPower::Kind kind>
TK_ALWAYS_INLINE void takeTerm(const tkNMNormPower& power, const double* measurements, double query,
                               typename RegisterOf<double, width>::Type& term)
{
    loadRegister(term, measurements);
    term = term - query;
    raiseDifference<width, kind>(power, term);
}

template <std::size_t width, tkNMNormPower::Kind kind>
TK_ALWAYS_INLINE void fillChunk(const double* block, long count, const double* query, long n,
                                const tkNMNormPower& power, Chunk& chunk)
{
    using Register = typename RegisterOf<double, width>::Type;
    constexpr long atOnce = std::min<long>(blockRows, 8 * width);
    for (long b = 0; b < count; ++b, block += n * blockRows)
    {
        double* const keys = chunk.keys + b * blockRows;
        for (long first = 0; first < blockRows; first += atOnce)
        {
            Register sums[atOnce / width];
            for (std::size_t i = 0; i < atOnce / width; ++i)
                takeTerm<width, kind>(power, block + first + i * width, query[0], sums[i]); // 0.0 and it are it
            for (long c = 1; c < n; ++c)
                for (std::size_t i = 0; i < atOnce / width; ++i)
                {
                    Register term;
                    takeTerm<width, kind>(power, block + c * blockRows + first + i * width, query[c], term);
                    sums[i] = sums[i] + term;
                }
            for (std::size_t i = 0; i < atOnce / width; ++i)
                storeRegister(sums[i], keys + first + i * width);
        }
        takeMinima<width>(keys, chunk.minima + b * lanes);
    }
}

/// How many of the keys, as bits, are not above `limit`.
template <std::size_t width>
TK_ALWAYS_INLINE long countUpTo(Bits limit, const double* keys, long count)
{
    using Register = typename RegisterOf<Bits, width>::Type;
    Register sums[lanes / width] = {};
    for (long i = 0; i < count; i += lanes)
        for (std::size_t p = 0; p < lanes / width; ++p)
        {
            Register key;
            loadRegister(key, keys + i + p * width);
            sums[p] = sums[p] + ((key - (limit + 1)) >> 63);
        }
    Bits counts[lanes];
    std::memcpy(counts, sums, sizeof counts);
    Bits sum = 0;
    for (const Bits c : counts)
        sum += c;
    return static_cast<long>(sum);
}

/// A number that at least k of the keys do not exceed, and no more than `most` unless keys are equal, or `highest`, if
/// that is less. *Requires* 1 <= k, at least k keys, and `count` a multiple of 8.
template <std::size_t width>
TK_ALWAYS_INLINE double limitOf(const double* keys, long count, long k, long most, double highest)
{
    using Register = typename RegisterOf<double, width>::Type;
    Register smallest[lanes / width];
    Register largest[lanes / width];
    std::memcpy(smallest, keys, sizeof smallest);
    std::memcpy(largest, keys, sizeof largest);
    for (long i = lanes; i < count; i += lanes)
        for (std::size_t p = 0; p < lanes / width; ++p)
        {
            Register key;
            loadRegister(key, keys + i + p * width);
            smallest[p] = key < smallest[p] ? key : smallest[p];
            if (i < k)
                largest[p] = key < largest[p] ? largest[p] : key;
        }
    double ends[2][lanes];
    std::memcpy(ends[0], smallest, sizeof ends[0]);
    std::memcpy(ends[1], largest, sizeof ends[1]);
    for (long l = lanes / 2; l > 0; l /= 2)
        for (long i = 0; i < l; ++i)
        {
            ends[0][i] = std::min(ends[0][i], ends[0][i + l]);
            ends[1][i] = std::max(ends[1][i], ends[1][i + l]);
        }
    const double low = ends[0][0];
    double high = ends[1][0];
    if (k == 1 || !(low < highest))
        return std::min(low, highest);
    high = std::min(high, highest);
    Bits below;
    Bits limit;
    std::memcpy(&below, &low, sizeof below);
    std::memcpy(&limit, &high, sizeof limit);
    if (countUpTo<width>(below, keys, count) >= k)
        return low;
    long found = high == highest ? countUpTo<width>(limit, keys, count) : count; // or fewer
    if (found < k)
        return highest;
    // From here on fewer than k keys do not exceed `below`, and at least k do not exceed `limit`.
    while (found > most && limit - below > 1)
    {
        const Bits middle = below + (limit - below) / 2;
        const long upToMiddle = countUpTo<width>(middle, keys, count);
        const bool isBelow = upToMiddle < k;
        below = isBelow ? middle : below;
        limit = isBelow ? limit : middle;
        found = isBelow ? found : upToMiddle;
    }
    std::memcpy(&high, &limit, sizeof high);
    return high;
}

/// Ascending order of both in each lane, where they are not equal.
template <class Register>
TK_ALWAYS_INLINE void sortPair(Register& a, Register& b)
{
    const Register smaller = b < a ? b : a;
    b = a < b ? b : a; // the same comparison would not become an instruction for the larger one
    a = smaller;
}

/// Batcher's bitonic merge of a list of `size` registers, lane by lane; the list must be a bitonic one.
template <long size, class Register>
TK_ALWAYS_INLINE void mergeBitonic(Register* list)
{
    for (long distance = size / 2; distance > 0; distance /= 2)
        for (long i = 0; i < size; ++i)
            if ((i & distance) == 0)
                sortPair(list[i], list[i + distance]);
}

/// Of two ascending lists in each lane, the smaller half, ascending.
template <long size, class Register>
TK_ALWAYS_INLINE void keepSmaller(Register* list, const Register* other)
{
    for (long i = 0; i < size; ++i)
        list[i] = other[size - 1 - i] < list[i] ? other[size - 1 - i] : list[i];
    mergeBitonic<size>(list);
}

template <long size, class Register>
TK_ALWAYS_INLINE void sortList(Register* list)
{
    if constexpr (size > 1)
    {
        sortList<size / 2>(list);
        sortList<size / 2>(list + size / 2);
        for (long i = 0; i < size / 2; ++i)
            sortPair(list[i], list[size - 1 - i]);
        mergeBitonic<size / 2>(list);
        mergeBitonic<size / 2>(list + size / 2);
    }
}

/// The `kept` smallest of all lanes of `count` registers, ascending, in each lane of the first registers.
template <std::size_t width, long kept, long count>
TK_ALWAYS_INLINE void sortSmallest(typename RegisterOf<double, width>::Type* registers)
{
    using Register = typename RegisterOf<double, width>::Type;
    static_assert(count % kept == 0 && width <= 4);
    for (long first = 0; first < count; first += kept)
        sortList<kept>(registers + first);
    for (long size = kept; size < count; size *= 2)
        for (long first = 0; first + size < count; first += 2 * size)
            keepSmaller<kept>(registers + first, registers + first + size);
    if constexpr (width >= 2)
    {
        Register others[kept];
        for (long i = 0; i < kept; ++i)
            if constexpr (width == 4)
                others[i] = __builtin_shufflevector(registers[i], registers[i], 1, 0, 3, 2);
            else
                others[i] = __builtin_shufflevector(registers[i], registers[i], 1, 0);
        keepSmaller<kept>(registers, others);
        if constexpr (width == 4)
        {
            for (long i = 0; i < kept; ++i)
                others[i] = __builtin_shufflevector(registers[i], registers[i], 2, 3, 0, 1);
            keepSmaller<kept>(registers, others);
        }
    }
}

/// Replaces the last bits of keys by the positions of their entries, so that no two are equal. A key above largestKey
/// becomes that one, and one below smallestKey that one: a host may have denormal numbers compared as zeros.
template <std::size_t width>
TK_ALWAYS_INLINE void mark(typename RegisterOf<double, width>::Type& key,
                           const typename RegisterOf<Bits, width>::Type& positions)
{
    using Register = typename RegisterOf<double, width>::Type;
    typename RegisterOf<Bits, width>::Type bits;
    const Register smallest = smallestKey - Register{};
    const Register largest = largestKey - Register{};
    key = key < smallest ? smallest : key;
    key = key < largest ? key : largest;
    std::memcpy(&bits, &key, sizeof bits);
    bits = (bits & ~positionBits) | positions;
    std::memcpy(&key, &bits, sizeof key);
}

/// The four entries of a level from which the one at `position` of the next level was made are at firstEntry(position),
/// and 8, 16 and 24 behind it.
TK_ALWAYS_INLINE long firstEntry(long position)
{
    return position / lanes * blockRows + position % lanes;
}

/// The k rows with the smallest keys but for their last bits, by descending through minima of minima, without branches
/// that could not be foreseen. The keys of all other rows are at least `next`, and none of these above `last`.
template <std::size_t width, long kept>
TK_ALWAYS_INLINE void selectRows(Chunk& chunk, long numBlocks, long k, long* indices, double& last, double& next)
{
    using Register = typename RegisterOf<double, width>::Type;
    using Positions = typename RegisterOf<Bits, width>::Type;
    constexpr long perGroup = groupRows / width;
    constexpr long numRegisters = blockRows / width;
    static_assert(kept <= lanes && width <= 4);
    alignas(64) static constexpr Bits ascending[blockRows] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                                                              11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
                                                              22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
    alignas(64) static constexpr Bits strides[groupRows] = {0, lanes, 2 * lanes, 3 * lanes};

    double* const levels[] = {chunk.keys, chunk.minima, chunk.minimaOfMinima, chunk.highest};
    long level = 0;
    for (long blocks = numBlocks; blocks > 1; ++level)
    {
        if (level > 0)
            for (long b = 0; b < blocks; ++b)
                takeMinima<width>(levels[level] + b * blockRows, levels[level + 1] + b * lanes);
        const long count = blocks * lanes;
        blocks = (count + blockRows - 1) / blockRows;
        std::fill(levels[level + 1] + count, levels[level + 1] + blocks * blockRows, infinity);
    }

    Register keys[numRegisters];
    Positions positions;
    for (long i = 0; i < numRegisters; ++i)
    {
        loadRegister(keys[i], levels[level] + i * width);
        loadRegister(positions, ascending + i * width);
        mark<width>(keys[i], positions);
    }
    sortSmallest<width, kept, numRegisters>(keys);
    Bits smallest[kept];
    double rest = infinity;
    for (;;)
    {
        double lowest[kept];
        for (long i = 0; i < kept; ++i)
            if constexpr (width == 1)
                lowest[i] = keys[i];
            else
                lowest[i] = keys[i][0];
        std::memcpy(smallest, lowest, sizeof smallest);
        rest = std::min(rest, lowest[k]);
        if (--level < 0)
            break;
        constexpr long numChildren = kept * perGroup;
        for (long i = 0; i < numChildren; ++i)
            keys[i] = largestKey - Register{};
        for (long j = 0; j < k; ++j)
        {
            const long first = firstEntry(static_cast<long>(smallest[j] & positionBits));
            const double* const entries = levels[level] + first;
            for (long i = 0; i < perGroup; ++i)
            {
                Register& children = keys[j * perGroup + i];
                if constexpr (width == 4)
                    children = Register{entries[0], entries[lanes], entries[2 * lanes], entries[3 * lanes]};
                else if constexpr (width == 2)
                    children = Register{entries[2 * i * lanes], entries[(2 * i + 1) * lanes]};
                else
                    children = entries[i * lanes];
                loadRegister(positions, strides + i * width);
                mark<width>(children, positions + static_cast<Bits>(first));
            }
        }
        sortSmallest<width, kept, numChildren>(keys);
    }
    for (long j = 0; j < k; ++j)
        indices[j] = static_cast<long>(smallest[j] & positionBits);
    const Bits upper = smallest[k - 1] | positionBits;
    std::memcpy(&last, &upper, sizeof last);
    Bits lower;
    std::memcpy(&lower, &rest, sizeof lower);
    lower &= ~positionBits;
    std::memcpy(&next, &lower, sizeof next);
}

// ---- chosen once per query ------------------------------------------------------------------------------------------

using FillFunction = void (*)(const double*, long, const double*, long, const tkNMNormPower&, Chunk&);
using LimitFunction = double (*)(const double*, long, long, long, double);
using SelectFunction = void (*)(Chunk&, long, long, long*, double&, double&);

template <tkNMNormPower::Kind kind>
void fill(const double* block, long count, const double* query, long n, const tkNMNormPower& power, Chunk& chunk)
{
    fillChunk<plainWidth, kind>(block, count, query, n, power, chunk);
}
double limit(const double* keys, long count, long k, long most, double highest)
{
    return limitOf<plainWidth>(keys, count, k, most, highest);
}
void select(Chunk& chunk, long numBlocks, long k, long* indices, double& last, double& next)
{
    if (k == 1)
        selectRows<plainWidth, 2>(chunk, numBlocks, k, indices, last, next);
    else
        selectRows<plainWidth, 8>(chunk, numBlocks, k, indices, last, next);
}

#if TK_HAS_X86_TARGETS
template <tkNMNormPower::Kind kind>
TK_TARGET_AVX2 void fillAvx2(const double* block, long count, const double* query, long n, const tkNMNormPower& power,
                             Chunk& chunk)
{
    fillChunk<4, kind>(block, count, query, n, power, chunk);
}
TK_TARGET_AVX2 double limitAvx2(const double* keys, long count, long k, long most, double highest)
{
    return limitOf<4>(keys, count, k, most, highest);
}
TK_TARGET_AVX2 void selectAvx2(Chunk& chunk, long numBlocks, long k, long* indices, double& last, double& next)
{
    if (k == 1)
        selectRows<4, 2>(chunk, numBlocks, k, indices, last, next);
    else
        selectRows<4, 8>(chunk, numBlocks, k, indices, last, next);
}
template <tkNMNormPower::Kind kind>
TK_TARGET_AVX512 void fillAvx512(const double* block, long count, const double* query, long n,
                                 const tkNMNormPower& power, Chunk& chunk)
{
    fillChunk<8, kind>(block, count, query, n, power, chunk);
}
TK_TARGET_AVX512 double limitAvx512(const double* keys, long count, long k, long most, double highest)
{
    return limitOf<8>(keys, count, k, most, highest);
}
TK_TARGET_AVX512 void selectAvx512(Chunk& chunk, long numBlocks, long k, long* indices, double& last, double& next)
{
    if (k == 1)
        selectRows<4, 2>(chunk, numBlocks, k, indices, last, next);
    else
        selectRows<4, 8>(chunk, numBlocks, k, indices, last, next);
}
#endif

/// The terms of the definition, for orders without products.
template <tkNMInstructions instructions>
void fillByPowers(const double* block, long count, const double* query, long n, const tkNMNormPower& power,
                  Chunk& chunk)
{
    TK_ASSERT(count > 0);
    for (long b = 0; b < count; ++b)
    {
        double* const keys = chunk.keys + b * blockRows;
        std::fill(keys, keys + blockRows, 0.0);
        for (long c = 0; c < n; ++c, block += blockRows)
        {
            double terms[blockRows];
            for (long r = 0; r < blockRows; ++r)
                terms[r] = std::fabs(block[r] - query[c]);
            tkNMElementaryKernel::pow(terms, power.order, terms, blockRows, instructions);
            for (long r = 0; r < blockRows; ++r)
                keys[r] += terms[r];
        }
        takeMinima<plainWidth>(keys, chunk.minima + b * lanes);
    }
}

struct Kernel
{
    FillFunction fill[5]; // by tkNMNormPower::Kind
    LimitFunction limit;
    SelectFunction select;
};

const Kernel& kernelOf(tkNMInstructions instructions)
{
    using Power = tkNMNormPower;
    static constexpr Kernel plain = {{fill<Power::First>, fill<Power::Second>, fill<Power::Third>, fill<Power::Halves>,
                                      fillByPowers<tkNMInstructions::Portable>},
                                     limit,
                                     select};
#if TK_HAS_X86_TARGETS
    static constexpr Kernel avx2 = {{fillAvx2<Power::First>, fillAvx2<Power::Second>, fillAvx2<Power::Third>,
                                     fillAvx2<Power::Halves>, fillByPowers<tkNMInstructions::Avx2>},
                                    limitAvx2,
                                    selectAvx2};
    static constexpr Kernel avx512 = {{fillAvx512<Power::First>, fillAvx512<Power::Second>, fillAvx512<Power::Third>,
                                       fillAvx512<Power::Halves>, fillByPowers<tkNMInstructions::Avx512>},
                                      limitAvx512,
                                      selectAvx512};
    if (instructions == tkNMInstructions::Avx512)
        return avx512;
    if (instructions == tkNMInstructions::Avx2)
        return avx2;
#else
    static_cast<void>(instructions);
#endif
    return plain;
}

/// Rows that may be among the nearest.
struct Candidates
{
    alignas(64) double keys[mostCandidates + lanes];
    long indices[mostCandidates + lanes];
    long count = 0;

    // What follows has no branches that could not be foreseen.

    /// Adds the rows of a chunk with keys up to `bound`; returns whether there was room.
    bool add(const Chunk& chunk, long numRows, long firstRow, double bound)
    {
        if (count + numRows > mostCandidates)
            return false;
        for (long row = 0; row < numRows; ++row)
            addIf_(chunk, row, firstRow, bound);
        return true;
    }

    /// The same, faster if there are few such rows.
    bool addByGroups(const Chunk& chunk, long numGroups, long firstRow, double bound)
    {
        short groups[chunkRows / groupRows + 1];
        long found = 0;
        for (long g = 0; g < numGroups; ++g)
        {
            groups[found] = static_cast<short>(g);
            found += chunk.minima[g] <= bound;
        }
        if (count + groupRows * found > mostCandidates)
            return false;
        for (long i = 0; i < found; ++i)
            for (long r = 0; r < groupRows; ++r)
                addIf_(chunk, groups[i] / lanes * blockRows + r * lanes + groups[i] % lanes, firstRow, bound);
        return true;
    }

    void keepUpTo(double bound)
    {
        long kept = 0;
        for (long i = 0; i < count; ++i)
        {
            keys[kept] = keys[i];
            indices[kept] = indices[i];
            kept += keys[i] <= bound;
        }
        count = kept;
    }

    /// The number of keys with those that fill the last register.
    long pad()
    {
        const long padded = roundUp(count);
        std::fill(keys + count, keys + padded, infinity);
        return padded;
    }

private:
    void addIf_(const Chunk& chunk, long row, long firstRow, double bound)
    {
        keys[count] = chunk.keys[row];
        indices[count] = firstRow + row;
        count += chunk.keys[row] <= bound;
    }
};

/// What one search looks for, and in what.
struct Query
{
    const double* blocks;
    long numRows;
    long n; // columns
    const double* measurements;
    long k;
    tkNMNormPower power;
    const Kernel& kernel;

    /// Computes the keys from firstRow on and returns the number of their blocks.
    long fill(long firstRow, Chunk& chunk) const
    {
        const long numBlocks = (std::min(chunkRows, numRows - firstRow) + blockRows - 1) / blockRows;
        kernel.fill[power.kind](blocks + firstRow * n, numBlocks, measurements, n, power, chunk);
        return numBlocks;
    }

    /// A bound on the keys of the k nearest rows, if k of these keys belong to rows or are minima of different ones.
    double limitUpTo(double highest, const double* keys, long count, long most) const
    {
        return std::min(highest, power.upperKey(kernel.limit(keys, count, k, most, highest), n));
    }
};

// Both return whether `indices` is the set; `bound` becomes one on the keys of the k nearest rows. They leave the keys
// of the last chunk.

/// For few neighbours in one chunk.
bool findBySorting(const Query& query, Chunk& chunk, long* indices, double& bound)
{
    double last = 0.0;
    double next = 0.0;
    query.kernel.select(chunk, query.fill(0, chunk), query.k, indices, last, next);
    bound = query.power.upperKey(last, query.n);
    return bound < next && bound < largestKey;
}

bool findByBisection(const Query& query, bool asSet, Chunk& chunk, long* indices, double& bound)
{
    const long k = query.k;
    Candidates candidates;
    bool hasRoom = k <= mostSelected;
    for (long firstRow = 0; firstRow < query.numRows; firstRow += chunkRows)
    {
        const long numBlocks = query.fill(firstRow, chunk);
        const long numGroups = numBlocks * lanes;
        const long numRows = std::min(chunkRows, query.numRows - firstRow);
        const bool byGroups = k == 1 || (2 * k <= numGroups && numGroups > 2 * lanes);
        if (k <= numRows)
        {
            if (roundUp(k) > numRows) // otherwise the bisection would begin with the distance of an unused place
                bound =
                    std::min(bound, query.power.upperKey(*std::max_element(chunk.keys, chunk.keys + numRows), query.n));
            bound = byGroups ? query.limitUpTo(bound, chunk.minima, numGroups, k + k / 4 + 2)
                             : query.limitUpTo(bound, chunk.keys, numBlocks * blockRows, k);
        }
        hasRoom = hasRoom &&
                  (byGroups || numBlocks > fewBlocks ? candidates.addByGroups(chunk, numGroups, firstRow, bound)
                                                     : candidates.add(chunk, numBlocks * blockRows, firstRow, bound));
        if (hasRoom && candidates.count > mostCandidates / 4)
        {
            const long padded = candidates.pad();
            bound = query.limitUpTo(bound, candidates.keys, padded, k);
            candidates.keepUpTo(bound);
        }
    }
    const bool isSelected = hasRoom && bound < largestKey;
    if (isSelected && candidates.count > k)
    {
        const long padded = candidates.pad();
        bound = query.limitUpTo(bound, candidates.keys, padded, k);
        candidates.keepUpTo(bound);
    }
    if (!isSelected || !asSet || candidates.count != k)
        return false;
    std::copy_n(candidates.indices, k, indices);
    return true;
}
} // namespace

void tkNMNeighborScan::update(const Rows& rows, long numRows)
{
    const long n = numColumns_;
    const long numBlocks = (numRows + blockRows - 1) / blockRows;
    blocks_.resize(static_cast<std::size_t>(numBlocks * blockRows * n), beyond);
    for (long i = n > 0 ? numRows_ : numRows; i < numRows; ++i) // without columns there is no block to point into
    {
        const double* row = nullptr;
        rows.fetch(&i, 1, &row);
        double* const block = blocks_.data() + i / blockRows * blockRows * n + i % blockRows;
        for (long c = 0; c < n; ++c)
            block[c * blockRows] = row[c];
    }
    numRows_ = numRows;
}

void tkNMNeighborScan::search(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                              double* distances, tkNMInstructions instructions) const
{
    const Query all{blocks_.data(),
                    numRows_,
                    numColumns_,
                    query,
                    k,
                    tkNMNormPower(order),
                    kernelOf(std::min(instructions, tkNMBestInstructions()))};
    Chunk chunk;
    double bound = infinity;
    const bool isSorted = asSet && k <= mostSorted && numRows_ <= chunkRows;
    if (isSorted ? findBySorting(all, chunk, indices, bound) : findByBisection(all, asSet, chunk, indices, bound))
        return;
    const bool isBounded = bound < largestKey;

    tkNMNeighborList list(k, indices, distances);
    list.clear();
    const auto offer = [&](long index, double key)
    {
        const double* row = nullptr;
        if (!all.power.isExact())
            rows.fetch(&index, 1, &row);
        list.add(index, all.power.isExact() ? tkNMElementary::pow(key, 1.0 / order)
                                            : tkNMNormDistance(query, row, numColumns_, order));
    };
    for (long firstRow = 0; firstRow < numRows_; firstRow += chunkRows)
    {
        if (numRows_ > chunkRows)
            all.fill(firstRow, chunk);
        const long count = std::min(chunkRows, numRows_ - firstRow);
        for (long i = 0; i < count; ++i)
            if (!isBounded || chunk.keys[i] <= bound)
                offer(firstRow + i, chunk.keys[i]);
    }
}
