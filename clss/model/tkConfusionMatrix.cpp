#include "clss/model/tkConfusionMatrix.h"

#include "clss/model/tkDecisionRule.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <utility>

tkRate::tkRate(long hits, long total, double z) : hits(hits), total(total), value(0.0), low(0.0), high(1.0)
{
    TK_ASSERT(hits >= 0 && hits <= total && z >= 0.0 && std::isfinite(z));
    if (total == 0)
        return;
    const double n = static_cast<double>(total);
    value = static_cast<double>(hits) / n;
    const double divisor = 1.0 + z * z / n;
    const double centre = value + z * z / (2.0 * n);
    const double radius = z * std::sqrt(value * (1.0 - value) / n + z * z / (4.0 * n * n));
    // At both ends the bound is exact; rounding would leave a little of it.
    low = hits == 0 ? 0.0 : (centre - radius) / divisor;
    high = hits == total ? 1.0 : (centre + radius) / divisor;
}

tkConfusionMatrix::tkConfusionMatrix(const std::vector<long>& truths, const std::vector<long>& decisions)
    : numPatterns_(static_cast<long>(truths.size()))
{
    TK_ASSERT(truths.size() == decisions.size());
    categories_ = truths;
    for (const long decision : decisions)
        if (decision != tkDecisionRule::noneOfThese && decision != tkDecisionRule::cannotTell)
            categories_.push_back(decision);
    std::sort(categories_.begin(), categories_.end());
    categories_.erase(std::unique(categories_.begin(), categories_.end()), categories_.end());
    counts_.resize(categories_.size() * (categories_.size() + 2));
    for (std::size_t i = 0; i < truths.size(); ++i)
        ++counts_[row_(truths[i]) * (categories_.size() + 2) + column_(decisions[i])];
}

long tkConfusionMatrix::count(long truth, long decision) const
{
    const std::size_t row = row_(truth);
    const std::size_t column = column_(decision);
    const std::size_t numColumns = categories_.size() + 2;
    return row == categories_.size() || column == numColumns ? 0 : counts_[row * numColumns + column];
}

long tkConfusionMatrix::numTrue(long truth) const
{
    const std::size_t row = row_(truth);
    if (row == categories_.size())
        return 0;
    const long* const counts = &counts_[row * (categories_.size() + 2)];
    return std::accumulate(counts, counts + categories_.size() + 2, 0L);
}

long tkConfusionMatrix::numDecided(long decision) const
{
    const std::size_t numColumns = categories_.size() + 2;
    const std::size_t column = column_(decision);
    long sum = 0;
    for (std::size_t row = 0; column < numColumns && row < categories_.size(); ++row)
        sum += counts_[row * numColumns + column];
    return sum;
}

tkRate tkConfusionMatrix::accuracy() const
{
    long right = 0;
    for (std::size_t row = 0; row < categories_.size(); ++row)
        right += counts_[row * (categories_.size() + 2) + row];
    return {right, numPatterns_};
}

double tkConfusionMatrix::expectedCost(const tkDecisionRule& rule) const
{
    double sum = 0.0;
    double frequencySum = 0.0;
    const std::size_t n = categories_.size();
    for (std::size_t t = 0; t < n; ++t)
    {
        const long truth = categories_[t];
        const long* const counts = &counts_[t * (n + 2)];
        const long total = std::accumulate(counts, counts + n + 2, 0L);
        if (total == 0)
            continue;
        double cost = 0.0;
        for (std::size_t d = 0; d < n; ++d)
            if (d != t && counts[d] > 0)
                cost += static_cast<double>(counts[d]) * rule.costs().misclassificationCost(truth, categories_[d]);
        const long refused = counts[n] + counts[n + 1];
        if (refused > 0) // none of them costs nothing, also where one costs infinitely much
            cost += static_cast<double>(refused) * rule.refusalCost();
        const double frequency = rule.frequencies().categoryFrequency(truth);
        sum += frequency * (cost / static_cast<double>(total));
        frequencySum += frequency;
    }
    return numPatterns_ == 0 ? 0.0 : sum / frequencySum;
}

bool tkConfusionMatrix::operator==(const tkConfusionMatrix& other) const
{
    return categories_ == other.categories_ && counts_ == other.counts_;
}

std::size_t tkConfusionMatrix::row_(long label) const
{
    const auto place = std::lower_bound(categories_.begin(), categories_.end(), label);
    return place != categories_.end() && *place == label ? static_cast<std::size_t>(place - categories_.begin())
                                                         : categories_.size();
}

std::size_t tkConfusionMatrix::column_(long label) const
{
    if (label == tkDecisionRule::noneOfThese)
        return categories_.size();
    if (label == tkDecisionRule::cannotTell)
        return categories_.size() + 1;
    const std::size_t row = row_(label);
    return row == categories_.size() ? row + 2 : row;
}

tkArchive& operator||(tkArchive& archive, tkConfusionMatrix& matrix)
{
    tkConfusionMatrix loaded; // a failed loading changes nothing
    tkConfusionMatrix& exchanged = archive.isLoading() ? loaded : matrix;
    archive.exchangeVersion();
    archive || exchanged.categories_ || exchanged.counts_;
    if (archive.isStoring())
        return archive;
    const std::vector<long>& categories = loaded.categories_;
    if (std::adjacent_find(categories.begin(), categories.end(), std::greater_equal<long>()) != categories.end() ||
        (!categories.empty() && categories.front() < 0))
        archive.fail(L"The categories of a confusion matrix do not ascend from 0 on");
    if (loaded.counts_.size() != categories.size() * (categories.size() + 2))
        archive.fail(L"A confusion matrix has not the counts of its categories");
    constexpr long most = 0x7fffffff;
    for (const long count : loaded.counts_)
    {
        if (count < 0 || count > most - loaded.numPatterns_)
            archive.fail(L"A confusion matrix has negative counts, or too many patterns");
        loaded.numPatterns_ += count;
    }
    matrix = std::move(loaded);
    return archive;
}
