#include "clss/model/tkAssessment.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace
{
/// Results of so many categories, as a Bayesian classifier gives them: the best of the match scores is 1.
tkAssessment assessmentOf(long patterns, long categories)
{
    tkRandomUniform uniform(3);
    tkClassifierDataProviderMemory data;
    for (long i = 0; i < patterns; ++i)
        data.addData({0.0}, i % categories);
    const auto judge = [&](const tkFeaturePattern&)
    {
        std::vector<tkClassifierCategoryResult> scores;
        const long best = static_cast<long>(uniform.next(0.0, static_cast<double>(categories))) % categories;
        for (long label = 0; label < categories; ++label)
            scores.emplace_back(label, label == best ? 1.0 : std::exp(-uniform.next(0.0, 6.0)));
        return tkClassifierResult(scores, tkClassifierFrequencies(), tkClassifierCosts(), 0.0);
    };
    return tkAssessment::heldOut(data, judge);
}

/// By the definition; of equal costs the lowest label's.
long plainDecision(const tkAssessment& assessment, long i, const tkDecisionRule& rule)
{
    const tkClassifierResult kept = assessment.result(i, tkDecisionRule());
    definition::Result scores;
    for (const tkClassifierCategoryResult& category : kept.categoryResults())
        scores.push_back({category.categoryLabel(), category.matchScore(), 0.0, 0.0});
    std::sort(scores.begin(), scores.end(), [](const auto& a, const auto& b) { return a.label < b.label; });
    const definition::Result ranked = definition::result(scores, rule.frequencies(), rule.costs());
    const auto best = std::min_element(ranked.begin(), ranked.end(),
                                       [](const auto& a, const auto& b) {
                                           return a.expectedCost < b.expectedCost ||
                                                  (a.expectedCost == b.expectedCost && a.label < b.label);
                                       });
    return best->expectedCost > rule.refusalCost() ? tkDecisionRule::cannotTell : best->label;
}

void decisions(Harness& harness, long categories)
{
    const long patterns = harness.size(1'000'000, 1'000);
    const tkAssessment assessment = assessmentOf(patterns, categories);
    tkClassifierFrequencies frequencies;
    frequencies.categoryFrequencyOverride(1, 3.0);
    tkClassifierCosts costs;
    costs.misclassificationCostOverride(0, 1, 5.0);
    costs.misclassificationCostOverride(2, 0, 2.0);
    tkDecisionRule rule(frequencies, costs);
    rule.refusalCost(0.6);
    const std::vector<long> decided = assessment.decisions(rule);
    bool agree = true;
    for (long i = 0; i < patterns; i += 7)
        agree = agree && decided[static_cast<std::size_t>(i)] == plainDecision(assessment, i, rule);
    harness.check(agree, "ASSESSMENT decisions are those of the definition");
    harness.measure("ASSESSMENT",
                    "one of " + std::to_string(patterns) + " stored results of " + std::to_string(categories) +
                        " categories decided again",
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; i += patterns)
                              keep(assessment.decisions(rule));
                      },
                      patterns},
                     {"naive", Role::Naive,
                      [&](long first, long count)
                      {
                          for (long i = first; i < first + count; ++i)
                              keep(plainDecision(assessment, i % patterns, rule));
                      }}});
}

void leaveOneOut(Harness& harness)
{
    const Table table = gaussianTable(harness.size(10'000, 200), 16, 10, 5);
    const tkClassifierDataProviderMemory data = providerOf(table);
    std::vector<long> all;
    for (long j = 0; j < table.columns; ++j)
        all.push_back(j);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (long label = 0; label < 10; ++label)
        types.setDependent(label, all);
    const tkClassifierTrainParamsBayesian params(types);
    const auto trainedAnew = [&](long i)
    {
        std::vector<long> folds(static_cast<std::size_t>(table.rows), -1);
        folds[static_cast<std::size_t>(i % table.rows)] = 0;
        return tkAssessment::crossValidate(data, params, folds);
    };
    const tkAssessment assessment = tkAssessment::leaveOneOut(data, params);
    for (long i = 0; i < table.rows; i += table.rows / 20)
    {
        const tkClassifierResult expected = trainedAnew(i).result(0, params);
        const tkClassifierResult result = assessment.result(i, params);
        for (std::size_t c = 0; c < 10; ++c)
            harness.check(
                std::abs(expected.categoryResults()[c].classScore() - result.categoryResults()[c].classScore()) < 1e-10,
                "ASSESSMENT without a pattern is that of a training without it");
    }
    harness.measure("ASSESSMENT", "one of the patterns left out of the training",
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; i += table.rows)
                              keep(tkAssessment::leaveOneOut(data, params));
                      },
                      table.rows},
                     {"a training anew", Role::Naive,
                      [&](long first, long count)
                      {
                          for (long i = first; i < first + count; ++i)
                              keep(trainedAnew(i));
                      }}});
}
} // namespace

void assessments(Harness& harness)
{
    for (const long categories : {3L, 10L})
        decisions(harness, categories);
    leaveOneOut(harness);
}
