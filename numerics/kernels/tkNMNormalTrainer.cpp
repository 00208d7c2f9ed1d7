#include "numerics/kernels/tkNMNormalTrainer.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMCrossProducts.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/kernels/tkNMWelfordStep.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace
{
const std::size_t largestSize = 1024;
/// With more, the cost of reading the cross products hardly falls, and the buffer fills the nearest cache.
const std::size_t largestBuffer = 16;

/// Whether no element is NaN or above the limit in magnitude. The bits of a double without its sign are ordered as its
/// magnitude, NaN last, so that the sum reaches the sign for those beyond the limit alone.
TK_ALWAYS_INLINE bool areFiniteBelow(double limit, const double* x, std::size_t size)
{
    const std::uint64_t withoutSign = ~std::uint64_t(0) >> 1;
    std::uint64_t limitBits = 0;
    std::memcpy(&limitBits, &limit, sizeof limitBits);
    std::uint64_t sums = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, x + i, sizeof bits);
        sums |= (bits & withoutSign) + (withoutSign - limitBits);
    }
    return sums <= withoutSign;
}

/// Consecutive patterns seldom belong to one category, so that a pattern does not wait for the means that the one
/// before it changed: the processor overlaps their steps.
template <std::size_t width, class Group>
TK_ALWAYS_INLINE bool addToMeans(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    const std::size_t whole = size / 8 * 8;
    double rest[8] = {};
    copyFew(x + whole, size - whole, rest);
    if (!areFiniteBelow(tkNMStatistics::largestMagnitude, x, whole) ||
        !areFiniteBelow(tkNMStatistics::largestMagnitude, rest, 8))
        return false;
    const double ones[8] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    using Register = typename RegisterOf<double, width>::Type;
    Register one;
    loadRegister(one, ones);
    double* const beforeOrNull = deviationsOrNull;
    double* const afterOrNull = deviationsOrNull ? deviationsOrNull + (size + 7) / 8 * 8 : nullptr;
    for (std::size_t j = 0; j < size; j += 8)
    {
        Group& g = groups[j / 8];
        const double* const values = j < whole ? x + j : rest;
        for (std::size_t l = 0; l < 8; l += width)
        {
            Register value, n, mean, compensation, squares, before, after;
            loadRegister(value, values + l);
            loadRegister(n, g.counts + l);
            loadRegister(mean, g.means + l);
            loadRegister(compensation, g.compensations + l);
            loadRegister(squares, g.squares + l);
            n = n + one;
            tkNMWelfordStep(value, n, mean, compensation, before, after);
            squares = squares + before * after;
            storeRegister(n, g.counts + l);
            storeRegister(mean, g.means + l);
            storeRegister(compensation, g.compensations + l);
            storeRegister(squares, g.squares + l);
            if (deviationsOrNull)
            {
                storeRegister(before, beforeOrNull + j + l);
                storeRegister(after, afterOrNull + j + l);
            }
        }
    }
    return true;
}

#if TK_HAS_X86_TARGETS
template <class Group>
TK_TARGET_AVX2 bool addToMeansAvx2(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    return addToMeans<4>(groups, size, x, deviationsOrNull);
}

template <class Group>
TK_TARGET_AVX512 bool addToMeansAvx512(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    return addToMeans<8>(groups, size, x, deviationsOrNull);
}
#endif
} // namespace

bool tkNMNormalTrainer::addToMeans_(Group_* groups, std::size_t size, const double* x, double* deviationsOrNull,
                                    tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return addToMeansAvx512(groups, size, x, deviationsOrNull);
    if (instructions == tkNMInstructions::Avx2)
        return addToMeansAvx2(groups, size, x, deviationsOrNull);
#endif
    static_cast<void>(instructions);
    return addToMeans<plainWidth>(groups, size, x, deviationsOrNull);
}

tkNMNormalTrainer::tkNMNormalTrainer(std::size_t size, std::size_t patternCount, tkNMInstructions instructions)
    : size_(size),
      patternCount_(patternCount),
      instructions_(instructions)
{
}

tkNMNormalTrainer::tkNMNormalTrainer(tkNMNormalTrainer&& other) noexcept
    : size_(other.size_),
      patternCount_(other.patternCount_),
      instructions_(other.instructions_),
      parts_(std::move(other.parts_)),
      isLoaded_(std::exchange(other.isLoaded_, false)),
      groups_(std::move(other.groups_)),
      deviations_(std::move(other.deviations_)),
      capacity_(other.capacity_),
      count_(other.count_)
{
}

