#include "peers.h"
#include "workloads.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace
{
constexpr long columns = 6;
constexpr long classes = 4;

/// A complete tree: level l asks whether measurement l is greater than 0.5.
tkPtrHandle<tkDecisionTree> treeFrom(long level, long leaf)
{
    if (level == columns)
        return tkPtrHandle<tkDecisionTree>(
            new tkDecisionTreeLeaf(tkClassifierResult({tkClassifierCategoryResult(leaf, 0.0, 1.0, 0.0)}, 0.0)));
    const tkRangePredicate predicate(tkRange(0.5, std::numeric_limits<double>::infinity()), {level});
    return tkPtrHandle<tkDecisionTree>(
        new tkDecisionTreeNode(predicate, *treeFrom(level + 1, 2 * leaf + 1), *treeFrom(level + 1, 2 * leaf)));
}

/// Arithmetic in registers, about as long as a run: whatever delays some of its runs is the machine.
Tool fixedLoop()
{
    return {"a loop of arithmetic", Role::Limit,
            [](long first, long count)
            {
                for (long i = first; i < first + count; ++i)
                {
                    auto x = static_cast<std::uint64_t>(i);
                    for (int step = 0; step < 200; ++step)
                        x = x * 6364136223846793005u + 1442695040888963407u;
                    keep(x);
                }
            }};
}

/// The library's tool, and those of the peers that a person would call for one pattern.
template <class AddPeers>
void compare(Harness& harness, const std::string& operation, const tkClassifierTool& classifier,
             const std::vector<tkFeaturePattern>& queries, AddPeers addPeers)
{
    std::vector<Tool> tools{{"clastool", Role::Library,
                             [&classifier, &queries, result = tkClassifierResult()](long first, long count) mutable
                             {
                                 for (long i = first; i < first + count; ++i)
                                     classifier.run(queries[static_cast<std::size_t>(i) % queries.size()], result);
                                 keep(result);
                             }}};
    for (Peer* peer : peers())
        addPeers(*peer, tools);
    tools.erase(std::remove_if(tools.begin(), tools.end(), [](const Tool& tool) { return tool.batch != 1; }),
                tools.end());
    tools.push_back(fixedLoop());
    harness.latency("LATENCY", operation, tools);
}
} // namespace

void latencies(Harness& harness)
{
    const Table table = gaussianTable(384, columns, classes, 1);
    const Table queryTable = gaussianTable(256, columns, classes, 77);
    const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);
    tkClassifierDataProviderMemory provider = providerOf(table);

    tkClassifierTool classifier;
    for (const long k : {1, 5})
    {
        classifier.train(provider, tkClassifierTrainParamsKNN(k));
        compare(harness, "nearest neighbours, k = " + std::to_string(k), classifier, queries,
                [&](Peer& peer, std::vector<Tool>& tools) { peer.addNearest(tools, table, queryTable, k, 2.0); });
    }

    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (long label = 0; label < classes; ++label)
        types.setDependent(label, {0, 1, 2, 3, 4, 5});
    classifier.train(provider, tkClassifierTrainParamsBayesian(types, tkClassifierFrequencies(1.0),
                                                               tkClassifierCosts(1.0), tkFeaturePattern()));
    compare(harness, "Bayesian", classifier, queries,
            [&](Peer& peer, std::vector<Tool>& tools) { peer.addNormalRun(tools, table, queryTable, true); });

    classifier.train(*treeFrom(0, 0));
    compare(harness, "decision tree", classifier, queries,
            [&](Peer& peer, std::vector<Tool>& tools) { peer.addTree(tools, columns, queryTable); });

    constexpr double threshold = 0.5;
    std::vector<Peer::Trapezoid> trapezoids;
    std::vector<tkClassifierRule> rules;
    for (long r = 0; r < classes; ++r)
    {
        std::vector<tkPtrHandle<tkClsFtSc>> functions;
        for (long f = 0; f < columns; ++f)
        {
            const double centre = table.row(r)[f];
            const Peer::Trapezoid t{{centre - 2.0, centre - 1.0, centre + 1.0, centre + 2.0}};
            trapezoids.push_back(t);
            auto* const function = new tkClassifierFeatureScoreTwoSided;
            function->init(t.corners[1], t.corners[0], t.corners[0], t.corners[2], t.corners[3], t.corners[3], 1.0, 0.0,
                           1.0, 0.0);
            functions.emplace_back(function);
        }
        rules.emplace_back();
        rules.back().init(functions, r);
    }
    tkClassifierRuleTable ruleTable;
    ruleTable.train(rules);
    std::vector<std::vector<double>> inputs;
    std::vector<tkClassifierFeatureVector> vectors;
    for (long i = 0; i < queryTable.rows; ++i)
    {
        inputs.emplace_back(queryTable.row(i), queryTable.row(i) + columns);
        vectors.emplace_back(inputs.back());
    }
    std::vector<Tool> tools{{"clastool", Role::Library,
                             [&](long first, long count)
                             {
                                 for (long i = first; i < first + count; ++i)
                                     keep(ruleTable.classifyHardThreshold(
                                         vectors[static_cast<std::size_t>(i) % vectors.size()], threshold));
                             }}};
    for (Peer* peer : peers())
        peer->addRules(tools, trapezoids, columns, threshold, inputs);
    tools.push_back(fixedLoop());
    harness.latency("LATENCY", "rule table", tools);
}
