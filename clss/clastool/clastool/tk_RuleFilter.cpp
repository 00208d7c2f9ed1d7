#include "clss/clastool/clastool/tk_RuleFilter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();

/// Where the lowest bit stands that is not 0; there must be one.
inline std::size_t lowestBit(std::uint64_t bits)
{
#if defined(__GNUC__)
    return static_cast<std::size_t>(__builtin_ctzll(bits));
#else
    std::size_t position = 0;
    for (; bits % 2 == 0; bits /= 2)
        ++position;
    return position;
#endif
}

using OneSided = tkClassifierFeatureScoreOneSided;
using TwoSided = tkClassifierFeatureScoreTwoSided;

/// Closed: a function scores 0 or -0 at every value below low and at every value above high.
struct Support
{
    double low = -infinity;
    double high = infinity;
};

bool isRising(const OneSided& f)
{
    return f.x0() <= f.x1() && f.x1() <= f.xc();
}

/// Then no value makes it throw; no corner is NaN.
bool isInOrder(const OneSided& f)
{
    return isRising(f) || (f.xc() <= f.x1() && f.x1() <= f.x0());
}

/// Where it is in order. Nothing is said of the ramp between x0 and x1, which may score NaN where a corner or a level
/// is not finite.
Support supportOf(const OneSided& f)
{
    const double inner = f.y1() == 0.0 ? f.x1() : f.xc();
    if (isRising(f))
        return {f.y0() == 0.0 ? f.x0() : -infinity, inner};
    return {inner, f.y0() == 0.0 ? f.x0() : infinity};
}

/// The function as a T if it is exactly one, and not of a class derived from it; else null.
template <class T>
const T* exactly(const tkPtrHandle<tkClsFtSc>& function)
{
    const tkClsFtSc* const object = function.get();
    return object && typeid(*object) == typeid(T) ? static_cast<const T*>(object) : nullptr;
}

/// Whether `function` is of a known class and no value makes it throw. Then also its support.
bool findSupport(const tkPtrHandle<tkClsFtSc>& function, Support& support)
{
    support = Support();
    if (const auto* const f = exactly<TwoSided>(function))
    {
        const double lowest = std::min(f->x0h(), f->xch());
        if (!isInOrder(f->Low()) || !isInOrder(f->High()) || std::max(f->x0(), f->xc()) > lowest)
            return false;
        // High scores from `lowest` on and Low below it: Low's support begins, and High's ends, on its own side.
        support = {supportOf(f->Low()).low, supportOf(f->High()).high};
        return true;
    }
    if (const auto* const f = exactly<OneSided>(function))
    {
        support = supportOf(*f);
        return isInOrder(*f);
    }
    return exactly<tkClassifierFeatureScoreIgnore>(function) != nullptr;
}

bool isNeverThrowing(const tkClassifierRule& rule)
{
    Support support;
    return std::all_of(rule.scoringMethods().begin(), rule.scoringMethods().end(),
                       [&](const tkPtrHandle<tkClsFtSc>& function) { return findSupport(function, support); });
}

/// Calls `visit` with every ramp of the rules, those that make up trapezoids included.
template <class Visit>
void forEachRamp(const std::vector<tkClassifierRule>& rules, const Visit& visit)
{
    for (const tkClassifierRule& rule : rules)
        for (const tkPtrHandle<tkClsFtSc>& function : rule.scoringMethods())
        {
            if (const auto* const twoSided = exactly<TwoSided>(function))
            {
                visit(twoSided->Low());
                visit(twoSided->High());
            }
            else if (const auto* const oneSided = exactly<OneSided>(function))
                visit(*oneSided);
        }
}
} // namespace

std::shared_ptr<const tk_RuleFilter> tk_RuleFilter::make(const std::vector<tkClassifierRule>& rules)
{
    const auto filter = std::make_shared<tk_RuleFilter>();
    // In this order: what is read before its changes are counted may be out of date at once.
    return filter->joinCounts_(rules) && filter->readSupports_(rules) ? filter : nullptr;
}

bool tk_RuleFilter::joinCounts_(const std::vector<tkClassifierRule>& rules)
{
    const auto note = [this](tkChangeCount* count)
    {
        const auto isSame = [count](const Count& noted) { return noted.count.get() == count; };
        if (count && counts_.size() <= maxCounts && std::none_of(counts_.begin(), counts_.end(), isSame))
            counts_.push_back({tkPtrHandle<tkChangeCount>(count), count->number()});
    };
    // What has no count joins one that is there: adding rules to a table and training it again adds no count.
    forEachRamp(rules, [&](const OneSided& ramp) { note(ramp.changes_.count()); });
    const tkPtrHandle<tkChangeCount> shared =
        counts_.empty() ? tkPtrHandle<tkChangeCount>(new tkChangeCount) : counts_.front().count;
    forEachRamp(rules, [&](const OneSided& ramp) { note(ramp.changes_.join(shared.get())); });
    return counts_.size() <= maxCounts;
}

