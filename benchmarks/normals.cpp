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

/// The queries with `count` of their measurements invalid, others from one query to the next.
std::vector<tkFeaturePattern> withInvalid(const Table& table, long count)
{
    std::vector<tkFeaturePattern> patterns;
    for (long i = 0; i < table.rows; ++i)
    {
        std::vector<long> invalid;
        for (long j = 0; j < count; ++j)
            invalid.push_back((i + j * table.columns / count) % table.columns);
        patterns.emplace_back(std::vector<double>(table.row(i), table.row(i) + table.columns), invalid);
    }
    return patterns;
}

void runInvalid(Harness& harness, long columns)
{
    const long classes = 10;
    const std::string workload = "BAYES " + std::to_string(columns) + " invalid";
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    for (long label = 0; label < classes; ++label)
        types.setDependent(label, setsOf(columns, true).front());
    tkClassifierDataProviderMemory provider =
        providerOf(gaussianTable(harness.size(20000, 2000), columns, classes, 16));
    tkClassifierTool classifier;
    classifier.train(provider, tkClassifierTrainParamsBayesian(types, tkClassifierFrequencies(1.0),
                                                               tkClassifierCosts(1.0), tkFeaturePattern()));

    const Table queries = gaussianTable(harness.size(256, 32), columns, classes, 79);
    const std::pair<const char*, long> cases[] = {
        {"clastool, all valid", 0}, {"clastool, one invalid", 1}, {"clastool, a quarter invalid", (columns + 2) / 4}};
    tkClassifierResult result;
    std::vector<Tool> tools;
    for (const auto& [name, count] : cases)
    {
        const std::vector<tkFeaturePattern> patterns = withInvalid(queries, count);
        classifier.run(patterns.front(), result);
        const long before = allocations().count;
        classifier.run(patterns.front(), result);
        const bool allocatesNothing = allocations().count == before;
        harness.check(allocatesNothing, workload + ": " + name + " allocates nothing");
        tools.push_back({name, Role::Library,
                         [patterns, &classifier, &result](long first, long times)
                         {
                             for (long i = first; i < first + times; ++i)
                                 classifier.run(patterns[static_cast<std::size_t>(i) % patterns.size()], result);
                             keep(result);
                         }});
    }
    harness.measure(workload, "one pattern", tools);
}
} // namespace

void invalidMeasurements(Harness& harness)
{
    for (const long columns : {6, 16, 64})
        runInvalid(harness, columns);
}

void normalDistributions(Harness& harness)
{
    // The classes of A are told apart as those of B are, but by a distribution for each measurement.
    const Table table = gaussianTable(harness.size(1000000, 2000), 16, 10, 14);
    compare(harness, "BAYES-A", table, 10, false);
    compare(harness, "BAYES-B", table, 10, true);
    compare(harness, "BAYES-C", gaussianTable(harness.size(200000, 4000), 64, 20, 15), 20, true);
}
