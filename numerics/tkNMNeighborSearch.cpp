#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"
#include "numerics/tkNMWideDistances.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

// How most rows are ruled out
// ---------------------------
//
// Let d_i be the *computed* distance of row i, all roundings of the definition included, and D the k-th smallest.
//
// (F1) A row with d_i > D leaves no trace in the list: either it is turned away, or it enters a list that k rows with
//      smaller distances push it out of again, and their order among themselves does not depend on it. So the
//      insertion over any superset of the rows with d_i <= D, in storage order, gives the list of all rows.
// (F2) The largest d_i of any k rows is an upper bound of D.
// (F3) A row may be left out when a lower bound of its d_i exceeds an upper bound of D.
//
// Three tests of growing cost follow from this: bytes rule out nearly every row, doubles most of the rest, and the
// definition itself decides for the about k rows that remain.
//
// The shadow. Column c has a centre C_c; all columns share one step h, so that their byte differences may be added up.
// A measurement v stands as the byte x^ = round((P(v) - C_c) / h), where P clips v to C_c +- 127 h. Clipping moves no
// two numbers further apart, so for rows x and queries q, in every norm of order m >= 1 and by the triangle inequality,
//
//   |x - q| >= |P(x) - P(q)| >= h (|x^ - q^| - |e_x| - |e_q|),   e_v = (P(v) - C) / h - v^
//
// An outlier thus only loses distance from the other rows; it widens neither the step nor the rounding errors e. The
// norm of e_q is known, and each block of 64 rows keeps its largest Euclidean |e_x|. tkNMByteDistances delivers
// a sum with sum * 2^s <= |x^ - q^|^m for m = 1 and m = 2. With the power mean inequality, for n columns,
//
//   |x - q|_m <= n^(1/m - 1/p) |x - q|_p  for m <= p,    |e|_m <= n^(1/m - 1/2) |e|_2  for m <= 2,
//
// a row of order p >= 2 is tested with m = 2, one of order 1 <= p < 2 with m = 1. It is ruled out if
//
//   sum > (n^(1/m - 1/p) B / h + |e_x|_m + |e_q|_m)^m / 2^s                                                     (1)
//
// where B is an upper bound of |x - q|_p for every row with d <= D. A step is the only scale, and subtracting the
// centre has a relative error of 2^-53, so that all errors in evaluating the right hand side stay below the 1e-6
// steps and the factor 1 + 1e-9 that are added to it, whatever the magnitudes are.
//
// Queries outside of what bytes stand for lose much of their distances when they are clipped. In steps, let y be a row
// and z the query before clipping, y' and z' afterwards, and g = z - z'. Where g_c is not 0, z'_c lies at the end of
// the range that y'_c lies in, and |y'_c - z_c| = |y'_c - z'_c| + |g_c|. So for m = 1 and 2, and with w_x = y - x^,
// which is not shorter than y - y' and of which each block keeps the largest Euclidean norm,
//
//   |y' - z'|^m + |g|^m <= |y' - z|^m <= (|y - z| + |w_x|)^m
//
// and a row is also ruled out if
//
//   sum > (((n^(1/m - 1/p) B / h + |w_x|_m)^m - |g|^m)^(1/m) + |e_x|_m + |e_q|_m)^m / 2^s                         (3)
//
// Far away that is little better for m = 2, and there sums of bytes overflow before they reach the limit, as they
// also do for queries inside when the rows are few distinct ones and far between. Then tkNMWideDistances deliver
// bounds of |z - x^|^2 - |g|^2 itself, neither clipped nor rounded, that keep what tells rows apart however large g is,
// and a row is ruled out if
//
//   (sum - slack) unit > (n^(1/2 - 1/p) B / h + |w_x|)^2 - |g|^2                                                 (4)
//
// where the right hand side is a product, lest it cancels. A g that is 1e-11 times too small outweighs its roundings.
//
// Doubles. For p = 1, 2, 3 the powers t^p of t = fl|x - q| come from multiplications; the sum a of a row and the sum
// of the definition start from the same t. With u = 2^-53, with pow good to 16 u (libraries promise 2 u) and unless
// there is underflow, they are S (1 + (n + 2) u) and S (1 + (n + 16) u) at most, S being the exact sum of t^p; and
// roots differ as soon as their arguments differ by a factor 1 + 34 p u. So from
//
//   a_i > a_j (1 + (8 n + 512) u) + 2^-960                                                                       (2)
//
// follows d_i > d_j: the last term outweighs what underflow can take away (n times 2^-1074). Overflow cannot happen,
// as the measurements are at most 1e90. Where p is another number, the key of a row is its distance itself.
// |x - q|_p exceeds neither a^(1/p) (1 + 1e-9) nor, unless the powers underflow, d (1 + 1e-9); the latter is mended by
// taking no B below 2^(-960/p).
//
// The order of work. Pass 1 keeps of each block the smallest sum. The rows that have the k smallest of these are k
// distinct rows, hence give a first bound. Pass 2 returns to the blocks whose smallest sum does not exceed it. The rows
// found there wait as candidates, with their keys, until all blocks are done and the k-th smallest key is known, so
// that the definition is computed for few of them. Where most rows of a block pass the test of bytes, the next blocks
// are likely to be no better, and are taken without it.

