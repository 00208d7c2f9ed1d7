#include "numerics/tkNMNeighborSearch.h"

#include "foundation/tkAssert.h"
#include "numerics/tkNMNeighborList.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

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
// that the definition is computed for few of them. If more than a fifth of the rows pass the test of bytes, reading
// these one by one gains nothing over reading all, and the rest is done without the bytes.

#if defined(__GNUC__)
#define TK_ALWAYS_INLINE [[gnu::always_inline]] inline
#else
#define TK_ALWAYS_INLINE inline
#endif

namespace
{
using Bytes = tkNMByteDistances;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double largestModest = 1e90;
constexpr double largestOrder = 64.0;
constexpr double smallestStep = 1e-200;
constexpr double tinySum = 0x1p-960;

constexpr long chunkBlocks = 16;
constexpr long smallestShadow = 128; // rows; fewer are as fast without
constexpr long sampleRows = 4096;    // that centres and step are taken from
constexpr long sampleTail = 512;     // one sample row in so many may be clipped at either end of a column
constexpr long batchRows = 16;       // fetched together: enough to overlap their cache misses
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

double definedDistance(const double* query, const double* row, long n, double order)
{
    double sum = 0.0;
    for (long c = 0; c < n; ++c)
        sum += std::pow(std::fabs(query[c] - row[c]), order);
    return std::pow(sum, 1.0 / order);
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

#if defined(__x86_64__) && defined(__GNUC__)
template <int power>
__attribute__((target("avx2"))) void powerSumsAvx2(const double* query, const double* const* rows, long count, long n,
                                                   double* sums)
{
    addPowers<power>(query, rows, count, n, sums);
}
#else
template <int power>
constexpr PowerSums powerSumsAvx2 = powerSums<power>;
#endif

// Null for orders without fast powers.
PowerSums choosePowerSums(double order, Bytes::Instructions instructions)
{
    const bool avx2 = std::min(instructions, Bytes::best()) >= Bytes::Avx2;
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
            list.add(first + j, definedDistance(query, rows[j], n, order));
    }
}
} // namespace

std::size_t tkNMNeighborSearch::memory() const
{
    std::size_t bytes = centres_.capacity() * sizeof(double) + errors_.capacity() * sizeof(float) +
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
    if (numRows >= 2 * fitRows_)
        fit_(rows, numRows);
    while ((numBlocks_() + 1) * Bytes::blockRows <= numRows)
        appendBlock_(rows);
}

