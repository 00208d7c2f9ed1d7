#include "numerics/kernels/tkNMNormalBatch.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/kernels/tkNMMarginalLanes.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>

// Layout of the stream per set; each value is stored `width` times, once per category:
//
//     log peak; means; compensations;
//     W by bands of eight rows, or of four, two, one where fewer are left: its columns before the diagonal one after
//     the other, then those from the diagonal down
//
// which is the order in which an evaluation reads them. Reading, not computing, takes the time where the factorisations
// of many measurements exceed the nearest cache.

namespace
{
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

constexpr std::size_t triangleSize(std::size_t size)
{
    return size * (size + 1) / 2;
}

/// Values of one set: log peak, means, compensations and W.
constexpr std::size_t densitySize(std::size_t size)
{
    return 1 + 2 * size + triangleSize(size);
}

/// Rows of the band that begins with row `first` < size.
std::size_t bandRows(std::size_t first, std::size_t size)
{
    std::size_t rows = 8;
    while (rows > size - first)
        rows /= 2;
    return rows;
}

/// Calls put(value) for the values of one set in the order of the stream.
template <class Put>
void forEachValue(const tkNMFactorisation& f, Put put)
{
    const std::size_t size = f.dimension();
    put(f.logPeak);
    for (const double mean : f.mean)
        put(mean);
    for (const double compensation : f.compensation)
        put(compensation);
    for (std::size_t first = 0, rows = 0; first < size; first += rows)
    {
        rows = bandRows(first, size);
        for (std::size_t j = 0; j < first + rows; ++j)
            for (std::size_t i = std::max(first, j); i < first + rows; ++i)
                put(f.covariance.w(i, j));
    }
}

/// Adds column j on the diagonal of a band and those after it; returns what follows them.
template <std::size_t width, std::size_t rows, std::size_t j = 0, class Register>
TK_ALWAYS_INLINE const double* addDiagonal(const double* w, const double* v, Register* y)
{
    Register deviation;
    loadRegister(deviation, v + width * j);
    for (std::size_t i = j; i < rows; ++i, w += width)
    {
        Register element;
        loadRegister(element, w);
        y[i] = y[i] + element * deviation;
    }
    if constexpr (j + 1 < rows)
        return addDiagonal<width, rows, j + 1>(w, v, y);
    else
        return w;
}

/// Adds the products of a band of rows, the first of which is row `first`, to y, and returns what follows it.
template <std::size_t width, std::size_t rows, class Register>
TK_ALWAYS_INLINE const double* addBand(const double* w, const double* v, std::size_t first, Register* y)
{
    for (std::size_t j = 0; j < first; ++j, v += width)
    {
        Register deviation;
        loadRegister(deviation, v);
        for (std::size_t i = 0; i < rows; ++i, w += width)
        {
            Register element;
            loadRegister(element, w);
            y[i] = y[i] + element * deviation;
        }
    }
    return addDiagonal<width, rows>(w, v, y);
}

/// Calls use(y) for each eight rows y of W v, with 0.0 for rows beyond the last. `v` has a deviation per measurement
/// and lane.
template <std::size_t width, class Use>
TK_ALWAYS_INLINE void multiply(const double* w, const double* v, std::size_t size, Use& use)
{
    using Register = typename RegisterOf<double, width>::Type;
    std::size_t first = 0;
    for (; first + 8 <= size; first += 8)
    {
        Register y[8] = {};
        w = addBand<width, 8>(w, v, first, y);
        use(y);
    }
    if (first < size)
    {
        Register y[8] = {};
        Register* rest = y;
        if (size - first >= 4)
        {
            w = addBand<width, 4>(w, v, first, rest);
            first += 4;
            rest += 4;
        }
        if (size - first >= 2)
        {
            w = addBand<width, 2>(w, v, first, rest);
            first += 2;
            rest += 2;
        }
        if (first < size)
            w = addBand<width, 1>(w, v, first, rest);
        use(y);
    }
}

template <class Register>
struct SumOfSquares
{
    Register q[8] = {};