namespace
{
using Bytes = tkNMByteDistances;

constexpr double largestFloat = std::numeric_limits<float>::max();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double largestModest = 1e90;
constexpr double largestOrder = 64.0;
constexpr double smallestStep = 1e-200;
constexpr double tinySum = 0x1p-960;

constexpr long chunkBlocks = 16;
constexpr long smallestShadow = 128;   // rows; fewer are as fast without
constexpr long sampleRows = 4096;      // that centres and step are taken from
constexpr long sampleTail = 512;       // one sample row in so many may be clipped at either end of a column
constexpr long batchRows = 16;         // fetched together: enough to overlap their cache misses
constexpr long prefetchedColumns = 32; // of a row; more follow by themselves
constexpr long blocksUnfiltered = 4;   // taken whole after one of which most rows passed
constexpr double largestSum = 65535.0;
constexpr double farthest = 1e15; // steps
constexpr long mostMinima = 16384;
constexpr long mostCandidates = 512;
constexpr long mostKnown = 8;

bool isModest(const double* row, long n)
{
    bool modest = true;
    for (long c = 0; c < n; ++c)
        modest &= std::fabs(row[c]) <= largestModest;
    return modest;
}

// sums[j] = sum of |query - rows[j]|^power, added up in four lanes, which compilers turn into vectors.
template <int power>
TK_ALWAYS_INLINE void addPowers(const double* query, const double* const* rows, long count, long n, double* sums)
{
    for (long j = 0; j < count; ++j)
    {
        const double* row = rows[j];
        double lanes[4] = {};
        const auto add = [&](int lane, long c)
        {
            const double t = std::fabs(query[c] - row[c]);
            lanes[lane] += power == 1 ? t : power == 2 ? t * t : t * t * t;
        };
        long c = 0;
        for (; c + 4 <= n; c += 4)
            for (int lane = 0; lane < 4; ++lane)
                add(lane, c + lane);
        for (; c < n; ++c)
            add(0, c);
        sums[j] = (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
    }
}

using PowerSums = void (*)(const double*, const double* const*, long, long, double*);

template <int power>
void powerSums(const double* query, const double* const* rows, long count, long n, double* sums)
{
    addPowers<power>(query, rows, count, n, sums);
}

#if TK_HAS_X86_TARGETS
template <int power>
TK_TARGET_AVX2 void powerSumsAvx2(const double* query, const double* const* rows, long count, long n, double* sums)
{
    addPowers<power>(query, rows, count, n, sums);
}
#else
template <int power>
constexpr PowerSums powerSumsAvx2 = powerSums<power>;
#endif

// Null for orders without fast powers.
PowerSums choosePowerSums(double order, tkNMInstructions instructions)
{
    const bool avx2 = std::min(instructions, tkNMBestInstructions()) >= tkNMInstructions::Avx2;
    if (order == 1.0)
        return avx2 ? powerSumsAvx2<1> : powerSums<1>;
    if (order == 2.0)
        return avx2 ? powerSumsAvx2<2> : powerSums<2>;
    if (order == 3.0)
        return avx2 ? powerSumsAvx2<3> : powerSums<3>;
    return nullptr;
}

// Replaces the largest of the k entries of a heap whose largest entry is the first.
template <class T>
void replaceLargest(T* heap, long k, T value)
{
    long hole = 0;
    for (long child = 1; child < k; child = 2 * hole + 1)
    {
        if (child + 1 < k && heap[child] < heap[child + 1])
            ++child;
        if (!(value < heap[child]))
            break;
        heap[hole] = heap[child];
        hole = child;
    }
    heap[hole] = value;
}

// The first row of a set that is not empty.
long lowestRow(std::uint64_t rows)
{
#if defined(__GNUC__)
    return __builtin_ctzll(rows);
#else
    long row = 0;
    while ((rows >> row & 1) == 0)
        ++row;
    return row;
#endif
}

void fetchConsecutive(const tkNMNeighborSearch::Rows& source, long first, long count, long* indices,
                      const double** rows)
{
    for (long j = 0; j < count; ++j)
        indices[j] = first + j;
    source.fetch(indices, count, rows);
}

void searchByDefinition(const tkNMNeighborSearch::Rows& source, long numRows, const double* query, long n, double order,
                        long k, long* indices, double* distances)
{
    tkNMNeighborList list(k, indices, distances);
    list.clear();
    long batch[batchRows];
    const double* rows[batchRows];
    for (long first = 0; first < numRows; first += batchRows)
    {
        const long count = std::min(batchRows, numRows - first);
        fetchConsecutive(source, first, count, batch, rows);
        for (long j = 0; j < count; ++j)
            list.add(first + j, tkNMNormDistance(query, rows[j], n, order));
    }
}
} // namespace

std::size_t tkNMNeighborSearch::memory() const
{
    std::size_t bytes = centres_.capacity() * sizeof(double) + errors_.capacity() * sizeof errors_[0] +
                        chunks_.capacity() * sizeof chunks_[0];
    for (const std::vector<Line>& chunk : chunks_)
        bytes += chunk.capacity() * sizeof(Line);
    return bytes;
}

void tkNMNeighborSearch::update(const Rows& rows, long numRows, long numColumns)
{
    TK_ASSERT(numRows >= 0 && numColumns >= 0);
    if (numColumns != numColumns_ || numRows < numRows_)
    {
        *this = tkNMNeighborSearch();
        numColumns_ = numColumns;
    }
    long indices[batchRows];
    const double* fetched[batchRows];
    for (long first = numRows_; first < numRows; first += batchRows)
    {
        const long count = std::min(batchRows, numRows - first);
        fetchConsecutive(rows, first, count, indices, fetched);
        for (long j = 0; j < count; ++j)
            allModest_ = allModest_ && isModest(fetched[j], numColumns_);
    }
    // From here on the new rows count. Those that no block covers are searched without a shadow, so that nothing is
    // wrong if memory runs out below.
    numRows_ = numRows;
    if (!allModest_ || numRows < smallestShadow || numColumns < 1 || numColumns > Bytes::maxColumns)
        return;
    try
    {
        if (numRows >= 2 * fitRows_)
            fit_(rows, numRows);
        while ((numBlocks_() + 1) * Bytes::blockRows <= numRows)
            appendBlock_(rows);
    }
    catch (const std::bad_alloc&) // the next call goes on from here
    {
    }
}

// Chooses centres and step from an even sample of the rows, and lets go of the blocks. The step is the smallest for
// which no column is clipped in more than a small share of the sample.
void tkNMNeighborSearch::fit_(const Rows& rows, long numRows)
{
    chunks_.clear();
    errors_.clear();
    largestErrors_ = {0.0f, 0.0f};
    const long size = std::min(numRows, sampleRows);
    const long tail = size / sampleTail;
    std::vector<long> indices(size);
    std::vector<const double*> sample(size);
    for (long j = 0; j < size; ++j)
        indices[j] = numRows / size * j + numRows % size * j / size;
    rows.fetch(indices.data(), size, sample.data());

    std::vector<double> centres(numColumns_);
    std::vector<double> values(size);
    double width = 0.0;
    for (long c = 0; c < numColumns_; ++c)
    {
        for (long j = 0; j < size; ++j)
            values[j] = sample[j][c];
        std::nth_element(values.begin(), values.begin() + tail, values.end());
        const double low = values[tail];
        std::nth_element(values.begin(), values.end() - 1 - tail, values.end());
        const double high = values[size - 1 - tail];
        centres[c] = 0.5 * low + 0.5 * high;
        width = std::max(width, high - low);
    }
    centres_.swap(centres);
    step_ = std::max(width / 254.0, smallestStep);
    fitRows_ = numRows;
}

// Rounds a row to bytes.
tkNMNeighborSearch::Errors_ tkNMNeighborSearch::toBytes_(const double* row, std::int8_t* bytes) const
{
    const double stepsPerUnit = 1.0 / step_;
    double squares[4] = {};
    double wholeSquares[4] = {};
    const auto round = [&](int lane, long c)
    {
        const double whole = (row[c] - centres_[c]) * stepsPerUnit;
        const double exact = std::min(std::max(whole, -127.0), 127.0);
        const int byte = static_cast<int>(exact + 127.5) - 127;
        bytes[c] = static_cast<std::int8_t>(byte);
        squares[lane] += (exact - byte) * (exact - byte);
        wholeSquares[lane] += (whole - byte) * (whole - byte);
    };
    long c = 0;
    for (; c + 4 <= numColumns_; c += 4)
        for (int lane = 0; lane < 4; ++lane)
            round(lane, c + lane);
    for (; c < numColumns_; ++c)
        round(0, c);
    const auto norm = [](const double* s)
    {
        const double result = std::sqrt((s[0] + s[1]) + (s[2] + s[3])) * (1.0 + 1e-6);
        return result > largestFloat ? std::numeric_limits<float>::infinity() : static_cast<float>(result);
    };
    return {norm(squares), norm(wholeSquares)};
}

// Adds the next 64 rows to the shadow.
void tkNMNeighborSearch::appendBlock_(const Rows& rows)
{
    const long block = numBlocks_();
    long indices[Bytes::blockRows];
    const double* fetched[Bytes::blockRows];
    fetchConsecutive(rows, block * Bytes::blockRows, Bytes::blockRows, indices, fetched);

    if (block / chunkBlocks == static_cast<long>(chunks_.size()))
        chunks_.emplace_back(chunkBlocks * numColumns_);
    std::int8_t* bytes = chunks_.back()[block % chunkBlocks * numColumns_].bytes;
    std::int8_t rowBytes[Bytes::maxColumns];
    Errors_ largest{0.0f, 0.0f};
    for (long row = 0; row < Bytes::blockRows; ++row)
    {
        const Errors_ errors = toBytes_(fetched[row], rowBytes);
        largest = {std::max(largest.clipped, errors.clipped), std::max(largest.whole, errors.whole)};
        for (long c = 0; c + 2 <= numColumns_; c += 2)
            std::memcpy(bytes + Bytes::offset(numColumns_, row, c), rowBytes + c, 2);
        if (numColumns_ % 2 != 0)
            bytes[Bytes::offset(numColumns_, row, numColumns_ - 1)] = rowBytes[numColumns_ - 1];
    }
    errors_.push_back(largest);
    largestErrors_.clipped = std::max(largestErrors_.clipped, largest.clipped);
    largestErrors_.whole = std::max(largestErrors_.whole, largest.whole);
}

const tkNMByteDistances::Line* tkNMNeighborSearch::block_(long block) const
{
    return &chunks_[block / chunkBlocks][block % chunkBlocks * numColumns_];
}

/// One query. Rows are compared by keys: sums of powers, or distances where the order has no fast powers.
class tkNMNeighborSearch::Run_
{
public:
    /// `distances` has room for 2 k entries, `indices` for k. The list comes to stand in the first k.
    Run_(const tkNMNeighborSearch& search, const Rows& rows, const double* query, double order, long k,
         tkNMInstructions instructions, long* indices, double* distances)
        : search_(search),
          rows_(rows),
          query_(query),
          order_(order),
          n_(search.numColumns_),
          k_(k),
          powerSums_(choosePowerSums(order, instructions)),
          instructions_(instructions),
          selection_(distances),
          keys_(distances + k),
          list_(k, indices, distances)
    {
        std::fill(keys_, keys_ + k, infinity);
    }

