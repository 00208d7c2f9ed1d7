#include "machine.h"
#include "peers.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"

#include <numeric>

namespace
{
/// One set of all measurements, or a set for each.
std::vector<std::vector<long>> setsOf(long columns, bool dependent)
{
    std::vector<long> all(static_cast<std::size_t>(columns));
    std::iota(all.begin(), all.end(), 0L);
    if (dependent)
        return {all};
    std::vector<std::vector<long>> sets;
    for (const long index : all)
        sets.push_back({index});
    return sets;
}

void compare(Harness& harness, const std::string& workload, const Table& table, long classes, bool dependent)
{
    const std::vector<std::vector<long>> sets = setsOf(table.columns, dependent);
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    if (dependent)
        for (long label = 0; label < classes; ++label)
            types.setDependent(label, sets.front());
    const tkClassifierTrainParamsBayesian params(types, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0),
                                                 tkFeaturePattern());
    tkClassifierDataProviderMemory provider = providerOf(table);
    tkClassifierTool classifier;
    classifier.train(provider, params);
    const std::vector<definition::Category> categories = definition::trainNormals(provider, sets);

    const Table queryTable = gaussianTable(harness.size(256, 32), table.columns, classes, 78);
    const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);
    tkClassifierResult result;
    for (const tkFeaturePattern& query : queries)
    {
        classifier.run(query, result);
        harness.check(definition::nearlyAgrees(definition::classifyByNormals(categories, query), result),
                      workload + " gives the result of the definition");
    }
    const long count = allocations().count;
    classifier.run(queries.front(), result);
    harness.figure(workload, "allocations of one run", static_cast<double>(allocations().count - count));

    std::vector<Tool> tools{
        {"clastool", Role::Library,
         [&](long first, long times)
         {
             for (long i = first; i < first + times; ++i)
                 classifier.run(queries[static_cast<std::size_t>(i) % queries.size()], result);
             keep(result);
         }},
        {"naive", Role::Naive,
         [&](long first, long times)
         {
             for (long i = first; i < first + times; ++i)
                 keep(definition::classifyByNormals(categories, queries[static_cast<std::size_t>(i) % queries.size()]));
         }}};
    std::vector<Tool> training{{"clastool", Role::Library,
                                [&](long, long times)
                                {
                                    for (long i = 0; i < times; ++i)
                                        tkClassifierTool().train(provider, params);
                                }},
                               {"naive", Role::Naive,
                                [&](long, long times)
                                {
                                    for (long i = 0; i < times; ++i)
                                        keep(definition::trainNormals(provider, sets));
                                }}};
    const std::vector<double> factors(static_cast<std::size_t>(classes * table.columns * (table.columns + 1) / 2), 1.0);
    for (Peer* peer : peers())
    {
        peer->addNormalRun(tools, table, queryTable, dependent);
        peer->addNormalTraining(training, table, dependent);
    }
    if (dependent)
        tools.push_back({"reading the factors from cache", Role::Limit,
                         [&factors](long, long times)
                         {
                             for (long i = 0; i < times; ++i)
                                 keep(sumOf(factors.data(), static_cast<long>(factors.size())));
                         }});
    harness.measure(workload, "one pattern", tools);
    harness.measure(workload, "training", training, 3);
}
} // namespace

void normalDistributions(Harness& harness)
{
    // The classes of A are told apart as those of B are, but by a distribution for each measurement.
    const Table table = gaussianTable(harness.size(1000000, 2000), 16, 10, 14);
    compare(harness, "BAYES-A", table, 10, false);
    compare(harness, "BAYES-B", table, 10, true);
    compare(harness, "BAYES-C", gaussianTable(harness.size(200000, 4000), 64, 20, 15), 20, true);
}