    TK_ALWAYS_INLINE void operator()(const Register* y)
    {
        for (std::size_t l = 0; l < 8; ++l)
            q[l] = q[l] + y[l] * y[l];
    }
};

/// The squared distances of a set, whose means stand at `stream`, from its measurements x. `v` has room for a deviation
/// per measurement and lane.
template <std::size_t width, class Register>
TK_ALWAYS_INLINE void squaredDistances(const double* stream, const double* x, std::size_t size, double* v,
                                       Register& square)
{
    const double* const compensations = stream + width * size;
    for (std::size_t j = 0; j < size; ++j)
    {
        Register mean;
        Register compensation;
        loadRegister(mean, stream + width * j);
        loadRegister(compensation, compensations + width * j);
        storeRegister((x[j] - mean) - compensation, v + width * j);
    }
    SumOfSquares<Register> sum;
    multiply<width>(compensations + width * size, v, size, sum);
    const Register* const q = sum.q;
    square = ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
}

template <class Register>
TK_ALWAYS_INLINE void addDensity(const Register& peak, const Register& square, Register& sum, Register& squares)
{
    squares = squares + square; // none of which, >= 0 or NaN, is above their sum
    const Register half = (0.5 * square + tkNMFactorisation::gridShift) - tkNMFactorisation::gridShift;
    sum = sum + (peak - half);
}

/// Categories in lanes, and a point.
struct Evaluation
{
    std::size_t width;
    const double* stream;
    const double* terms;
    const tkNMNormalBatch::Range* range;
    const tkNMNormalBatch::Range* end;
    const double* x;
    const bool* valid; // null: all
    tkNMInstructions instructions;
};

/// The log peaks and squared distances of sets of one measurement each.
template <std::size_t width, class Register>
TK_ALWAYS_INLINE void evaluateOne(const double* stream, double x, Register& peak, Register& square)
{
    Register mean;
    Register compensation;
    Register w;
    loadRegister(peak, stream);
    loadRegister(mean, stream + width);
    loadRegister(compensation, stream + 2 * width);
    loadRegister(w, stream + 3 * width);
    const Register y = w * ((x - mean) - compensation);
    square = y * y;
}

/// Adds the log densities of `width` categories to their sums. `v` has room for a deviation per measurement and lane.
template <std::size_t width>
TK_ALWAYS_INLINE void addLogDensitiesOf(const Evaluation& evaluation, double* v, double* sums)
{
    using Register = typename RegisterOf<double, width>::Type;
    const double* stream = evaluation.stream;
    Register sum;
    loadRegister(sum, sums);
    Register squares = {};
    for (const tkNMNormalBatch::Range* range = evaluation.range; range != evaluation.end; ++range)
    {
        const std::size_t size = range->first.size;
        const double* point = evaluation.x + range->first.first;
        const double* const last = point + range->count * size;
        Register peak;
        Register square;
        if (size == 1)
            for (; point != last; ++point, stream += 4 * width)
            {
                evaluateOne<width>(stream, *point, peak, square);
                addDensity(peak, square, sum, squares);
            }
        else
            for (; point != last; point += size, stream += width * densitySize(size))
            {
                loadRegister(peak, stream);
                squaredDistances<width>(stream + width, point, size, v, square);
                addDensity(peak, square, sum, squares);
            }
    }
    sum = squares <= tkNMFactorisation::largestSquare ? sum : sum * notANumber;
    storeRegister(sum, sums);
}

/// Copies the columns of W at the invalid measurements, divided by their units; see tkNMMarginalLanes.
template <std::size_t width>
TK_ALWAYS_INLINE void copyColumns(const double* w, const double* terms, std::size_t size, const std::size_t* invalid,
                                  std::size_t numInvalid, double* columns)
{
    using Marginal = tkNMMarginalLanes<width>;
    using Register = typename Marginal::Register;
    double* end = columns;
    for (std::size_t k = 0; k < numInvalid; ++k)
    {
        std::fill_n(end, Marginal::block, 0.0);
        end += Marginal::block * Marginal::blocksOf(invalid[k], size);
        std::fill_n(end - Marginal::block, Marginal::block, 0.0);
    }
    for (std::size_t first = 0, rows = 0; first < size; first += rows)
    {
        rows = bandRows(first, size);
        double* column = columns;
        for (std::size_t k = 0; k < numInvalid && invalid[k] < first + rows; ++k)
        {
            const std::size_t j = invalid[k];
            const std::size_t inDiagonal = j < first ? 0 : j - first;
            const std::size_t before =
                rows * std::min(j, first) + inDiagonal * rows - triangleSize(inDiagonal) + inDiagonal;
            const double* element = w + width * before;
            Register divisor;
            loadRegister(divisor, Marginal::divisorOf(terms, j));
            for (std::size_t i = first + inDiagonal; i < first + rows; ++i, element += width)
            {
                Register value;
                loadRegister(value, element);
                storeRegister(value * divisor, column + width * (i - j / 8 * 8));
            }
            column += Marginal::block * Marginal::blocksOf(j, size);
        }
        w += width * (rows * first + triangleSize(rows));
    }
}

template <std::size_t width>
struct StoreRows
{
    double* rows;

