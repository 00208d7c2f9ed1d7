#include "machine.h"
#include "peers.h"
#include "tests/definition/definition.h"
#include "workloads.h"

#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/tkNMNeighborSearch.h"

#include <algorithm>
#include <cmath>

namespace
{
tkClassifierTrainParamsKNN paramsOf(long k, double order)
{
    return tkClassifierTrainParamsKNN(k, tkPatternDistanceMetricNorm(order), tkClassifierCosts(1.0));
}

/// The library's own result, query by query.
Tool libraryTool(const tkClassifierTool& classifier, const std::vector<tkFeaturePattern>& queries)
{
    return {"clastool", Role::Library,
            [&classifier, &queries, result = tkClassifierResult()](long first, long count) mutable
            {
                for (long i = first; i < first + count; ++i)
                    classifier.run(queries[static_cast<std::size_t>(i) % queries.size()], result);
                keep(result);
            }};
}

Tool naiveTool(tkClassifierDataProviderMemory& provider, const definition::Metric& metric, long k,
               const std::vector<tkFeaturePattern>& queries)
{
    return {"naive", Role::Naive,
            [&provider, &metric, k, &queries](long first, long count)
            {
                for (long i = first; i < first + count; ++i)
                    keep(definition::classifyByNeighbours(provider, metric, k,
                                                          queries[static_cast<std::size_t>(i) % queries.size()]));
            }};
}

/// Whether the library finds the same neighbours as `expected` finds: each row is made a category of its own, so that
/// the result lists the neighbours.
template <class Expected>
bool findsTheSame(const Table& table, const std::vector<tkFeaturePattern>& queries, long k, double order,
                  long numQueries, Expected expected)
{
    Table numbered{table.rows, table.columns, table.values, std::vector<long>(table.labels.size())};
    for (std::size_t i = 0; i < numbered.labels.size(); ++i)
        numbered.labels[i] = static_cast<long>(i);
    tkClassifierDataProviderMemory provider = providerOf(numbered);
    tkClassifierTool classifier;
    classifier.train(provider, paramsOf(k, order));
    for (long q = 0; q < numQueries; ++q)
    {
        const tkFeaturePattern& query = queries[static_cast<std::size_t>(q) % queries.size()];
        tkClassifierResult result;
        classifier.run(query, result);
        std::vector<long> found;
        for (const tkClassifierCategoryResult& category : result.categoryResults())
            found.push_back(category.categoryLabel()); // equal costs: by ascending label
        std::vector<long> wanted = expected(provider, query);
        std::sort(wanted.begin(), wanted.end());
        if (found != wanted)
            return false;
    }
    return true;
}

/// Runs one table against the naive transcription and all peers, and counts what a run and the training allocate.
void compare(Harness& harness, const std::string& workload, const Table& table, long k,
             const std::vector<double>& orders, bool readsMemory)
{
    const Table queryTable = gaussianTable(harness.size(64, 8), table.columns, 10, 77);
    const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);
    tkClassifierDataProviderMemory provider = providerOf(table);
    tkClassifierTool classifier;
    const Allocations before = allocations();
    classifier.train(provider, paramsOf(k, orders.front()));
    const auto patterns = static_cast<double>(table.rows);
    const double handles = 2.0 * sizeof(void*) * patterns; // a handle and a label for each pattern
    harness.figure(workload, "bytes per stored measurement beside patterns, handles and labels",
                   (static_cast<double>(allocations().bytes - before.bytes) - handles) /
                       (patterns * static_cast<double>(table.columns)));