    void run()
    {
        if (search_.numBlocks_() > 0)
            searchBlocks_();
        else
            list_.clear();
        takeAll_(search_.numBlocks_() * Bytes::blockRows, search_.numRows_);
        finishTaking_(true);
        decide_();
    }

private:
    struct Candidate_
    {
        long index;
        double key;
        const double* row;
    };

    // A row whose distance by the definition is known.
    struct Known_
    {
        double key;
        const double* row;
        double distance;
    };

    // Blocks of bytes and a query in bytes.
    struct Near_
    {
        Bytes bytes;
        Bytes::Query query;

        Near_(long columns, int power, tkNMInstructions instructions) : bytes(columns, power, instructions) {}
        void sums(const Line* block, std::uint16_t* sums) const { bytes.sums(block, query, sums); }
        void minima(const Line* blocks, long count, std::uint16_t* minima) const
        {
            bytes.minima(blocks, count, query, minima);
        }
    };

    // Searches the blocks by the tests (1) and (3), or by (4) where sums of bytes overflow before they reach what rules
    // rows out.
    void searchBlocks_()
    {
        const int power = order_ < 2.0 ? 1 : 2;
        Near_ near(n_, power, instructions_);
        const double queryError = search_.toBytes_(query_, near.query.bytes).clipped;
        near.bytes.prepare(near.query);
        // Factors that turn norms of order p and of order 2 into norms of order m.
        const double columns = static_cast<double>(n_);
        const double reachFactor = std::pow(columns, 1.0 / power - 1.0 / order_) / search_.step_;
        const double errorFactor = power == 1 ? std::sqrt(columns) : 1.0;
        const double scale = std::ldexp(1.0, -near.bytes.shift()) * (1.0 + 1e-9);
        const double outside = outside_(power);
        const auto inside = [&](const Errors_& errors) // what the m-th power of a row's distance has inside the bytes
        {
            const double reach = reach_ * reachFactor + errorFactor * errors.whole + 1e-6;
            return power == 1 ? reach - outside : (reach - outside) * (reach + outside);
        };
        const auto nearLimit = [&](const Errors_& errors)
        {
            double reach = reach_ * reachFactor;
            if (outside > 0.0)
            {
                const double rest = std::max(inside(errors), 0.0);
                reach = std::min(reach, power == 1 ? rest : std::sqrt(rest));
            }
            reach += errorFactor * (errors.clipped + queryError) + 1e-6;
            return (power == 1 ? reach : reach * reach) * scale;
        };
        firstPass_(near);
        if (power == 1 || numMinima_ == 0 || nearLimit(search_.largestErrors_) < largestSum)
            return secondPass_(near, nearLimit);

        const tkNMWideDistances wide(n_, query_, search_.centres_.data(), 1.0 / search_.step_, instructions_);
        firstPass_(wide);
        secondPass_(wide,
                    [&](const Errors_& errors) { return inside(errors) / wide.unit() * (1.0 + 1e-9) + wide.slack(); });
    }

