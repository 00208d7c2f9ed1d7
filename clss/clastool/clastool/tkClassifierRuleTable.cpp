#include "clss/clastool/clastool/tkClassifierRuleTable.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace
{
constexpr wchar_t noFeatureValues[] = L"featureVector.featureValues().size() == 0";
}

void tkClassifierRule::init(const std::vector<tkPtrHandle<tkClsFtSc>>& scoringMethods, long label)
{
    if (label < 0)
        throw tkClassifierDefs::BadParams(L"label < 0");
    if (scoringMethods.empty())
        throw tkClassifierDefs::BadParams(L"scoringMethods.size() == 0");
    std::vector<tkPtrHandle<tkClsFtSc>> copy = scoringMethods;
    scoringMethods_ = std::move(copy);
    label_ = label;
}

double tkClassifierRule::score(const tkClassifierFeatureVector& featureVector) const
{
    const std::vector<double>& values = featureVector.featureValues();
    if (values.size() != scoringMethods_.size())
        throw tkClassifierDefs::BadParams(L"MismatchedFeatureVectorSize");
    if (values.empty())
        throw tkClassifierDefs::BadParams(noFeatureValues);

    double product = 1.0;
    int used = 0;
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        const double s = scoringMethods_[i]->score(values[i]);
        if (s == -1.0 || std::isnan(s))
            continue;
        product *= s;
        ++used;
    }
    if (!(product > 0.0) || used == 0)
        return product;
    return std::pow(product, 1.0 / used);
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
        if (rule.score(featureVector) > hardThreshold)
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
{
    return archive || rule.scoringMethods_ || rule.label_;
}

tkArchive& operator||(tkArchive& archive, tkClassifierRuleTable& table)
{
    return archive || table.rules_;
}
