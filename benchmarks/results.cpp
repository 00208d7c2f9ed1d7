#include "machine.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include <algorithm>

void results(Harness& harness)
{
    const long categories = harness.size(1000, 50);
    tkRandomUniform uniform(12);
    std::vector<tkClassifierCategoryResult> matchResults;
    definition::Result naiveResults;
    for (long label = 0; label < categories; ++label)
    {
        matchResults.emplace_back(label, uniform.next(0.0, 1.0));
        naiveResults.push_back({label, matchResults.back().matchScore(), 0.0, 0.0});
    }
    tkClassifierCosts costs(1.0);
    while (costs.numMisclassificationOverrides() < categories)
    {
        const long first = static_cast<long>(uniform.next(0.0, static_cast<double>(categories))) % categories;
        const long second = static_cast<long>(uniform.next(0.0, static_cast<double>(categories))) % categories;
        if (first != second)
            costs.misclassificationCostOverride(first, second, uniform.next(0.0, 5.0));
    }
    const tkClassifierFrequencies frequencies(1.0);
    harness.check(definition::agrees(definition::result(naiveResults, frequencies, costs),
                                     tkClassifierResult(matchResults, frequencies, costs, 0.0)),
                  "RESULT is that of the definition");

    std::vector<double> sums(static_cast<std::size_t>(categories));
    std::vector<double> row(static_cast<std::size_t>(categories), 1.0);
    harness.measure("RESULT", "one result",
                    {{"clastool", Role::Library,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                              keep(tkClassifierResult(matchResults, frequencies, costs, 0.0));
                      }},
                     {"naive", Role::Naive,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                              keep(definition::result(naiveResults, frequencies, costs));
                      }},
                     {"the multiplications and additions alone", Role::Limit,
                      [&](long, long count)
                      {
                          for (long i = 0; i < count; ++i)
                          {
                              std::fill(sums.begin(), sums.end(), 0.0);
                              for (const tkClassifierCategoryResult& category : matchResults)
                                  multiplyAdd(sums.data(), row.data(), category.matchScore(), categories);
                              keep(sums);
                          }
                      }}});
}