    // |g|_m for the query. Where it is too large to tell rows apart, 0.0 serves as well.
    double outside_(int power) const
    {
        const double stepsPerUnit = 1.0 / search_.step_;
        double sum = 0.0;
        for (long c = 0; c < n_; ++c)
        {
            const double g = std::max(std::fabs((query_[c] - search_.centres_[c]) * stepsPerUnit) - 127.0, 0.0);
            sum += power == 1 ? g : g * g;
        }
        const double norm = (power == 1 ? sum : std::sqrt(sum)) * (1.0 - 1e-11);
        return norm <= farthest ? norm : 0.0;
    }

    // Keeps the smallest sums of blocks; bounds what the list can hold by the k rows that seem nearest.
    template <class Distances>
    void firstPass_(const Distances& distances)
    {
        numMinima_ = std::min(search_.numBlocks_(), mostMinima);
        if (k_ > numMinima_ / 8)
            numMinima_ = 0;
        if (numMinima_ == 0)
            return;
        for (long first = 0; first < numMinima_; first += chunkBlocks)
            distances.minima(search_.block_(first), std::min(chunkBlocks, numMinima_ - first), minima_ + first);
        selectSmallest_();
        std::uint16_t sums[Bytes::blockRows];
        for (long i = 0; i < k_; ++i)
        {
            const long block = static_cast<long>(selection_[i]) % mostMinima;
            distances.sums(search_.block_(block), sums);
            take_(block * Bytes::blockRows + lowestRow(Bytes::rowsUpTo(minima_[block], sums)), false);
        }
        finishTaking_(false);
        std::fill(keys_, keys_ + k_, infinity);
    }

