#include "numerics/kernels/tkNMNormalBatch.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

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
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

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

/// The squared distances of a set, whose means stand at `stream`, from its measurements x; returns what follows it.
/// `v` has room for a deviation per measurement and lane.
template <std::size_t width, class Register>
TK_ALWAYS_INLINE const double* squaredDistances(const double* stream, const double* x, std::size_t size, double* v,
                                                Register& square)
{
    const double* const compensations = stream + width * size;
    const double* w = compensations + width * size;
    for (std::size_t j = 0; j < size; ++j)
    {
        Register mean;
        Register compensation;
        loadRegister(mean, stream + width * j);
        loadRegister(compensation, compensations + width * j);
        storeRegister((x[j] - mean) - compensation, v + width * j);
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
TK_ALWAYS_INLINE void addDensity(const Register& peak, const Register& square, Register& sum, Register& squares)
{
    squares = squares + square; // none of which, >= 0 or NaN, is above their sum
    const Register half = (0.5 * square + tkNMFactorisation::gridShift) - tkNMFactorisation::gridShift;
    sum = sum + (peak - half);
}

/// Adds the log densities of `width` categories of these sets to their sums.
template <std::size_t width>
TK_ALWAYS_INLINE void addLogDensitiesOf(const double* stream, const tkNMNormalBatch::Range* range,
                                        const tkNMNormalBatch::Range* end, const double* x, double* v, double* sums)
{
    using Register = typename RegisterOf<double, width>::Type;
    Register sum;
    loadRegister(sum, sums);
    Register squares = {};
    for (; range != end; ++range)
    {
        const std::size_t size = range->first.size;
        const double* point = x + range->first.first;
        const double* const last = point + range->count * size;
        Register peak;
        Register square;
        if (size == 1)
            for (; point != last; ++point, stream += 4 * width)
            {
                Register mean;
                Register compensation;
                Register w;
                loadRegister(peak, stream);
                loadRegister(mean, stream + width);
                loadRegister(compensation, stream + 2 * width);
                loadRegister(w, stream + 3 * width);
                const Register y = w * ((*point - mean) - compensation);
                square = y * y;
                addDensity(peak, square, sum, squares);
            }
        else
            for (; point != last; point += size)
            {
                loadRegister(peak, stream);
                stream = squaredDistances<width>(stream + width, point, size, v, square);
                addDensity(peak, square, sum, squares);
            }
    }
    sum = squares <= tkNMFactorisation::largestSquare ? sum : sum * nan;
    storeRegister(sum, sums);
}

/// The same for a width up to `widest`.
template <std::size_t widest>
TK_ALWAYS_INLINE void addLogDensitiesUpTo(std::size_t width, const double* stream, const tkNMNormalBatch::Range* range,
                                          const tkNMNormalBatch::Range* end, const double* x, double* v, double* sums)
{
    if (width == widest)
        addLogDensitiesOf<widest>(stream, range, end, x, v, sums);
    else if constexpr (widest > 1)
        addLogDensitiesUpTo<widest / 2>(width, stream, range, end, x, v, sums);
}

void addLogDensitiesPortable(std::size_t width, const double* stream, const tkNMNormalBatch::Range* range,
                             const tkNMNormalBatch::Range* end, const double* x, double* v, double* sums)
{
    addLogDensitiesUpTo<plainWidth>(width, stream, range, end, x, v, sums);
}

#if TK_HAS_X86_TARGETS
TK_TARGET_AVX2 void addLogDensitiesAvx2(std::size_t width, const double* stream, const tkNMNormalBatch::Range* range,
                                        const tkNMNormalBatch::Range* end, const double* x, double* v, double* sums)
{
    addLogDensitiesUpTo<4>(width, stream, range, end, x, v, sums);
}

TK_TARGET_AVX512 void addLogDensitiesAvx512(std::size_t width, const double* stream,
                                            const tkNMNormalBatch::Range* range, const tkNMNormalBatch::Range* end,
                                            const double* x, double* v, double* sums)
{
    addLogDensitiesUpTo<8>(width, stream, range, end, x, v, sums);
}
#endif

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
    for (const Set& set : sets)
    {
        if (ranges.empty() || !ranges.back().isContinuedBy(set))
            ranges.push_back({set, 0});
        ++ranges.back().count;
        perLane += densitySize(set.size);
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
        lanes_.push_back({width, std::vector<std::size_t>(count), ranges, stream_.size()});
        stream_.resize(stream_.size() + (width * perLane + 7) / 8 * 8);
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

/// Lanes without a category keep zeros.
void tkNMNormalBatch::fill_(Lanes_& lanes, Alike_::const_iterator category)
{
    for (std::size_t l = 0; l < lanes.categories.size(); ++l, ++category)
    {
        lanes.categories[l] = (*category)->number;
        double* place = &stream_[lanes.begin + l];
        for (const Density& density : (*category)->densities)
            forEachValue(*density.factorisation,
                         [&](double value)
                         {
                             *place = value;
                             place += lanes.width;
                         });
    }
}

void tkNMNormalBatch::addLogDensities(const double* x, double* sums) const
{
    tkScratch<double, 256 * 8 + 7> scratch(largestSet_ * 8 + 7);
    double* const v = aligned(scratch.data());
    for (const Lanes_& lanes : lanes_)
    {
        const double* const stream = stream_.data() + lanes.begin;
        const Range* const ranges = lanes.ranges.data();
        const Range* const end = ranges + lanes.ranges.size();
        double own[8] = {};
        for (std::size_t l = 0; l < lanes.categories.size(); ++l)
            own[l] = sums[lanes.categories[l]];
#if TK_HAS_X86_TARGETS
        if (instructions_ == tkNMInstructions::Avx512)
            addLogDensitiesAvx512(lanes.width, stream, ranges, end, x, v, own);
        else if (instructions_ == tkNMInstructions::Avx2)
            addLogDensitiesAvx2(lanes.width, stream, ranges, end, x, v, own);
        else
#endif
            addLogDensitiesPortable(lanes.width, stream, ranges, end, x, v, own);
        for (std::size_t l = 0; l < lanes.categories.size(); ++l)
            sums[lanes.categories[l]] = own[l];
    }
    for (const Single_& single : singles_)
        addLogDensities_(single, x, sums[single.category]);
}

void tkNMNormalBatch::addLogDensities_(const Single_& single, const double* x, double& sum) const
{
    double squares = 0.0;
    for (std::size_t i = 0; i < single.firsts.size(); ++i)
    {
        const tkNMFactorisation& f = single.factorisations[i];
        addDensity(f.logPeak, f.squaredDistance(x + single.firsts[i], instructions_), sum, squares);
    }
    sum = squares <= tkNMFactorisation::largestSquare ? sum : nan;
}
