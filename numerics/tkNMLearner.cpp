#include "numerics/tkNMLearner.h"

#include "foundation/tkAssert.h"
#include "numerics/kernels/tkNMFollow.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace
{
const std::size_t largestSize = 1024;
/// As many patterns as make reading the sums of products cheap; more would only take room in the cache.
const std::size_t largestBlock = 16;

/// Whether a distribution may learn from these. The bits of a double without its sign are ordered as its magnitude,
/// NaN last, so that the sum reaches the sign for those beyond the limit alone.
TK_ALWAYS_INLINE bool areOrdinary(const double* x, std::size_t size)
{
    const double limit = tkNMNormal::largestMagnitude();
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

/// Patterns of one category seldom follow one another directly, so that a pattern does not wait for the means of the
/// one before it: the processor takes their steps side by side.
template <std::size_t width, class Group>
TK_ALWAYS_INLINE bool followGroups(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    if (!areOrdinary(x, size))
        return false;
    const double ones[8] = {1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    using Register = typename RegisterOf<double, width>::Type;
    Register one;
    loadRegister(one, ones);
    double* const beforeOrNull = deviationsOrNull;
    double* const afterOrNull = deviationsOrNull ? deviationsOrNull + size : nullptr;
    for (std::size_t j = 0; j < size; j += 8)
    {
        Group& g = groups[j / 8];
        for (std::size_t l = 0; l < 8; l += width)
        {
            Register value, n, mean, remainder, squares, before, after;
            loadRegister(value, x + j + l);
            loadRegister(n, g.counts + l);
            loadRegister(mean, g.means + l);
            loadRegister(remainder, g.remainders + l);
            loadRegister(squares, g.squares + l);
            n = n + one;
            tkNMFollow(value, n, mean, remainder, before, after);
            squares = squares + before * after;
            storeRegister(n, g.counts + l);
            storeRegister(mean, g.means + l);
            storeRegister(remainder, g.remainders + l);
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
TK_TARGET_AVX2 bool followAVX2(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    return followGroups<4>(groups, size, x, deviationsOrNull);
}

template <class Group>
TK_TARGET_AVX512 bool followAVX512(Group* groups, std::size_t size, const double* x, double* deviationsOrNull)
{
    return followGroups<8>(groups, size, x, deviationsOrNull);
}
#endif
} // namespace

bool tkNMLearner::follow_(Group_* groups, std::size_t size, const double* x, double* deviationsOrNull,
                          tkNMInstructions level)
{
#if TK_HAS_X86_TARGETS
    if (level == tkNMInstructions::Avx512)
        return followAVX512(groups, size, x, deviationsOrNull);
    if (level == tkNMInstructions::Avx2)
        return followAVX2(groups, size, x, deviationsOrNull);
#else
    static_cast<void>(level);
#endif
    return followGroups<plainWidth>(groups, size, x, deviationsOrNull);
}

tkNMLearner::tkNMLearner(std::size_t size, std::size_t patternCount, tkNMInstructions level)
    : size_(size),
      patternCount_(patternCount),
      level_(level)
{
}

tkNMLearner::tkNMLearner(tkNMLearner&& other) noexcept
    : size_(other.size_),
      patternCount_(other.patternCount_),
      level_(other.level_),
      parts_(std::move(other.parts_)),
      standsIn_(std::exchange(other.standsIn_, false)),
      groups_(std::move(other.groups_)),
      row_(std::move(other.row_)),
      deviations_(std::move(other.deviations_)),
      capacity_(other.capacity_),
      count_(other.count_)
{
}

bool tkNMLearner::start(const std::vector<Part>& parts)
{
    TK_ASSERT(!isStarted());
    if (size_ == 0 || size_ > largestSize)
        return false;
    std::vector<bool> isTaken(size_, false);
    bool haveAllOne = true;
    for (const Part& part : parts)
    {
        const tkNMNormal& normal = *part.normal;
        const std::size_t d = normal.mean_.size();
        if (normal.count_ == 0 || part.first > size_ || d > size_ - part.first ||
            static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - normal.count_) < patternCount_)
            return false;
        for (std::size_t j = part.first; j < part.first + d; ++j)
        {
            if (isTaken[j])
                return false;
            isTaken[j] = true;
        }
        haveAllOne = haveAllOne && d == 1;
    }
    if (std::find(isTaken.begin(), isTaken.end(), false) != isTaken.end())
        return false;

    const std::size_t groupCount = (size_ + 7) / 8;
    groups_.resize(groupCount);
    row_.resize(size_ % 8 == 0 ? 0 : groupCount);
    capacity_ = haveAllOne ? 0 : std::min(largestBlock, largestSize / (8 * groupCount));
    deviations_.resize(capacity_ * 2 * groupCount);
    parts_ = parts;
    return true;
}

void tkNMLearner::standIn_()
{
    for (const Part& part : parts_)
        for (std::size_t j = 0; j < part.normal->mean_.size(); ++j)
        {
            Group_& g = groups_[(part.first + j) / 8];
            const std::size_t l = (part.first + j) % 8;
            g.counts[l] = static_cast<double>(part.normal->count_);
            g.means[l] = part.normal->mean_[j];
            g.remainders[l] = part.normal->meanRemainder_[j];
            g.squares[l] = part.normal->squares_(j, j);
        }
    standsIn_ = true;
}

bool tkNMLearner::add(const double* pattern)
{
    TK_ASSERT(isStarted());
    if (!standsIn_)
        standIn_();
    if (!row_.empty())
    {
        std::copy_n(pattern, size_, row_.front().values);
        pattern = row_.front().values;
    }
    double* const deviationsOrNull = capacity_ > 0 ? deviations_[2 * groups_.size() * count_].values : nullptr;
    if (!follow_(groups_.data(), 8 * groups_.size(), pattern, deviationsOrNull, level_))
        return false;
    if (capacity_ > 0 && ++count_ == capacity_)
        addProducts_();
    return true;
}

void tkNMLearner::finish() noexcept
{
    if (!standsIn_)
        return;
    addProducts_();
    for (const Part& part : parts_)
    {
        tkNMNormal& normal = *part.normal;
        normal.forgetFactor_();
        for (std::size_t j = 0; j < normal.mean_.size(); ++j)
        {
            const Group_& g = groups_[(part.first + j) / 8];
            const std::size_t l = (part.first + j) % 8;
            normal.count_ = static_cast<long>(g.counts[l]);
            normal.mean_[j] = g.means[l];
            normal.meanRemainder_[j] = g.remainders[l];
            if (normal.mean_.size() == 1)
                normal.squares_(0, 0) = g.squares[l];
        }
    }
    standsIn_ = false;
}

void tkNMLearner::addProducts_() noexcept
{
    if (count_ == 0)
        return;
    const std::size_t stride = 16 * groups_.size();
    const double* const before = deviations_.front().values;
    const double* const after = before + stride / 2;
    for (const Part& part : parts_)
    {
        const std::size_t d = part.normal->mean_.size();
        tkNMTriangle& squares = part.normal->squares_;
        if (d % 8 == 0)
            squares.addProducts(before + part.first, after + part.first, count_, stride, level_);
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
            squares.addProducts(a, b, count_, padded, level_);
        }
    }
    count_ = 0;
}