    // Takes all rows but those whose sums exceed limit(their errors).
    template <class Distances, class Limit>
    void secondPass_(const Distances& distances, const Limit& exactLimit)
    {
        const auto limit = [&](const Errors_& errors)
        { return static_cast<long>(std::min(std::max(exactLimit(errors), -1.0), largestSum)); };
        list_.clear(); // not before: it shares memory with selection_
        const long blocks = search_.numBlocks_();
        std::uint16_t sums[Bytes::blockRows];
        long numUnfiltered = 0;
        for (long block = 0; block < blocks; ++block)
        {
            const long highest = limit(search_.largestErrors_);
            while (block < numMinima_ && minima_[block] > highest)
                ++block;
            if (block == blocks)
                break;
            const long high = limit(search_.errors_[block]);
            if (high < 0 || (block < numMinima_ && minima_[block] > high))
                continue;
            const long first = block * Bytes::blockRows;
            if (numUnfiltered > 0)
            {
                --numUnfiltered;
                takeAll_(first, first + Bytes::blockRows);
                continue;
            }
            distances.sums(search_.block_(block), sums);
            long passed = 0;
            for (std::uint64_t rows = Bytes::rowsUpTo(static_cast<std::uint16_t>(high), sums); rows != 0;
                 rows &= rows - 1, ++passed)
                take_(first + lowestRow(rows), true);
            if (passed > Bytes::blockRows / 2)
                numUnfiltered = blocksUnfiltered;
        }
    }

