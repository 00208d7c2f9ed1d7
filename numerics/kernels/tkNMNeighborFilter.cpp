#include "numerics/kernels/tkNMNeighborFilter.h"

#include "foundation/tkPrefetch.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/kernels/tkNMNormPower.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNeighborList.h"
#include "numerics/tkNMNormDistance.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

// How rows are ruled out. docs/numerics.md, "How most patterns are ruled out", proves the limits (1) to (3).
//
// Pass 1 keeps of each block the smallest sum of bytes. The rows that have the k smallest of these are k distinct rows,
// hence bound the k-th smallest distance. Pass 2 returns to the blocks whose smallest sum does not exceed the limits
// (1) and (2) of that bound. The rows found there wait as candidates with their keys, sums of powers in double, until
// all blocks are done. The k-th smallest key is then known, and (3) leaves about k rows for the definition to decide
// on. Where most rows of a block pass the test of bytes, the next blocks are likely to be no better: they are taken
// without it.

namespace
{
using Bytes = tkNMByteDistances;

constexpr double largestFloat = std::numeric_limits<float>::max();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double smallestStep = 1e-200;
constexpr double tinySum = 0x1p-960;
constexpr double largestKey = 1e300;

constexpr long chunkBlocks = 16;
constexpr long fewestQuantised = 128;  // rows; fewer are as fast without bytes
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
constexpr long fewestKept = 32; // columns; sums of fewer are computed again faster than their minima are found

using PowerSums = void (*)(const tkNMNormPower&, const double*, const double* const*, long, long, double*);

// sums[j] = sum of |query - rows[j]|^p, added up in the lanes of two registers.
template <std::size_t width, tkNMNormPower::Kind kind>
TK_ALWAYS_INLINE void addPowers(const tkNMNormPower& power, const double* query, const double* const* rows, long count,
                                long n, double* sums)
{
    using Register = typename RegisterOf<double, width>::Type;
    constexpr long step = width;
    for (long j = 0; j < count; ++j)
    {
        const double* const row = rows[j];
        const auto add = [&](Register& sum, long c)
        {
            Register a;
            Register b;
            loadRegister(a, query + c);
            loadRegister(b, row + c);
            a = a - b;
            raiseDifference<width, kind>(power, a);
            sum = sum + a;
        };
        Register even = {};
        Register odd = {};
        long c = 0;
        for (; c + 2 * step <= n; c += 2 * step)
        {
            add(even, c);
            add(odd, c + step);
        }
        if (c + step <= n)
        {
            add(even, c);
            c += step;
        }
        even = even + odd;
        double lanes[width];
        storeRegister(even, lanes);
        double sum = 0.0;
        for (const double lane : lanes)
            sum += lane;
        for (; c < n; ++c)
        {
            double term = query[c] - row[c];
            raiseDifference<1, kind>(power, term);
            sum += term;
        }
        sums[j] = sum;
    }
}

template <tkNMNormPower::Kind kind>
void powerSums(const tkNMNormPower& power, const double* query, const double* const* rows, long count, long n,
               double* sums)
{
    addPowers<plainWidth, kind>(power, query, rows, count, n, sums);
}

#if TK_HAS_X86_TARGETS
template <tkNMNormPower::Kind kind>
TK_TARGET_AVX2 void powerSumsAvx2(const tkNMNormPower& power, const double* query, const double* const* rows,
                                  long count, long n, double* sums)
{
    addPowers<4, kind>(power, query, rows, count, n, sums);
}
#else
template <tkNMNormPower::Kind kind>
constexpr PowerSums powerSumsAvx2 = powerSums<kind>;
#endif

// Null for orders without products.
PowerSums choosePowerSums(tkNMNormPower::Kind kind, tkNMInstructions instructions)
{
    using Power = tkNMNormPower;
    static constexpr PowerSums plain[] = {powerSums<Power::First>, powerSums<Power::Second>, powerSums<Power::Third>,
                                          powerSums<Power::Halves>, nullptr};
    static constexpr PowerSums avx2[] = {powerSumsAvx2<Power::First>, powerSumsAvx2<Power::Second>,
                                         powerSumsAvx2<Power::Third>, powerSumsAvx2<Power::Halves>, nullptr};
    return (std::min(instructions, tkNMBestInstructions()) >= tkNMInstructions::Avx2 ? avx2 : plain)[kind];
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

} // namespace

std::size_t tkNMNeighborFilter::memory() const
{
    std::size_t bytes = centres_.capacity() * sizeof(double) + errors_.capacity() * sizeof errors_[0] +
                        chunks_.capacity() * sizeof(std::vector<Line>);
    for (const std::vector<Line>& chunk : chunks_)
        bytes += chunk.capacity() * sizeof(Line);
    return bytes;
}

void tkNMNeighborFilter::update(const Rows& rows, long numRows)
{
    // From here on the new rows count. Those that no block covers are compared in double, so that nothing is wrong if
    // memory runs out below.
    numRows_ = numRows;
    if (numRows < fewestQuantised || numColumns_ < 1 || numColumns_ > Bytes::maxColumns)
        return;
    if (numRows >= 2 * fitRows_)
        fit_(rows, numRows);
    while ((numBlocks_() + 1) * Bytes::blockRows <= numRows)
        appendBlock_(rows);
}

// Chooses centres and step from an even sample of the rows, and lets go of the blocks. The step is the smallest for
// which no column is clipped in more than a small share of the sample.
void tkNMNeighborFilter::fit_(const Rows& rows, long numRows)
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
tkNMNeighborFilter::Errors_ tkNMNeighborFilter::toBytes_(const double* row, std::int8_t* bytes) const
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

// Quantises the next 64 rows.
void tkNMNeighborFilter::appendBlock_(const Rows& rows)
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

const tkNMByteDistances::Line* tkNMNeighborFilter::block_(long block) const
{
    return &chunks_[block / chunkBlocks][block % chunkBlocks * numColumns_];
}

/// One query. Rows are compared by keys: sums of powers, or distances where the order has no fast powers.
class tkNMNeighborFilter::Query_
{
public:
    /// `distances` has room for 2 k entries, `indices` for k. The list comes to stand in the first k.
    Query_(const tkNMNeighborFilter& filter, const Rows& rows, const double* query, double order, long k,
           tkNMInstructions instructions, long* indices, double* distances)
        : filter_(filter),
          rows_(rows),
          query_(query),
          power_(order),
          n_(filter.numColumns_),
          k_(k),
          powerSums_(choosePowerSums(power_.kind, instructions)),
          instructions_(instructions),
          indices_(indices),
          selection_(distances),
          keys_(distances + k),
          list_(k, indices, distances)
    {
        std::fill(keys_, keys_ + k, infinity);
    }