// Chooses centres and step from an even sample of the rows, and lets go of the blocks. The step is the smallest for
// which no column is clipped in more than a small share of the sample.
void tkNMNeighborSearch::fit_(const Rows& rows, long numRows)
{
    chunks_.clear();
    errors_.clear();
    largestError_ = 0.0f;
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

// Rounds a row to bytes; returns the sum of the squared rounding errors.
double tkNMNeighborSearch::toBytes_(const double* row, std::int8_t* bytes) const
{
    const double stepsPerUnit = 1.0 / step_;
    double squares[4] = {};
    const auto round = [&](int lane, long c)
    {
        const double exact = std::min(std::max((row[c] - centres_[c]) * stepsPerUnit, -127.0), 127.0);
        const int byte = static_cast<int>(exact + 127.5) - 127;
        bytes[c] = static_cast<std::int8_t>(byte);
        squares[lane] += (exact - byte) * (exact - byte);
    };
    long c = 0;
    for (; c + 4 <= numColumns_; c += 4)
        for (int lane = 0; lane < 4; ++lane)
            round(lane, c + lane);
    for (; c < numColumns_; ++c)
        round(0, c);
    return (squares[0] + squares[1]) + (squares[2] + squares[3]);
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
    double largest = 0.0;
    for (long row = 0; row < Bytes::blockRows; ++row)
    {
        largest = std::max(largest, toBytes_(fetched[row], rowBytes));
        for (long c = 0; c + 2 <= numColumns_; c += 2)
            std::memcpy(bytes + Bytes::offset(numColumns_, row, c), rowBytes + c, 2);
        if (numColumns_ % 2 != 0)
            bytes[Bytes::offset(numColumns_, row, numColumns_ - 1)] = rowBytes[numColumns_ - 1];
    }
    errors_.push_back(static_cast<float>(std::sqrt(largest) * (1.0 + 1e-6)));
    largestError_ = std::max(largestError_, errors_.back());
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
         Instructions instructions, long* indices, double* distances)
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
        long next = 0;
        if (search_.numBlocks_() > 0)
            next = searchBlocks_() * Bytes::blockRows;
        else
            list_.clear();
        takeBatch_(true);
        for (; next < search_.numRows_; next += batchRows)
        {
            batchSize_ = std::min(batchRows, search_.numRows_ - next);
            for (long j = 0; j < batchSize_; ++j)
                batch_[j] = next + j;
            takeBatch_(true);
        }
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

    // Searches blocks from the first one on. Returns how many it searched: all, or fewer if the bytes rule out too few
    // rows.
    long searchBlocks_()
    {
        const int power = order_ < 2.0 ? 1 : 2;
        const Bytes bytes(n_, power, instructions_);
        Bytes::Query query;
        const double errorSquares = search_.toBytes_(query_, query.bytes);
        bytes.prepare(query);
        // Factors of (1), which turn norms of order p and of order 2 into norms of order m.
        const double columns = static_cast<double>(n_);
        const double reachFactor = std::pow(columns, 1.0 / power - 1.0 / order_) / search_.step_;
        const double errorFactor = power == 1 ? std::sqrt(columns) : 1.0;
        const double queryError = errorFactor * std::sqrt(errorSquares) + 1e-6;
        const double scale = std::ldexp(1.0, -bytes.shift()) * (1.0 + 1e-9);
        const auto limit = [&](double rowError)
        {
            const double reach = reach_ * reachFactor + errorFactor * rowError + queryError;
            return static_cast<long>(std::min((power == 2 ? reach * reach : reach) * scale, 65535.0));
        };

        std::uint16_t sums[Bytes::blockRows];
        std::uint16_t minima[mostMinima];
        const long blocks = search_.numBlocks_();
        long numMinima = std::min(blocks, mostMinima);
        if (k_ > numMinima / 8)
            numMinima = 0;

        // Pass 1.
        for (long first = 0; first < numMinima; first += chunkBlocks)
            bytes.minima(search_.block_(first), std::min(chunkBlocks, numMinima - first), query, minima + first);
        if (numMinima > 0)
        {
            selectSmallest_(minima, numMinima);
            for (long i = 0; i < k_; ++i)
            {
                const long block = static_cast<long>(selection_[i]) % mostMinima;
                bytes.sums(search_.block_(block), query, sums);
                const long row = std::min_element(sums, sums + Bytes::blockRows) - sums;
                take_(block * Bytes::blockRows + row, false);
            }
            takeBatch_(false);
            std::fill(keys_, keys_ + k_, infinity);
        }

        // Pass 2.
        list_.clear();
        // Without pass 1 the bound comes down as rows are looked at, and many pass at first.
        const long allowed = 8 * k_ + 2 * Bytes::blockRows;
        long block = 0;
        for (long passed = 0; block < blocks && passed <= block * Bytes::blockRows / 5 + allowed; ++block)
        {
            const long highest = limit(search_.largestError_);
            while (block < numMinima && minima[block] > highest)
                ++block;
            if (block == blocks)
                break;
            bytes.sums(search_.block_(block), query, sums);
            const long high = limit(search_.errors_[block]);
            for (long row = 0; row < Bytes::blockRows; ++row)
            {
                if (sums[row] > high)
                    continue;
                take_(block * Bytes::blockRows + row, true);
                ++passed;
            }
        }
        return block;
    }

    // Puts the k smallest minima into the heap selection_, each as minimum * mostMinima + block.
    void selectSmallest_(const std::uint16_t* minima, long count)
    {
        std::fill(selection_, selection_ + k_, infinity);
        double largest = infinity;
        for (long block = 0; block < count; ++block)
        {
            if (minima[block] >= largest)
                continue;
            replaceLargest(selection_, k_, static_cast<double>(minima[block] * mostMinima + block));
            largest = std::floor(selection_[0] / mostMinima);
        }
    }

    // Notes a row to be looked at in double; keeps it as a candidate if `asCandidate`.
    void take_(long index, bool asCandidate)
    {
        batch_[batchSize_++] = index;
        if (batchSize_ == batchRows)
            takeBatch_(asCandidate);
    }

    void takeBatch_(bool asCandidates)
    {
        const double* rows[batchRows];
        rows_.fetch(batch_, batchSize_, rows);
        double keys[batchRows];
        if (powerSums_)
            powerSums_(query_, rows, batchSize_, n_, keys);
        else
            for (long j = 0; j < batchSize_; ++j)
                keys[j] = definedDistance(query_, rows[j], n_, order_);
        const double largestKey = keys_[0];
        for (long j = 0; j < batchSize_; ++j)
        {
            if (keys[j] > keyBound_)
                continue;
            if (keys[j] < keys_[0])
                replaceLargest(keys_, k_, keys[j]);
            if (!asCandidates)
                continue;
            if (numCandidates_ == mostCandidates)
                makeRoom_();
            candidates_[numCandidates_++] = {batch_[j], keys[j], rows[j]};
        }
        if (keys_[0] < largestKey)
            tightenBounds_();
        batchSize_ = 0;
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
        const double distance = definedDistance(query_, candidate.row, n_, order_);
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
    const Instructions instructions_;

    double* const selection_;    // k places that the list needs only after pass 1
    double* const keys_;         // heap of the k smallest keys, the largest first
    double keyBound_ = infinity; // rows with larger keys are not in the list
    double reach_ = infinity;    // nor are rows farther away than this

    long batch_[batchRows];
    long batchSize_ = 0;
    Candidate_ candidates_[mostCandidates];
    long numCandidates_ = 0;
    Known_ known_[mostKnown];
    long numKnown_ = 0; // all that ever were; the latest ones are kept
    tkNMNeighborList list_;
};

long tkNMNeighborSearch::nearest(const Rows& rows, const double* query, double order, long k, long* indices,
                                 double* distances, Instructions instructions) const
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
