#include "numerics/tkNMNormalProducts.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/tkNMSingleNormal.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>

// Of each set stand in the stream, a value of each lane side by side:
//
//     the peak; the means; the remainders;
//     then W by bands of eight rows, or of four, two, one where fewer are left: its columns in front of the diagonal
//     one after the other, then those from the diagonal down
//
// which is the order in which an evaluation reads them. It is reading, and not computing, that takes the time where
// the factors of many measurements have no room in the nearest cache.

namespace
{
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// What precedes W.
constexpr std::size_t headSize(std::size_t size)
{
    return 1 + 2 * size;
}
constexpr std::size_t triangleSize(std::size_t size)
{
    return size * (size + 1) / 2;
}

constexpr std::size_t factorSize(std::size_t size)
{
    return headSize(size) + triangleSize(size);
}

/// Rows of the band that begins with row `first` < size.
std::size_t bandRows(std::size_t first, std::size_t size)
{
    std::size_t rows = 8;
    while (rows > size - first)
        rows /= 2;
    return rows;
}

/// Where W_ij stands among the elements of W.
std::size_t elementOffset(std::size_t i, std::size_t j, std::size_t size)
{
    std::size_t first = 0;
    std::size_t rows = bandRows(first, size);
    for (; first + rows <= i; rows = bandRows(first, size))
        first += rows;
    const std::size_t band = triangleSize(first); // elements of the rows above it
    if (j < first)
        return band + j * rows + i - first;
    const std::size_t columns = j - first; // on the diagonal, before j
    return band + first * rows + columns * rows - triangleSize(columns) + columns + i - j;
}

/// Adds column j on the diagonal of a band, and those behind it; returns what follows them.
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

/// The squared distances of a set, whose means stand at `stream`, from its measurements x; returns what follows it.
/// `v` has room for a deviation per measurement and lane.
template <std::size_t width, class Register>
TK_ALWAYS_INLINE const double* squaredDistances(const double* stream, const double* x, std::size_t size, double* v,
                                                Register& square)
{
    const double* const remainders = stream + width * size;
    const double* w = remainders + width * size;
    for (std::size_t j = 0; j < size; ++j)
    {
        Register mean;
        Register remainder;
        loadRegister(mean, stream + width * j);
        loadRegister(remainder, remainders + width * j);
        storeRegister((x[j] - mean) - remainder, v + width * j);
    }
    Register q[8] = {};
    std::size_t first = 0;
    for (; first + 8 <= size; first += 8)
    {
        Register y[8] = {};
        w = addBand<width, 8>(w, v, first, y);
        for (std::size_t l = 0; l < 8; ++l)
            q[l] = q[l] + y[l] * y[l];
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
        for (std::size_t l = 0; l < 8; ++l)
            q[l] = q[l] + y[l] * y[l];
    }
    square = ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
    return w;
}

template <class Register>
TK_ALWAYS_INLINE void addFactor(const Register& peak, const Register& square, Register& sum, Register& squares)
{
    squares = squares + square; // none of which, >= 0 or NaN, is above their sum
    const Register half = (0.5 * square + tkNMSingleNormal::gridShift) - tkNMSingleNormal::gridShift;
    sum = sum + (peak - half);
}

/// The log densities of `width` products of these sets.
template <std::size_t width>
TK_ALWAYS_INLINE void logDensitiesOf(const double* stream, const tkNMNormalProducts::Run* run,
                                     const tkNMNormalProducts::Run* end, const double* x, double* v, double* logs)
{
    using Register = typename RegisterOf<double, width>::Type;
    Register sum = {};
    Register squares = {};
    for (; run != end; ++run)
    {
        const std::size_t size = run->first.size;
        const double* point = x + run->first.first;
        const double* const last = point + run->count * size;
        Register peak;
        Register square;
        if (size == 1)
            for (; point != last; ++point, stream += 4 * width)
            {
                Register mean;
                Register remainder;
                Register w;
                loadRegister(peak, stream);
                loadRegister(mean, stream + width);
                loadRegister(remainder, stream + 2 * width);
                loadRegister(w, stream + 3 * width);
                const Register y = w * ((*point - mean) - remainder);
                square = y * y;
                addFactor(peak, square, sum, squares);
            }
        else
            for (; point != last; point += size)
            {
                loadRegister(peak, stream);
                stream = squaredDistances<width>(stream + width, point, size, v, square);
                addFactor(peak, square, sum, squares);
            }
    }
    sum = squares <= tkNMSingleNormal::largestSquare ? sum : sum * nan;
    storeRegister(sum, logs);
}

/// The same for a width up to `widest`.
template <std::size_t widest>
TK_ALWAYS_INLINE void logDensitiesUpTo(std::size_t width, const double* stream, const tkNMNormalProducts::Run* run,
                                       const tkNMNormalProducts::Run* end, const double* x, double* v, double* logs)
{
    if (width == widest)
        logDensitiesOf<widest>(stream, run, end, x, v, logs);
    else if constexpr (widest > 1)
        logDensitiesUpTo<widest / 2>(width, stream, run, end, x, v, logs);
}

void logDensitiesPlain(std::size_t width, const double* stream, const tkNMNormalProducts::Run* run,
                       const tkNMNormalProducts::Run* end, const double* x, double* v, double* logs)
{
    logDensitiesUpTo<plainWidth>(width, stream, run, end, x, v, logs);
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 void logDensitiesAVX2(std::size_t width, const double* stream, const tkNMNormalProducts::Run* run,
                                     const tkNMNormalProducts::Run* end, const double* x, double* v, double* logs)
{
    logDensitiesUpTo<4>(width, stream, run, end, x, v, logs);
}

TK_TARGET_AVX512 void logDensitiesAVX512(std::size_t width, const double* stream, const tkNMNormalProducts::Run* run,
                                         const tkNMNormalProducts::Run* end, const double* x, double* v, double* logs)
{
    logDensitiesUpTo<8>(width, stream, run, end, x, v, logs);
}
#endif

/// Whether evaluating `products` of so many factors in `width` lanes takes less time than one after the other, with
/// eight rows of each W side by side. Then the widest registers are full, but each factor costs about as much as 64
/// steps more (as measured); what lies in farther caches is as much to read either way if no lane is empty.
bool doLanesPay(std::size_t products, std::size_t factors, std::size_t steps, std::size_t width, std::size_t widest)
{
    return products * (64 * widest * factors + steps) >= widest * steps || (products == width && 2 * width >= widest);
}

/// Lanes of the widest registers of a level.
std::size_t widthOf(tkNMInstructions level)
{
    return level == tkNMInstructions::Avx512 ? 8 : level == tkNMInstructions::Avx2 ? 4 : plainWidth;
}
} // namespace

tkNMNormalProducts::tkNMNormalProducts(const std::vector<std::vector<Set>>& products, tkNMInstructions level)
    : level_(level),
      places_(products.size())
{
    std::map<std::vector<Set>, std::vector<std::size_t>> alike;
    for (std::size_t c = 0; c < products.size(); ++c)
        if (!products[c].empty())
            alike[products[c]].push_back(c);
    std::size_t end = 0;
    for (const auto& [sets, those] : alike)
        end = place_(sets, those, end);
    stream_.resize(end / 8);
    for (std::size_t c = 0; c < products.size(); ++c)
        for (std::size_t i = 0; i < products[c].size() && places_[c].isThere; ++i)
            empty(c, i);
}

std::size_t tkNMNormalProducts::place_(const std::vector<Set>& sets, const std::vector<std::size_t>& products,
                                       std::size_t end)
{
    std::vector<Run> runs;
    std::size_t perLane = 0;
    std::size_t largestSet = 0;
    std::size_t reach = 0;
    for (std::size_t i = 0; i < sets.size(); ++i)
    {
        TK_ASSERT(sets[i].size > 0);
        if (runs.empty() || !runs.back().isContinuedBy(sets[i]))
            runs.push_back({sets[i], 0, i, perLane});
        ++runs.back().count;
        perLane += factorSize(sets[i].size);
        largestSet = std::max(largestSet, sets[i].size);
        reach = std::max(reach, sets[i].first + sets[i].size);
    }
    const std::size_t widest = widthOf(level_);
    for (std::size_t taken = 0; taken < products.size(); taken += lanes_.back().products.size())
    {
        const std::size_t left = products.size() - taken;
        std::size_t width = widest;
        while (width / 2 >= left)
            width /= 2;
        const std::size_t count = std::min(width, left);
        if (!doLanesPay(count, sets.size(), perLane, width, widest))
            break;
        const auto first = products.begin() + static_cast<std::ptrdiff_t>(taken);
        const auto last = first + static_cast<std::ptrdiff_t>(count);
        for (auto product = first; product != last; ++product)
            places_[*product] = {true, lanes_.size(), static_cast<std::size_t>(product - first)};
        lanes_.push_back({width, {first, last}, runs, sets.size(), end});
        end += (width * perLane + 7) / 8 * 8;
        largestSet_ = std::max(largestSet_, largestSet);
        reach_ = std::max(reach_, reach);
    }
    return end;
}

tkNMNormalProducts::Factor_ tkNMNormalProducts::factor_(std::size_t product, std::size_t factor)
{
    TK_ASSERT(product < places_.size() && places_[product].isThere);
    const Lanes_& lanes = lanes_[places_[product].lanes];
    TK_ASSERT(factor < lanes.numFactors);
    const auto isBefore = [](std::size_t f, const Run& run) { return f < run.firstFactor; };
    const Run& run = *std::prev(std::upper_bound(lanes.runs.begin(), lanes.runs.end(), factor, isBefore));
    const std::size_t element = run.begin + (factor - run.firstFactor) * factorSize(run.first.size);
    return {stream_.front().elements + lanes.begin + lanes.width * element + places_[product].lane, lanes.width,
            run.first.size};
}

void tkNMNormalProducts::fill(std::size_t product, std::size_t factor, const tkNMMahalanobis& distance, double logPeak)
{
    const Factor_ place = factor_(product, factor);
    TK_ASSERT(distance.dimension() == place.size);
    const auto put = [&place](std::size_t element, double value) { place.begin[element * place.width] = value; };
    put(0, logPeak);
    for (std::size_t i = 0; i < place.size; ++i)
    {
        put(1 + i, distance.mean(i));
        put(1 + place.size + i, distance.remainder(i));
        for (std::size_t j = 0; j <= i; ++j)
            put(headSize(place.size) + elementOffset(i, j, place.size), distance.w()(i, j));
    }
}

void tkNMNormalProducts::empty(std::size_t product, std::size_t factor)
{
    *factor_(product, factor).begin = nan; // the peak
}

void tkNMNormalProducts::logDensities(const double* x, double* logs) const
{
    std::fill(logs, logs + size(), nan);
    tkScratch<Eight_, 256> v(largestSet_);
    for (const Lanes_& lanes : lanes_)
    {
        const double* const stream = stream_.front().elements + lanes.begin;
        const Run* const runs = lanes.runs.data();
        const Run* const end = runs + lanes.runs.size();
        Eight_ results;
#if TK_HAS_X86_TARGETS
        if (level_ == tkNMInstructions::Avx512)
            logDensitiesAVX512(lanes.width, stream, runs, end, x, v.data()->elements, results.elements);
        else if (level_ == tkNMInstructions::Avx2)
            logDensitiesAVX2(lanes.width, stream, runs, end, x, v.data()->elements, results.elements);
        else
#endif
            logDensitiesPlain(lanes.width, stream, runs, end, x, v.data()->elements, results.elements);
        for (std::size_t l = 0; l < lanes.products.size(); ++l)
            logs[lanes.products[l]] = results.elements[l];
    }
}