    void run(bool asSet)
    {
        if (filter_.numBlocks_() > 0)
            searchBlocks_();
        else
            list_.clear();
        takeAll_(filter_.numBlocks_() * Bytes::blockRows, filter_.numRows_);
        finishTaking_(true);
        if (!(asSet && isSet_()))
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

    // Searches the blocks by the limits (1) and (2).
    void searchBlocks_()
    {
        const int power = power_.order < 2.0 ? 1 : 2;
        const Bytes bytes(n_, power, instructions_);
        const double queryError = filter_.toBytes_(query_, queryBytes_.bytes).clipped;
        bytes.prepare(queryBytes_);
        // Factors that turn norms of order p and of order 2 into norms of order m.
        const double columns = static_cast<double>(n_);
        const double reachFactor = tkNMElementary::pow(columns, 1.0 / power - 1.0 / power_.order) / filter_.step_;
        const double errorFactor = power == 1 ? std::sqrt(columns) : 1.0;
        const double scale = std::ldexp(1.0, -bytes.shift()) * (1.0 + 1e-9);
        const double outside = outside_(power);
        const auto limit = [&](const Errors_& errors)
        {
            double reach = reach_ * reachFactor;
            if (outside > 0.0)
            {
                const double whole = reach + errorFactor * errors.whole + 1e-6;
                const double rest = power == 1 ? whole - outside : (whole - outside) * (whole + outside);
                reach = std::min(reach, power == 1 ? std::max(rest, 0.0) : std::sqrt(std::max(rest, 0.0)));
            }
            reach += errorFactor * (errors.clipped + queryError) + 1e-6;
            return static_cast<long>(std::min((power == 1 ? reach : reach * reach) * scale, largestSum));
        };
        firstPass_(bytes);
        secondPass_(bytes, limit);
    }

    // |g|_m for the query. Where it is too large to tell rows apart, 0.0 serves as well.
    double outside_(int power) const
    {
        const double stepsPerUnit = 1.0 / filter_.step_;
        double sum = 0.0;
        for (long c = 0; c < n_; ++c)
        {
            const double g = std::max(std::fabs((query_[c] - filter_.centres_[c]) * stepsPerUnit) - 127.0, 0.0);
            sum += power == 1 ? g : g * g;
        }
        const double norm = (power == 1 ? sum : std::sqrt(sum)) * (1.0 - 1e-11);
        return norm <= farthest ? norm : 0.0;
    }

    // Keeps the smallest sums of blocks, and where k is large for the number of blocks, all sums; bounds what the list
    // can hold by the k rows that seem nearest.
    void firstPass_(const Bytes& bytes)
    {
        const long blocks = filter_.numBlocks_();
        numMinima_ = std::min(blocks, mostMinima);
        const bool isWorthKeeping = k_ > blocks / 2 || (k_ > blocks / 8 && n_ >= fewestKept);
        if (isWorthKeeping && blocks + blocks * Bytes::blockRows <= mostMinima)
            sums_ = minima_ + blocks;
        const bool byRow = sums_ && k_ > blocks / 2;
        if (k_ > (byRow ? blocks * Bytes::blockRows : numMinima_) / 2)
            numMinima_ = 0;
        if (numMinima_ == 0)
        {
            sums_ = nullptr;
            return;
        }
        if (sums_)
            for (long block = 0; block < blocks; ++block)
            {
                std::uint16_t* const sums = sums_ + block * Bytes::blockRows;
                bytes.sums(filter_.block_(block), queryBytes_, sums);
                minima_[block] = *std::min_element(sums, sums + Bytes::blockRows);
            }
        else
            for (long first = 0; first < numMinima_; first += chunkBlocks)
                bytes.minima(filter_.block_(first), std::min(chunkBlocks, numMinima_ - first), queryBytes_,
                             minima_ + first);
        if (byRow)
            selectSmallest_(sums_, blocks * Bytes::blockRows);
        else
            selectSmallest_(minima_, numMinima_);
        for (long i = 0; i < k_; ++i)
        {
            const long selected = static_cast<long>(selection_[i]) % mostMinima;
            const long first = selected * Bytes::blockRows;
            take_(byRow ? selected : first + lowestRow(Bytes::rowsUpTo(minima_[selected], sumsOf_(bytes, selected))),
                  false);
        }
        finishTaking_(false);
        std::fill(keys_, keys_ + k_, infinity);
    }

    // The sums of a block, until the next call.
    const std::uint16_t* sumsOf_(const Bytes& bytes, long block)
    {
        if (sums_)
            return sums_ + block * Bytes::blockRows;
        bytes.sums(filter_.block_(block), queryBytes_, blockSums_);
        return blockSums_;
    }

    // Takes all rows but those whose sums exceed limit(their errors).
    template <class Limit>
    void secondPass_(const Bytes& bytes, const Limit& limit)
    {
        list_.clear(); // not before: it shares memory with selection_
        const long blocks = filter_.numBlocks_();
        long numUnfiltered = 0;
        for (long block = 0; block < blocks; ++block)
        {
            const long highest = limit(filter_.largestErrors_);
            while (block < numMinima_ && minima_[block] > highest)
                ++block;
            if (block == blocks)
                break;
            const long high = limit(filter_.errors_[block]);
            if (block < numMinima_ && minima_[block] > high)
                continue;
            const long first = block * Bytes::blockRows;
            if (numUnfiltered > 0)
            {
                --numUnfiltered;
                takeAll_(first, first + Bytes::blockRows);
                continue;
            }
            long passed = 0;
            for (std::uint64_t rows = Bytes::rowsUpTo(static_cast<std::uint16_t>(high), sumsOf_(bytes, block));
                 rows != 0; rows &= rows - 1, ++passed)
                take_(first + lowestRow(rows), true);
            if (passed > Bytes::blockRows / 2)
                numUnfiltered = blocksUnfiltered;
        }
    }

    // Puts the k smallest values into the heap selection_, each as value * mostMinima + its index.
    void selectSmallest_(const std::uint16_t* values, long count)
    {
        std::fill(selection_, selection_ + k_, infinity);
        long largest = std::numeric_limits<std::uint16_t>::max() + 1L;
        for (long i = 0; i < count; ++i)
        {
            if (values[i] >= largest)
                continue;
            replaceLargest(selection_, k_, static_cast<double>(values[i] * mostMinima + i));
            if (selection_[0] < infinity)
                largest = static_cast<long>(selection_[0]) / mostMinima;
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
            powerSums_(power_, query_, rows, count, n_, keys);
        else
            for (long j = 0; j < count; ++j)
                keys[j] = tkNMNormDistance(query_, rows[j], n_, power_.order);
        const double before = keys_[0];
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
        if (keys_[0] < before)
            tightenBounds_();
        std::copy(taken_ + count, taken_ + numTaken_, taken_);
        numTaken_ -= count;
    }

    // Lets the bounds follow the largest of the k smallest keys; see (3).
    void tightenBounds_()
    {
        double bound = keys_[0];
        double reach;
        if (powerSums_)
        {
            bound = power_.upperKey(bound, n_);
            if (!(bound < largestKey)) // larger ones may have overflowed
                return;
            reach = tkNMElementary::pow(bound, 1.0 / power_.order);
        }
        else
            reach = std::max(bound, tkNMElementary::pow(tinySum, 1.0 / power_.order));
        keyBound_ = std::min(keyBound_, bound);
        reach_ = std::min(reach_, reach * (1.0 + 1e-9));
    }

    void dropCandidates_()
    {
        Candidate_* end = std::remove_if(candidates_, candidates_ + numCandidates_,
                                         [&](const Candidate_& c) { return c.key > keyBound_; });
        numCandidates_ = static_cast<long>(end - candidates_);
    }

    void makeRoom_()
    {
        dropCandidates_();
        if (numCandidates_ > mostCandidates / 2)
            decide_();
    }

    // Whether just k rows are left, so that nothing has to be decided; writes them.
    bool isSet_()
    {
        dropCandidates_();
        if (hasDecided_ || numCandidates_ != k_)
            return false;
        for (long i = 0; i < k_; ++i)
            indices_[i] = candidates_[i].index;
        return true;
    }

    // Lets the definition decide on the candidates, which are in storage order.
    void decide_()
    {
        for (long i = 0; i < numCandidates_; ++i)
            if (!(candidates_[i].key > keyBound_))
                list_.add(candidates_[i].index, distance_(candidates_[i]));
        numCandidates_ = 0;
        hasDecided_ = true;
    }

    // Equal rows have equal distances: where many stand at the edge of the list, most are not worth the powers.
    double distance_(const Candidate_& candidate)
    {
        if (!powerSums_)
            return candidate.key;
        for (long i = 0; i < std::min(numKnown_, mostKnown); ++i)
            if (known_[i].key == candidate.key && std::memcmp(known_[i].row, candidate.row, n_ * sizeof(double)) == 0)
                return known_[i].distance;
        const double distance = tkNMNormDistance(query_, candidate.row, n_, power_.order);
        known_[numKnown_++ % mostKnown] = {candidate.key, candidate.row, distance};
        return distance;
    }

    const tkNMNeighborFilter& filter_;
    const Rows& rows_;
    const double* query_;
    const tkNMNormPower power_;
    const long n_;
    const long k_;
    const PowerSums powerSums_; // null: the keys are the distances
    const tkNMInstructions instructions_;

    long* const indices_;
    double* const selection_;    // k places that the list needs only after pass 1
    double* const keys_;         // heap of the k smallest keys, the largest first
    double keyBound_ = infinity; // rows with larger keys are not in the list
    double reach_ = infinity;    // nor are rows farther away than this

    Bytes::Query queryBytes_;
    std::uint16_t minima_[mostMinima]; // of the first numMinima_ blocks: their smallest sums
    long numMinima_ = 0;
    std::uint16_t* sums_ = nullptr; // of all rows, behind the minima; null if they are not kept
    std::uint16_t blockSums_[Bytes::blockRows];
    long taken_[2 * batchRows]; // noted and not yet looked at
    long numTaken_ = 0;
    Candidate_ candidates_[mostCandidates];
    long numCandidates_ = 0;
    bool hasDecided_ = false; // some candidates may be in the list
    Known_ known_[mostKnown];
    long numKnown_ = 0; // all that ever were; the latest ones are kept
    tkNMNeighborList list_;
};

void tkNMNeighborFilter::search(const Rows& rows, const double* query, double order, long k, bool asSet, long* indices,
                                double* distances, tkNMInstructions instructions) const
{
    Query_(*this, rows, query, order, k, instructions, indices, distances).run(asSet);
}