    for (const double order : orders)
    {
        classifier.retrain(paramsOf(k, order));
        const definition::NormMetric metric(order);
        const long checks = harness.size(table.rows > 100000 ? 3 : 16, 4);
        harness.check(findsTheSame(table, queries, k, order, checks,
                                   [&](tkClassifierDataProviderMemory& rows, const tkFeaturePattern& query)
                                   { return definition::nearest(rows, metric, k, query); }),
                      workload + " finds the same neighbours as the definition");
        tkClassifierResult result;
        for (long q = 0; q < checks; ++q)
        {
            const tkFeaturePattern& query = queries[static_cast<std::size_t>(q)];
            classifier.run(query, result);
            harness.check(definition::agrees(definition::classifyByNeighbours(provider, metric, k, query), result),
                          workload + " gives the same result as the definition");
        }
        const long count = allocations().count;
        classifier.run(queries.front(), result);
        harness.figure(workload, "allocations of one run", static_cast<double>(allocations().count - count));

        std::vector<Tool> tools{libraryTool(classifier, queries), naiveTool(provider, metric, k, queries)};
        for (Peer* peer : peers())
            peer->addNearest(tools, table, queryTable, k, order);
        if (readsMemory)
            tools.push_back({"reading all doubles once", Role::Limit,
                             [&table](long, long times)
                             {
                                 for (long i = 0; i < times; ++i)
                                     keep(sumOf(table.values.data(), table.rows * table.columns));
                             }});
        std::string operation = "one query, order 2";
        operation.back() = static_cast<char>('0' + static_cast<int>(order));
        harness.measure(workload, operation, tools);
    }
}

/// Data on which little can be ruled out cheaply: against plain scans, which are all that is left then.
void compareWithScan(Harness& harness, const std::string& workload, const Table& table, const Table& queryTable)
{
    constexpr long k = 5;
    const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);
    tkClassifierDataProviderMemory provider = providerOf(table);
    tkClassifierTool classifier;
    classifier.train(provider, paramsOf(k, 2.0));
    const definition::NormMetric metric(2.0);
    harness.check(findsTheSame(table, queries, k, 2.0, harness.size(2, 4),
                               [&](tkClassifierDataProviderMemory& rows, const tkFeaturePattern& query)
                               { return definition::nearest(rows, metric, k, query); }),
                  workload + " finds the same neighbours as the definition");
    std::vector<const double*> rows;
    for (long i = 0; i < table.rows; ++i)
        rows.push_back(provider.featurePattern(i)->featureMeasurements(false).data());
    for (long q = 0; q < queryTable.rows; ++q)
        harness.check(nearestByScan(rows, table.columns, queryTable.row(q), k) ==
                          nearestByScan(table.values.data(), table.rows, table.columns, queryTable.row(q), k),
                      workload + ": both scans find the same");
    const auto scanCopy = [&table, &queryTable](long first, long count)
    {
        for (long i = first; i < first + count; ++i)
            keep(nearestByScan(table.values.data(), table.rows, table.columns, queryTable.row(i % queryTable.rows), k));
    };
    const auto scanPatterns = [&table, &rows, &queryTable](long first, long count)
    {
        for (long i = first; i < first + count; ++i)
            keep(nearestByScan(rows, table.columns, queryTable.row(i % queryTable.rows), k));
    };
    harness.measure(workload, "one query, order 2",
                    {libraryTool(classifier, queries),
                     {"plain vectorised scan of a contiguous copy", Role::Limit, scanCopy},
                     {"plain vectorised scan of the stored patterns", Role::Limit, scanPatterns}});
}
} // namespace

void nearestNeighbours(Harness& harness)
{
    compare(harness, "KNN-A", gaussianTable(harness.size(1000000, 5000), 16, 10, 1), 5, {2.0}, true);
    compare(harness, "KNN-B", gaussianTable(harness.size(10000, 1000), 8, 10, 2), 3, {2.0, 1.0, 3.0}, false);
    compare(harness, "KNN-C", gaussianTable(harness.size(100000, 1000), 64, 10, 3), 15, {2.0}, true);
}

