#include "clss/clastool/clastool/tkClassifierRuleTable.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMElementary.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>
#include <utility>

namespace
{
constexpr wchar_t noFeatureValues[] = L"featureVector.featureValues().size() == 0";
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr tkFeatureScoreSupport everywhere = {-infinity, infinity};

/// The function's own support, which it keeps up to date. Null for a null function, or one of a class that a host
/// derived and of which nothing is known.
const tkFeatureScoreSupport* findSupport(const tkClsFtSc* function)
{
    if (!function)
        return nullptr;
    const std::type_info& type = typeid(*function);
    if (type == typeid(tkClassifierFeatureScoreTwoSided))
        return &static_cast<const tkClassifierFeatureScoreTwoSided*>(function)->support();
    if (type == typeid(tkClassifierFeatureScoreOneSided))
        return &static_cast<const tkClassifierFeatureScoreOneSided*>(function)->support();
    return type == typeid(tkClassifierFeatureScoreIgnore) ? &everywhere : nullptr;
}

/// The supports of all functions; empty if one is null.
std::vector<const tkFeatureScoreSupport*> findSupports(const std::vector<tkPtrHandle<tkClsFtSc>>& functions)
{
    std::vector<const tkFeatureScoreSupport*> supports(functions.size());
    std::transform(functions.begin(), functions.end(), supports.begin(),
                   [](const tkPtrHandle<tkClsFtSc>& function) { return findSupport(function.get()); });
    if (std::find(supports.begin(), supports.end(), nullptr) != supports.end())
        supports.clear();
    return supports;
}
} // namespace

void tkClassifierRule::init(const std::vector<tkPtrHandle<tkClsFtSc>>& scoringMethods, long label)
{
    if (label < 0)
        throw tkClassifierDefs::BadParams(L"label < 0");
    if (scoringMethods.empty())
        throw tkClassifierDefs::BadParams(L"scoringMethods.size() == 0");
    std::vector<tkPtrHandle<tkClsFtSc>> copy = scoringMethods;
    std::vector<const tkFeatureScoreSupport*> supports = findSupports(copy);
    scoringMethods_ = std::move(copy);
    supports_ = std::move(supports);
    label_ = label;
}

inline double tkClassifierRule::product_(const tkClassifierFeatureVector& featureVector, int& used) const
{
    const std::vector<double>& values = featureVector.featureValues();
    if (values.size() != scoringMethods_.size())
        throw tkClassifierDefs::BadParams(L"MismatchedFeatureVectorSize");
    if (values.empty())
        throw tkClassifierDefs::BadParams(noFeatureValues);

    double product = 1.0;
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        const double s = scoringMethods_[i]->score(values[i]);
        if (s == -1.0 || std::isnan(s))
            continue;
        product *= s;
        ++used;
    }
    return product;
}

inline double tkClassifierRule::mean_(double product, int used)
{
    if (!(product > 0.0) || used == 0)
        return product;
    return tkNMElementary::pow(product, 1.0 / used);
}

double tkClassifierRule::score(const tkClassifierFeatureVector& featureVector) const
{
    int used = 0;
    const double product = product_(featureVector, used);
    return mean_(product, used);
}

/// The result does not depend on the rounding mode: a difference is negative if and only if its first term is the
/// smaller one. std::min ignores a NaN difference (of equal infinities, or for a NaN value), so that fewer rules are
/// vetoed.
bool tkClassifierRule::isVetoed_(const std::vector<double>& values) const
{
    if (supports_.size() != values.size())
        return false;
    double margin = 0.0; // the smallest one so far by which a value lies inside its support
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        const tkFeatureScoreSupport& support = *supports_[i];
        if (std::isnan(support.low))
            return false;
        margin = std::min(margin, std::min(values[i] - support.low, support.high - values[i]));
    }
    return margin < 0.0;
}

