#include "peers.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include <algorithm>

void ruleTables(Harness& harness)
{
    constexpr long numRules = 50;
    constexpr long numFeatures = 12;
    constexpr double threshold = 0.5;
    tkRandomUniform uniform(11);

    std::vector<Peer::Trapezoid> trapezoids;
    std::vector<tkClassifierRule> rules;
    std::vector<definition::Rule> naiveRules;
    for (long r = 0; r < numRules; ++r)
    {
        std::vector<tkPtrHandle<tkClsFtSc>> functions;
        definition::Rule naiveRule{{}, r};
        for (long f = 0; f < numFeatures; ++f)
        {
            // A centre between 0 and 1, a plateau of 0.4 and flanks of 0.3.
            const double centre = uniform.next(0.0, 1.0);
            const Peer::Trapezoid t{{centre - 0.5, centre - 0.2, centre + 0.2, centre + 0.5}};
            trapezoids.push_back(t);
            auto* const function = new tkClassifierFeatureScoreTwoSided;
            function->init(t.corners[1], t.corners[0], t.corners[0], t.corners[2], t.corners[3], t.corners[3], 1.0, 0.0,
                           1.0, 0.0);
            functions.emplace_back(function);
            naiveRule.scores.emplace_back(new definition::TwoSidedScore(*function));
        }
        rules.emplace_back();
        rules.back().init(functions, r);
        naiveRules.push_back(naiveRule);
    }
    tkClassifierRuleTable table;
    table.train(rules);

    // Every fourth input lies on the plateaus of a random rule; the others are anywhere.
    std::vector<std::vector<double>> inputs;
    std::vector<tkClassifierFeatureVector> vectors;
    for (int i = 0; i < 1024; ++i)
    {
        std::vector<double> input;
        const long rule = std::min(numRules - 1, static_cast<long>(uniform.next(0.0, numRules)));
        for (long f = 0; f < numFeatures; ++f)
        {
            const double* const corners = trapezoids[static_cast<std::size_t>(rule * numFeatures + f)].corners;
            input.push_back(i % 4 == 0 ? uniform.next(corners[1], corners[2]) : uniform.next(0.0, 1.0));
        }
        inputs.push_back(input);
        vectors.emplace_back(input);
    }
    for (std::size_t i = 0; i < inputs.size(); ++i)
        harness.check(table.classifyHardThreshold(vectors[i], threshold) ==
                          definition::classifyByRules(naiveRules, inputs[i], threshold),
                      "RULES decides as the definition");

    const auto library = [&](long first, long count)
    {
        long sum = 0;
        for (long i = first; i < first + count; ++i)
            sum += table.classifyHardThreshold(vectors[static_cast<std::size_t>(i) % vectors.size()], threshold);
        keep(sum);
    };
    const auto plain = [&](long first, long count)
    {
        long sum = 0;
        for (long i = first; i < first + count; ++i)
            sum +=
                definition::classifyByRules(naiveRules, inputs[static_cast<std::size_t>(i) % inputs.size()], threshold);
        keep(sum);
    };
    std::vector<Tool> tools{{"clastool", Role::Library, library}, {"naive", Role::Naive, plain}};
    for (Peer* peer : peers())
        peer->addRules(tools, trapezoids, numFeatures, threshold, inputs);
    harness.measure("RULES", "one vector", tools);
    const long count = allocations().count;
    table.classifyHardThreshold(vectors.front(), threshold);
    harness.figure("RULES", "allocations of one run", static_cast<double>(allocations().count - count));
}