    template <class Register>
    TK_ALWAYS_INLINE void operator()(const Register* y)
    {
        for (std::size_t l = 0; l < 8; ++l, rows += width)
            storeRegister(y[l], rows);
    }
};

/// The log peaks and squared distances of the marginals of a set, whose means stand at `stream`.
template <std::size_t width, class Register>
TK_ALWAYS_INLINE void evaluateMarginal(const double* stream, const double* terms, const double* x, const bool* valid,
                                       std::size_t size, const std::size_t* invalid, std::size_t numInvalid,
                                       tkNMInstructions instructions, double* scratch, Register& peak, Register& square)
{
    using Marginal = tkNMMarginalLanes<width>;
    const double* const compensations = stream + width * size;
    const double* const w = compensations + width * size;
    double* const v = scratch;
    for (std::size_t j = 0; j < size; ++j)
    {
        Register deviation = {};
        if (valid[j])
        {
            Register mean;
            Register compensation;
            loadRegister(mean, stream + width * j);
            loadRegister(compensation, compensations + width * j);
            deviation = (x[j] - mean) - compensation;
        }
        storeRegister(deviation, v + width * j);
    }
    double* const squares = v + width * size;
    double* const columns = squares + (width * numInvalid + 7) / 8 * 8;
    copyColumns<width>(w, terms, size, invalid, numInvalid, columns);
    StoreRows<width> residual{columns};
    for (std::size_t k = 0; k < numInvalid; ++k)
        residual.rows += Marginal::block * Marginal::blocksOf(invalid[k], size);
    multiply<width>(w, v, size, residual);
    Marginal::compute(terms, valid, size, invalid, numInvalid, columns, squares, instructions, peak, square);
}

/// The same for marginals. `scratch` has room as of scratchOfMarginals(), `invalid` for the measurements of a set.
template <std::size_t width>
TK_ALWAYS_INLINE void addLogMarginalsOf(const Evaluation& evaluation, double* scratch, std::size_t* invalid,
                                        double* sums)
{
    using Register = typename RegisterOf<double, width>::Type;
    const double* stream = evaluation.stream;
    const double* terms = evaluation.terms;
    Register sum;
    loadRegister(sum, sums);
    Register squares = {};
    for (const tkNMNormalBatch::Range* range = evaluation.range; range != evaluation.end; ++range)
    {
        const std::size_t size = range->first.size;
        std::size_t first = range->first.first;
        for (std::size_t i = 0; i < range->count; ++i)
        {
            const double* const x = evaluation.x + first;
            const bool* const valid = evaluation.valid + first;
            std::size_t numInvalid = 0;
            for (std::size_t j = 0; j < size; ++j)
                if (!valid[j])
                    invalid[numInvalid++] = j;
            if (numInvalid < size) // else the log density is 0.0
            {
                Register peak;
                Register square;
                loadRegister(peak, stream);
                if (size == 1)
                    evaluateOne<width>(stream, *x, peak, square);
                else if (numInvalid == 0)
                    squaredDistances<width>(stream + width, x, size, scratch, square);
                else
                    evaluateMarginal<width>(stream + width, terms, x, valid, size, invalid, numInvalid,
                                            evaluation.instructions, scratch, peak, square);
                addDensity(peak, square, sum, squares);
            }
            first += size;
            stream += width * densitySize(size);
            terms += width * tkNMMarginalLanes<width>::numTerms(size);
        }
    }
    sum = squares <= tkNMFactorisation::largestSquare ? sum : sum * notANumber;
    storeRegister(sum, sums);
}

/// Doubles that the marginals of sets up to this size take.
constexpr std::size_t scratchOfMarginals(std::size_t size, std::size_t numInvalid)
{
    return 8 * (size + numInvalid + (size + 7) / 8 * 8 * (numInvalid + 1));
}

/// One or the other for the width of the evaluation, up to `widest`.
template <std::size_t widest>
TK_ALWAYS_INLINE void addUpTo(const Evaluation& evaluation, double* scratch, std::size_t* invalid, double* sums)
{
    if (evaluation.width == widest)
    {
        if (evaluation.valid != nullptr)
            addLogMarginalsOf<widest>(evaluation, scratch, invalid, sums);
        else
            addLogDensitiesOf<widest>(evaluation, scratch, sums);
    }
    else if constexpr (widest > 1)
        addUpTo<widest / 2>(evaluation, scratch, invalid, sums);
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 void addAvx2(const Evaluation& evaluation, double* scratch, std::size_t* invalid, double* sums)
{
    addUpTo<4>(evaluation, scratch, invalid, sums);
}

TK_TARGET_AVX512 void addAvx512(const Evaluation& evaluation, double* scratch, std::size_t* invalid, double* sums)
{
    addUpTo<8>(evaluation, scratch, invalid, sums);
}
#endif

void add(const Evaluation& evaluation, double* scratch, std::size_t* invalid, double* sums)
{
#if TK_HAS_X86_TARGETS
    if (evaluation.instructions == tkNMInstructions::Avx512)
        return addAvx512(evaluation, scratch, invalid, sums);
    if (evaluation.instructions == tkNMInstructions::Avx2)
        return addAvx2(evaluation, scratch, invalid, sums);
#endif
    addUpTo<plainWidth>(evaluation, scratch, invalid, sums);
}

/// Whether computing `categories` of so many densities in `width` lanes takes less time than one after the other, with
/// eight rows of each W side by side. Then the widest registers are full, but each density costs about as much as 64
/// steps more (as measured); what lies in farther caches is as much to read either way if no lane is empty.
bool doLanesPay(std::size_t categories, std::size_t densities, std::size_t steps, std::size_t width, std::size_t widest)
{
    return categories * (64 * widest * densities + steps) >= widest * steps ||
           (categories == width && 2 * width >= widest);
}

/// Lanes of the widest registers of an instruction set. One by one is the definition.
std::size_t widthOf(tkNMInstructions instructions)
{
    switch (instructions)
    {
    case tkNMInstructions::Definition:
        return 0;
    case tkNMInstructions::Avx2:
        return 4;
    case tkNMInstructions::Avx512:
        return 8;
    default:
        return plainWidth;
    }
}

/// The first element at a multiple of 64 bytes; there are seven more elements than are used from there on.
double* aligned(double* elements)
{
    return elements + (8 - reinterpret_cast<std::uintptr_t>(elements) / sizeof(double) % 8) % 8;
}
} // namespace

tkNMNormalBatch::tkNMNormalBatch(const std::vector<Category>& categories, tkNMInstructions instructions)
    : instructions_(instructions)
{
    std::map<std::vector<Set>, Alike_> alike;
    for (const Category& category : categories)
    {
        std::vector<Set> sets;
        for (const Density& density : category.densities)
        {
            TK_ASSERT(density.factorisation->dimension() > 0);
            sets.push_back({density.first, density.factorisation->dimension()});
            largestSet_ = std::max(largestSet_, sets.back().size);
            reach_ = std::max(reach_, sets.back().first + sets.back().size);
        }
        if (!sets.empty())
            alike[sets].push_back(&category);
    }
    for (const auto& [sets, those] : alike)
        place_(sets, those);
}

/// Gives lanes to categories of the same sets as long as that pays; the others are computed by themselves.
void tkNMNormalBatch::place_(const std::vector<Set>& sets, const Alike_& alike)
{
    std::vector<Range> ranges;
    std::size_t perLane = 0;
    std::size_t termsPerLane = 0;
    for (const Set& set : sets)
    {
        if (ranges.empty() || !ranges.back().isContinuedBy(set))
            ranges.push_back({set, 0});
        ++ranges.back().count;
        perLane += densitySize(set.size);
        termsPerLane += tkNMMarginalLanes<1>::numTerms(set.size);
    }
    const std::size_t widest = widthOf(instructions_);
    auto category = alike.begin();
    while (category != alike.end())
    {
        const auto left = static_cast<std::size_t>(alike.end() - category);
        std::size_t width = widest;
        while (width / 2 >= left)
            width /= 2;
        const std::size_t count = std::min(width, left);
        if (count == 0 || !doLanesPay(count, sets.size(), perLane, width, widest))
            break;
        lanes_.push_back({width, std::vector<std::size_t>(count), ranges, stream_.size(), terms_.size()});
        stream_.resize(stream_.size() + (width * perLane + 7) / 8 * 8);
        terms_.resize(terms_.size() + (width * termsPerLane + 7) / 8 * 8, 1.0);
        fill_(lanes_.back(), category);
        category += static_cast<std::ptrdiff_t>(count);
    }
    for (; category != alike.end(); ++category)
    {
        singles_.push_back({(*category)->number, {}, {}});
        for (const Density& density : (*category)->densities)
        {
            singles_.back().firsts.push_back(density.first);
            singles_.back().factorisations.push_back(*density.factorisation);
        }
    }
}

/// Lanes without a category keep zeros, and ones as their terms.
void tkNMNormalBatch::fill_(Lanes_& lanes, Alike_::const_iterator category)
{
    for (std::size_t l = 0; l < lanes.categories.size(); ++l, ++category)
    {
        lanes.categories[l] = (*category)->number;
        const auto putInto = [&lanes](double*& place)
        {
            return [&lanes, &place](double value)
            {
                *place = value;
                place += lanes.width;
            };
        };
        double* place = &stream_[lanes.begin + l];
        double* term = &terms_[lanes.beginOfTerms + l];
        for (const Density& density : (*category)->densities)
        {
            forEachValue(*density.factorisation, putInto(place));
            tkNMMarginalLanes<1>::putTerms(density.factorisation->covariance, putInto(term));
        }
    }
}

void tkNMNormalBatch::addLogDensities(const double* x, double* sums) const
{
    tkScratch<double, 256 * 8 + 7> scratch(largestSet_ * 8 + 7);
    addInLanes_(x, nullptr, aligned(scratch.data()), nullptr, sums);
    for (const Single_& single : singles_)
        addLogDensities_(single, x, sums[single.category]);
}

void tkNMNormalBatch::addLogMarginals(const double* x, const bool* valid, double* sums) const
{
    const auto numInvalid = static_cast<std::size_t>(std::count(valid, valid + reach_, false));
    const std::size_t mostInvalid = std::min(numInvalid, largestSet_);
    tkScratch<double, scratchOfMarginals(64, 16) + 7> scratch(scratchOfMarginals(largestSet_, mostInvalid) + 7);
    tkScratch<std::size_t, 256> invalid(largestSet_);
    addInLanes_(x, valid, aligned(scratch.data()), invalid.data(), sums);
    for (const Single_& single : singles_)
        for (std::size_t i = 0; i < single.firsts.size(); ++i)
            sums[single.category] +=
                single.factorisations[i].logMarginal(x + single.firsts[i], valid + single.firsts[i], instructions_);
}

void tkNMNormalBatch::addInLanes_(const double* x, const bool* valid, double* scratch, std::size_t* invalid,
                                  double* sums) const
{
    for (const Lanes_& lanes : lanes_)
    {
        const Range* const ranges = lanes.ranges.data();
        const Evaluation evaluation{lanes.width,
                                    stream_.data() + lanes.begin,
                                    terms_.data() + lanes.beginOfTerms,
                                    ranges,
                                    ranges + lanes.ranges.size(),
                                    x,
                                    valid,
                                    instructions_};
        double own[8] = {};
        for (std::size_t l = 0; l < lanes.categories.size(); ++l)
            own[l] = sums[lanes.categories[l]];
        add(evaluation, scratch, invalid, own);
        for (std::size_t l = 0; l < lanes.categories.size(); ++l)
            sums[lanes.categories[l]] = own[l];
    }
}

void tkNMNormalBatch::addLogDensities_(const Single_& single, const double* x, double& sum) const
{
    double squares = 0.0;
    for (std::size_t i = 0; i < single.firsts.size(); ++i)
    {
        const tkNMFactorisation& f = single.factorisations[i];
        addDensity(f.logPeak, f.squaredDistance(x + single.firsts[i], instructions_), sum, squares);
    }
    sum = squares <= tkNMFactorisation::largestSquare ? sum : notANumber;
}