    // Puts the k smallest minima into the heap selection_, each as minimum * mostMinima + block.
    void selectSmallest_()
    {
        std::fill(selection_, selection_ + k_, infinity);
        double largest = infinity;
        for (long block = 0; block < numMinima_; ++block)
        {
            if (minima_[block] >= largest)
                continue;
            replaceLargest(selection_, k_, static_cast<double>(minima_[block] * mostMinima + block));
            largest = std::floor(selection_[0] / mostMinima);
        }
    }

    // Notes a row to be looked at in double; keeps it as a candidate if `asCandidate`. A batch is announced when it is
    // full, and looked at when the next one is.
    void take_(long index, bool asCandidate)
    {
        taken_[numTaken_++] = index;
        if (numTaken_ % batchRows != 0)
            return;
        rows_.announce(taken_ + numTaken_ - batchRows, batchRows);
        if (numTaken_ == 2 * batchRows)
            takeBatch_(batchRows, asCandidate);
    }

    void takeAll_(long first, long end)
    {
        for (long index = first; index < end; ++index)
            take_(index, true);
    }

    void finishTaking_(bool asCandidates)
    {
        while (numTaken_ > 0)
            takeBatch_(std::min(batchRows, numTaken_), asCandidates);
    }

    // Looks at the first `count` of the rows that were noted.
    void takeBatch_(long count, bool asCandidates)
    {
        const double* rows[batchRows];
        rows_.fetch(taken_, count, rows);
        for (long j = 0; j < count; ++j)
        {
            const long last = std::min(n_, prefetchedColumns) - 1;
            for (long c = 0; c < last; c += 8)
                tkPrefetch(rows[j] + c);
            tkPrefetch(rows[j] + last);
        }
        double keys[batchRows];
        if (powerSums_)
            powerSums_(query_, rows, count, n_, keys);
        else
            for (long j = 0; j < count; ++j)
                keys[j] = tkNMNormDistance(query_, rows[j], n_, order_);
        const double largestKey = keys_[0];
        for (long j = 0; j < count; ++j)
        {
            if (keys[j] > keyBound_)
                continue;
            if (keys[j] < keys_[0])
                replaceLargest(keys_, k_, keys[j]);
            if (!asCandidates)
                continue;
            if (numCandidates_ == mostCandidates)
                makeRoom_();
            candidates_[numCandidates_++] = {taken_[j], keys[j], rows[j]};
        }
        if (keys_[0] < largestKey)
            tightenBounds_();
        std::copy(taken_ + count, taken_ + numTaken_, taken_);
        numTaken_ -= count;
    }