void neighbourGrid(Harness& harness, long patterns)
{
    for (const long columns : {2, 6, 16, 64})
    {
        const Table table = gaussianTable(harness.size(patterns, std::min(patterns, 100L)), columns, 10, 11);
        const Table queryTable = gaussianTable(64, columns, 10, 77);
        const std::vector<tkFeaturePattern> queries = patternsOf(queryTable);
        tkClassifierDataProviderMemory provider = providerOf(table);
        tkClassifierTool classifier;
        classifier.train(provider, paramsOf(1, 2.0));
        const std::string size = std::to_string(patterns) + " x " + std::to_string(columns);
        const auto retrain = [&](long k, double order)
        {
            classifier.retrain(paramsOf(k, order));
            const definition::NormMetric metric(order);
            for (long q = 0; q < 2; ++q)
            {
                tkClassifierResult result;
                classifier.run(queries[static_cast<std::size_t>(q)], result);
                harness.check(definition::agrees(definition::classifyByNeighbours(provider, metric, k,
                                                                                  queries[static_cast<std::size_t>(q)]),
                                                 result),
                              "the grid at " + size + " gives the same result as the definition");
            }
        };
        for (const long k : {1, 5, 25})
        {
            retrain(k, 2.0);
            std::vector<Tool> tools{libraryTool(classifier, queries)};
            for (Peer* peer : peers())
                peer->addNearest(tools, table, queryTable, k, 2.0);
            tools.erase(std::remove_if(tools.begin(), tools.end(), [](const Tool& tool) { return tool.batch != 1; }),
                        tools.end());
            harness.measure("KNN grid", size + ", k = " + std::to_string(k), tools, 7);
        }

        std::vector<Tool> tools;
        std::vector<tkClassifierTool> byOrder;
        for (const double order : {2.0, 1.0, 3.0, 1.5, 7.5})
        {
            retrain(5, order);
            byOrder.push_back(classifier);
        }
        for (std::size_t i = 0; i < byOrder.size(); ++i)
        {
            tools.push_back(libraryTool(byOrder[i], queries));
            tools.back().name = std::vector<std::string>{"order 2", "order 1", "order 3", "order 1.5", "order 7.5"}[i];
        }
        harness.measure("KNN orders", size, tools, 7);
    }
}

void neighboursBeforeAvx2(Harness& harness)
{
    constexpr long k = 5;
    const Table table = gaussianTable(harness.size(1000000, 5000), 16, 10, 1);
    const Table queryTable = gaussianTable(harness.size(64, 8), table.columns, 10, 77);
    const RowsOf rows(table);
    tkNMNeighborSearch search;
    search.update(rows, table.rows, table.columns);
    std::vector<long> indices(k);
    std::vector<double> distances(2 * k);
    for (long q = 0; q < queryTable.rows; ++q)
    {
        std::vector<long> best(k);
        search.nearest(rows, queryTable.row(q), 2.0, k, best.data(), distances.data());
        search.nearest(rows, queryTable.row(q), 2.0, k, indices.data(), distances.data(), tkNMInstructions::Sse2);
        harness.check(best == indices, "the search finds the same with other instructions");
    }
    std::vector<Tool> tools{{"clastool's search", Role::Library,
                             [&](long first, long count)
                             {
                                 for (long i = first; i < first + count; ++i)
                                     search.nearest(rows, queryTable.row(i % queryTable.rows), 2.0, k, indices.data(),
                                                    distances.data(), tkNMInstructions::Sse2);
                                 keep(indices);
                             }}};
    for (Peer* peer : peers())
        peer->addNearest(tools, table, queryTable, k, 2.0);
    tools.push_back({"reading all doubles once", Role::Limit,
                     [&table](long, long times)
                     {
                         for (long i = 0; i < times; ++i)
                             keep(sumOf(table.values.data(), table.rows * table.columns));
                     }});
    harness.measure("KNN before AVX2", "one query, order 2", tools);
}

void hostileNeighbours(Harness& harness)
{
    const long rows = harness.size(300000, 2000);
    constexpr long columns = 16;
    tkRandomUniform uniform(4);

    Table cauchy = gaussianTable(rows, columns, 10, 5);
    for (double& value : cauchy.values)
        value = std::tan(uniform.next(-1.5707, 1.5707));
    Table cauchyQueries = gaussianTable(64, columns, 10, 6);
    for (double& value : cauchyQueries.values)
        value = std::tan(uniform.next(-1.5707, 1.5707));
    compareWithScan(harness, "KNN with Cauchy tails", cauchy, cauchyQueries);

    const Table near = gaussianTable(rows, columns, 10, 7);
    Table far = gaussianTable(64, columns, 10, 8);
    for (double& value : far.values)
        value += 1e6;
    compareWithScan(harness, "KNN with far queries", near, far);

    Table few = gaussianTable(10, columns, 10, 9);
    Table repeated{rows, columns, {}, {}};
    for (long i = 0; i < rows; ++i)
    {
        repeated.values.insert(repeated.values.end(), few.row(i % few.rows), few.row(i % few.rows) + columns);
        repeated.labels.push_back(i % few.rows);
    }
    compareWithScan(harness, "KNN with ten distinct patterns", repeated, gaussianTable(64, columns, 10, 10));
}