/// Avoids pow where the comparison is decided without it. Let n = used, e the double next to 1 / n, p = product, t =
/// threshold.
///
/// As long as no multiplication underflows, `power` is t^n but for n roundings, far less than the margin of n * 1e-12.
/// So p > power * (1 + margin) means p^(1/n) > t * (1 + 0.9e-12). The relative error of e, 2^-53, changes p^e by a
/// factor of at most exp(2^-53 * |ln p|) < 1 + 1e-13, because |ln p| < 746 for every p > 0 but infinity, whose mean is
/// infinity; that leaves pow an error of more than 3000 units in the last place. The same holds below the margin.
bool tkClassifierRule::exceeds_(const tkClassifierFeatureVector& featureVector, double threshold) const
{
    if (isVetoed_(featureVector.featureValues()))
        return false;
    int used = 0;
    const double product = product_(featureVector, used);
    double power = 1.0;
    for (int i = 0; i < used; ++i)
        power *= threshold;
    if (power > 1e-300) // then no earlier product was smaller
    {
        const double margin = 1e-12 * used;
        if (product > power * (1.0 + margin))
            return true;
        if (product < power * (1.0 - margin))
            return false;
    }
    return mean_(product, used) > threshold;
}

bool tkClassifierRule::operator==(const tkClassifierRule& other) const
{
    const auto sameFunction = [](const tkPtrHandle<tkClsFtSc>& a, const tkPtrHandle<tkClsFtSc>& b) { return *a == *b; };
    return std::equal(scoringMethods_.begin(), scoringMethods_.end(), other.scoringMethods_.begin(),
                      other.scoringMethods_.end(), sameFunction) &&
           label_ == other.label_;
}

void tkClassifierRuleTable::train(const std::vector<tkClassifierRule>& rules)
{
    if (rules.empty())
        throw tkClassifierDefs::BadParams(L"rules.size() == 0");
    const std::size_t ruleSize = rules.front().scoringMethods().size();
    for (const tkClassifierRule& rule : rules)
        if (rule.scoringMethods().size() != ruleSize)
            throw tkClassifierDefs::BadParams(L"rules[i].scoringMethods().size() != ruleSize");
    std::vector<tkClassifierRule> copy = rules;
    rules_ = std::move(copy);
}

long tkClassifierRuleTable::classifyHardThreshold(const tkClassifierFeatureVector& featureVector,
                                                  double hardThreshold) const
{
    if (!(hardThreshold >= 0.0) || hardThreshold > 1.0)
        throw tkClassifierDefs::BadParams(L"hardThreshold < 0 || hardThreshold > 1");
    if (rules_.empty())
        throw tkClassifierDefs::NotTrained(L"the rule table needs to be trained before it can classify");
    const std::size_t size = featureVector.featureValues().size();
    if (size == 0)
        throw tkClassifierDefs::BadParams(noFeatureValues);
    if (size != rules_.front().scoringMethods().size())
        throw tkClassifierDefs::BadParams(
            // The unbalanced bracket is part of the text.
            L"featureVector.featureValues().size() != rules_[0].scoringMethods().size())");
    for (const tkClassifierRule& rule : rules_)
        if (rule.exceeds_(featureVector, hardThreshold))
            return rule.label();
    return -1;
}

bool tkClassifierRuleTable::operator==(const tkClassifierRuleTable& other) const
{
    return rules_ == other.rules_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierFeatureVector& featureVector)
{
    return archive || featureVector.featureValues_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierRule& rule)
try
{
    if (archive.isLoading())
        rule.supports_.clear(); // of functions that loading is about to replace
    archive || rule.scoringMethods_;
    if (archive.isLoading())
        rule.supports_ = findSupports(rule.scoringMethods_);
    return archive || rule.label_;
}
catch (...)
{
    archive.setFailed();
    throw;
}

tkArchive& operator||(tkArchive& archive, tkClassifierRuleTable& table)
{
    return archive || table.rules_;
}