    // Lets the bounds follow the largest of the k smallest keys; see (2).
    void tightenBounds_()
    {
        double bound = keys_[0];
        double reach;
        if (powerSums_)
        {
            bound += bound * (8.0 * static_cast<double>(n_) + 512.0) * 0x1p-53 + tinySum;
            reach = std::pow(bound, 1.0 / order_);
        }
        else
            reach = std::max(bound, std::pow(tinySum, 1.0 / order_));
        keyBound_ = std::min(keyBound_, bound);
        reach_ = std::min(reach_, reach * (1.0 + 1e-9));
    }

    void makeRoom_()
    {
        Candidate_* end = std::remove_if(candidates_, candidates_ + numCandidates_,
                                         [&](const Candidate_& c) { return c.key > keyBound_; });
        numCandidates_ = end - candidates_;
        if (numCandidates_ > mostCandidates / 2)
            decide_();
    }

    // Lets the definition decide on the candidates, which are in storage order.
    void decide_()
    {
        for (long i = 0; i < numCandidates_; ++i)
            if (!(candidates_[i].key > keyBound_))
                list_.add(candidates_[i].index, distance_(candidates_[i]));
        numCandidates_ = 0;
    }

    // Equal rows have equal distances: where many stand at the edge of the list, most are not worth the powers.
    double distance_(const Candidate_& candidate)
    {
        if (!powerSums_)
            return candidate.key;
        for (long i = 0; i < std::min(numKnown_, mostKnown); ++i)
            if (known_[i].key == candidate.key && std::memcmp(known_[i].row, candidate.row, n_ * sizeof(double)) == 0)
                return known_[i].distance;
        const double distance = tkNMNormDistance(query_, candidate.row, n_, order_);
        known_[numKnown_++ % mostKnown] = {candidate.key, candidate.row, distance};
        return distance;
    }

    const tkNMNeighborSearch& search_;
    const Rows& rows_;
    const double* query_;
    const double order_;
    const long n_;
    const long k_;
    const PowerSums powerSums_; // null: the keys are the distances
    const tkNMInstructions instructions_;

    double* const selection_;    // k places that the list needs only after pass 1
    double* const keys_;         // heap of the k smallest keys, the largest first
    double keyBound_ = infinity; // rows with larger keys are not in the list
    double reach_ = infinity;    // nor are rows farther away than this

    std::uint16_t minima_[mostMinima]; // of the first numMinima_ blocks: their smallest sums
    long numMinima_ = 0;
    long taken_[2 * batchRows]; // noted and not yet looked at
    long numTaken_ = 0;
    Candidate_ candidates_[mostCandidates];
    long numCandidates_ = 0;
    Known_ known_[mostKnown];
    long numKnown_ = 0; // all that ever were; the latest ones are kept
    tkNMNeighborList list_;
};

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances, tkNMInstructions instructions) const
{
    TK_ASSERT(k >= 1);
    k = std::min(k, numRows_);
    if (k < numRows_ && allModest_ && numColumns_ > 0 && isModest(query, numColumns_) && order >= 1.0 &&
        order <= largestOrder)
        Run_(*this, rows, query, order, k, instructions, indices, distances).run();
    else
        searchByDefinition(rows, numRows_, query, numColumns_, order, k, indices, distances);
    return k;
}
