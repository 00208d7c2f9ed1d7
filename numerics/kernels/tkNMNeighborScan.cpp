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

// How the k smallest keys are found. Rows are taken in chunks. Of each group of four rows the smallest key is kept; a
// key that k groups do not exceed bounds the k-th smallest key, and is found by bisection. The rows up to this bound
// are the candidates. If just k candidates are left within the rounding of the k-th key, they are the set. Otherwise
// the definition decides among them.

namespace
{
using Bits = std::uint64_t;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double beyond = 1e91;      // farther from any query than a row can be
constexpr double largestKey = 1e300; // larger ones may have overflowed
constexpr long lanes = 8;
constexpr long groupRows = 4;
constexpr long blockRows = lanes * groupRows; // rows l, l + 8, l + 16, l + 24 are a group
constexpr long chunkBlocks = 64;
constexpr long chunkRows = chunkBlocks * blockRows;
constexpr long mostCandidates = 1024;
constexpr long mostSelected = 128; // larger k are left to the list
constexpr long fewBlocks = 4;

/// The keys of one chunk.
struct Chunk
{
    alignas(64) double keys[chunkRows];
    alignas(64) double minima[chunkRows / groupRows]; // of block b and lane l at 8 b + l
};

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
            Register sums[atOnce / width] = {};
            for (long c = 0; c < n; ++c)
                for (std::size_t i = 0; i < atOnce / width; ++i)
                {
                    Register difference;
                    loadRegister(difference, block + c * blockRows + first + i * width);
                    difference = difference - query[c];
                    raiseDifference<width, kind>(power, difference);
                    sums[i] = sums[i] + difference;
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

// ---- chosen once per query ------------------------------------------------------------------------------------------

using FillFunction = void (*)(const double*, long, const double*, long, const tkNMNormPower&, Chunk&);
using LimitFunction = double (*)(const double*, long, long, long, double);

template <tkNMNormPower::Kind kind>
void fill(const double* block, long count, const double* query, long n, const tkNMNormPower& power, Chunk& chunk)
{
    fillChunk<plainWidth, kind>(block, count, query, n, power, chunk);
}
double limit(const double* keys, long count, long k, long most, double highest)
{
    return limitOf<plainWidth>(keys, count, k, most, highest);
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
};

const Kernel& kernelOf(tkNMInstructions instructions)
{
    using Power = tkNMNormPower;
    static constexpr Kernel plain = {{fill<Power::First>, fill<Power::Second>, fill<Power::Third>, fill<Power::Halves>,
                                      fillByPowers<tkNMInstructions::Portable>},
                                     limit};
#if TK_HAS_X86_TARGETS
    static constexpr Kernel avx2 = {{fillAvx2<Power::First>, fillAvx2<Power::Second>, fillAvx2<Power::Third>,
                                     fillAvx2<Power::Halves>, fillByPowers<tkNMInstructions::Avx2>},
                                    limitAvx2};
    static constexpr Kernel avx512 = {{fillAvx512<Power::First>, fillAvx512<Power::Second>, fillAvx512<Power::Third>,
                                       fillAvx512<Power::Halves>, fillByPowers<tkNMInstructions::Avx512>},
                                      limitAvx512};
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
    const tkNMNormPower power(order);
    const Kernel& kernel = kernelOf(std::min(instructions, tkNMBestInstructions()));
    const long n = numColumns_;
    Chunk chunk;
    const auto fillFrom = [&](long firstRow)
    {
        const long numBlocks = (std::min(chunkRows, numRows_ - firstRow) + blockRows - 1) / blockRows;
        kernel.fill[power.kind](blocks_.data() + firstRow * n, numBlocks, query, n, power, chunk);
        return numBlocks;
    };

    double bound = infinity; // on the keys of the k nearest rows
    Candidates candidates;
    bool hasRoom = k <= mostSelected;
    for (long firstRow = 0; firstRow < numRows_; firstRow += chunkRows)
    {
        const long numBlocks = fillFrom(firstRow);
        const long numGroups = numBlocks * lanes;
        const long numRows = std::min(chunkRows, numRows_ - firstRow);
        const bool byGroups = k == 1 || (2 * k <= numGroups && numGroups > 2 * lanes);
        if (k <= numRows)
        {
            if (roundUp(k) > numRows) // otherwise the bisection would begin with the distance of an unused place
                bound = std::min(bound, power.upperKey(*std::max_element(chunk.keys, chunk.keys + numRows), n));
            const double found = byGroups ? kernel.limit(chunk.minima, numGroups, k, k + k / 4 + 2, bound)
                                          : kernel.limit(chunk.keys, numBlocks * blockRows, k, k, bound);
            bound = std::min(bound, power.upperKey(found, n));
        }
        hasRoom = hasRoom &&
                  (byGroups || numBlocks > fewBlocks ? candidates.addByGroups(chunk, numGroups, firstRow, bound)
                                                     : candidates.add(chunk, numBlocks * blockRows, firstRow, bound));
        if (hasRoom && candidates.count > mostCandidates / 4)
        {
            const long padded = candidates.pad();
            bound = std::min(bound, power.upperKey(kernel.limit(candidates.keys, padded, k, k, bound), n));
            candidates.keepUpTo(bound);
        }
    }
    const bool isBounded = bound < largestKey;
    if (hasRoom && isBounded && candidates.count > k)
    {
        const long padded = candidates.pad();
        bound = std::min(bound, power.upperKey(kernel.limit(candidates.keys, padded, k, k, bound), n));
        candidates.keepUpTo(bound);
    }
    if (hasRoom && isBounded && asSet && candidates.count == k)
    {
        std::copy_n(candidates.indices, k, indices);
        return;
    }

    tkNMNeighborList list(k, indices, distances);
    list.clear();
    const auto offer = [&](long index, double key)
    {
        const double* row = nullptr;
        if (!power.isExact())
            rows.fetch(&index, 1, &row);
        list.add(index,
                 power.isExact() ? tkNMElementary::pow(key, 1.0 / order) : tkNMNormDistance(query, row, n, order));
    };
    for (long firstRow = 0; firstRow < numRows_; firstRow += chunkRows)
    {
        if (numRows_ > chunkRows)
            fillFrom(firstRow);
        const long count = std::min(chunkRows, numRows_ - firstRow);
        for (long i = 0; i < count; ++i)
            if (!isBounded || chunk.keys[i] <= bound)
                offer(firstRow + i, chunk.keys[i]);
    }
}