bool tk_RuleFilter::readSupports_(const std::vector<tkClassifierRule>& rules)
{
    // Rules of different sizes come from damaged records alone. They could ask for much more memory than they take.
    numRules_ = rules.size();
    const std::size_t numFunctions = numRules_ == 0 ? 0 : rules.front().scoringMethods().size();
    if (std::any_of(rules.begin(), rules.end(),
                    [&](const tkClassifierRule& rule) { return rule.scoringMethods().size() != numFunctions; }))
        return false;
    std::vector<bool> mayBeVetoed(numRules_);
    std::transform(rules.begin(), rules.end(), mayBeVetoed.begin(), isNeverThrowing);

    const auto supportOfRule = [&](std::size_t r, std::size_t index)
    {
        Support support;
        if (mayBeVetoed[r])
            findSupport(rules[r].scoringMethods()[index], support);
        return support;
    };
    for (std::size_t index = 0; index < numFunctions && features_.size() < maxFeatures; ++index)
    {
        double lowest = infinity;
        double highest = -infinity;
        for (std::size_t r = 0; r < numRules_; ++r)
        {
            const Support support = supportOfRule(r, index);
            for (const double end : {support.low, support.high})
                if (std::isfinite(end))
                {
                    lowest = std::min(lowest, end);
                    highest = std::max(highest, end);
                }
        }
        if (lowest <= highest)
            features_.push_back({index, Scale(lowest, highest)});
    }
    if (features_.empty())
        return false;

    passes_.resize((numRules_ + blockRules - 1) / blockRules * features_.size());
    for (std::size_t r = 0; r < numRules_; ++r)
        for (std::size_t f = 0; f < features_.size(); ++f)
        {
            const Support support = supportOfRule(r, features_[f].index);
            const Scale& scale = features_[f].scale;
            std::uint64_t* const passes = passes_[r / blockRules * features_.size() + f].rules;
            const std::uint64_t bit = std::uint64_t{1} << r % blockRules;
            // Where its levels begin and where they have ended, for now.
            passes[scale.level(support.low)] ^= bit;
            passes[scale.level(support.high) + 1] ^= bit;
        }
    for (Passes& passes : passes_)
    {
        for (int level = 1; level < numLevels; ++level)
            passes.rules[level] ^= passes.rules[level - 1];
        passes.rules[numLevels] = ~std::uint64_t{0};
    }
    return true;
}

bool tk_RuleFilter::isCurrent_() const
{
    return std::all_of(counts_.begin(), counts_.end(),
                       [](const Count& noted) { return noted.count.get()->number() == noted.number; });
}

/// Leaves more than a level free on either side of the ends, so that values can lie outside of all supports.
tk_RuleFilter::Scale::Scale(double lowest, double highest)
{
    const double range = highest - lowest;
    scale_ = range > 0.0 ? (numLevels - 4.0) / range : 1.0;
    origin_ = lowest - 1.5 / scale_;
    if (!std::isnormal(scale_) || !std::isfinite(origin_))
        *this = Scale();
}

inline std::uint8_t tk_RuleFilter::Scale::level(double value) const
{
    const double level = std::min(std::max(0.0, (value - origin_) * scale_), numLevels - 1.0);
    return std::isnan(value) ? std::uint8_t{numLevels} : static_cast<std::uint8_t>(level);
}

/// Reads the first block along with the levels; most tables have no other.
tk_RuleFilter::Candidates::Candidates(const tk_RuleFilter* filter, const std::vector<double>& values)
    : filter_(filter),
      block_(0),
      rules_(~std::uint64_t{0})
{
    if (!filter_)
        return;
    const Feature* const features = filter_->features_.data();
    const Passes* const passes = filter_->passes_.data();
    const std::size_t numFeatures = filter_->features_.size();
    std::uint64_t rules = rules_;
    for (std::size_t f = 0; f < numFeatures; ++f)
    {
        levels_[f] = features[f].scale.level(values[features[f].index]);
        rules &= passes[f].rules[levels_[f]];
    }
    rules_ = rules;
}

std::size_t tk_RuleFilter::Candidates::next(std::size_t rule)
{
    // Asked anew each time: a host's function may change another one when it is asked for its score.
    if (!filter_ || !filter_->isCurrent_())
        return rule;
    while (rule < filter_->numRules_)
    {
        if (rule / blockRules != block_)
            readBlock_(rule / blockRules);
        const std::uint64_t left = rules_ >> rule % blockRules;
        if (left != 0)
            return rule + lowestBit(left);
        rule = (block_ + 1) * blockRules;
    }
    return rule;
}

void tk_RuleFilter::Candidates::readBlock_(std::size_t block)
{
    const std::size_t numFeatures = filter_->features_.size();
    const Passes* const passes = filter_->passes_.data() + block * numFeatures;
    block_ = block;
    rules_ = ~std::uint64_t{0};
    for (std::size_t f = 0; f < numFeatures; ++f)
        rules_ &= passes[f].rules[levels_[f]];
}