bool tkNMNormalTrainer::canTrain_(const std::vector<Part>& parts) const
{
    if (parts.empty() || size_ == 0 || size_ > largestSize)
        return false;
    std::vector<bool> isTaken(size_, false);
    for (const Part& part : parts)
    {
        const tkNMStatistics& statistics = *part.statistics;
        const std::size_t d = statistics.dimension();
        if (statistics.count == 0 || part.first > size_ || d > size_ - part.first ||
            static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - statistics.count) < patternCount_)
            return false;
        for (std::size_t j = part.first; j < part.first + d; ++j)
        {
            if (isTaken[j])
                return false;
            isTaken[j] = true;
        }
    }
    return true;
}

bool tkNMNormalTrainer::start(const std::vector<Part>& parts)
{
    TK_ASSERT(!isStarted());
    if (!canTrain_(parts))
        return false;
    const bool haveAllOne =
        std::all_of(parts.begin(), parts.end(), [](const Part& part) { return part.statistics->dimension() == 1; });
    const std::size_t groupCount = (size_ + 7) / 8;
    groups_.resize(groupCount);
    capacity_ = haveAllOne ? 0 : std::min(largestBuffer, largestSize / (8 * groupCount));
    deviations_.resize(capacity_ * 16 * groupCount);
    parts_ = parts;
    return true;
}

void tkNMNormalTrainer::load_()
{
    for (const Part& part : parts_)
        for (std::size_t j = 0; j < part.statistics->dimension(); ++j)
        {
            Group_& g = groups_[(part.first + j) / 8];
            const std::size_t l = (part.first + j) % 8;
            g.counts[l] = static_cast<double>(part.statistics->count);
            g.means[l] = part.statistics->mean[j];
            g.compensations[l] = part.statistics->compensation[j];
            g.squares[l] = part.statistics->crossProducts(j, j);
        }
    isLoaded_ = true;
}

bool tkNMNormalTrainer::add(const double* pattern)
{
    TK_ASSERT(isStarted());
    if (!isLoaded_)
        load_();
    double* const deviationsOrNull = capacity_ > 0 ? deviations_.data() + 16 * groups_.size() * count_ : nullptr;
    if (!addToMeans_(groups_.data(), size_, pattern, deviationsOrNull, instructions_))
        return false;
    if (capacity_ > 0 && ++count_ == capacity_)
        addCrossProducts_();
    return true;
}

bool tkNMNormalTrainer::canAdd(const double* pattern) const
{
    return areFiniteBelow(tkNMStatistics::largestMagnitude, pattern, size_);
}

void tkNMNormalTrainer::finish() noexcept
{
    if (!isLoaded_)
        return;
    addCrossProducts_();
    for (const Part& part : parts_)
    {
        tkNMStatistics& statistics = *part.statistics;
        for (std::size_t j = 0; j < statistics.dimension(); ++j)
        {
            const Group_& g = groups_[(part.first + j) / 8];
            const std::size_t l = (part.first + j) % 8;
            statistics.count = static_cast<long>(g.counts[l]);
            statistics.mean[j] = g.means[l];
            statistics.compensation[j] = g.compensations[l];
            if (statistics.dimension() == 1)
                statistics.crossProducts(0, 0) = g.squares[l];
        }
    }
    isLoaded_ = false;
}

void tkNMNormalTrainer::addCrossProducts_() noexcept
{
    if (count_ == 0)
        return;
    const std::size_t stride = 16 * groups_.size();
    const double* const before = deviations_.data();
    const double* const after = before + stride / 2;
    for (const Part& part : parts_)
    {
        const std::size_t d = part.statistics->dimension();
        tkNMTriangle& s = part.statistics->crossProducts;
        if (d % 8 == 0)
            tkNMAddCrossProducts(s, before + part.first, after + part.first, count_, stride, instructions_);
        else if (d > 1)
        {
            const std::size_t padded = (d + 7) / 8 * 8;
            double a[largestSize];
            double b[largestSize];
            for (std::size_t k = 0; k < count_; ++k)
            {
                std::fill_n(std::copy_n(before + k * stride + part.first, d, a + k * padded), padded - d, 0.0);
                std::fill_n(std::copy_n(after + k * stride + part.first, d, b + k * padded), padded - d, 0.0);
            }
            tkNMAddCrossProducts(s, a, b, count_, padded, instructions_);
        }
    }
    count_ = 0;
}
