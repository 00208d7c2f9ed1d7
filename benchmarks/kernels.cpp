#include "workloads.h"

#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMNormalBatch.h"
#include "numerics/kernels/tkNMNormalTrainer.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMFactorisation.h"
#include "numerics/tkNMNeighborSearch.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <functional>
#include <string>

namespace
{
/// The kernel by the best instructions of the processor, and the plain function that it computes, each `perRun` times.
void compare(Harness& harness, const std::string& kernel, const std::string& size,
             const std::function<void(tkNMInstructions)>& run, long perRun = 1)
{
    const auto tool = [&](const std::string& name, Role role, tkNMInstructions instructions)
    {
        return Tool{name, role,
                    [&run, instructions, perRun](long, long count)
                    {
                        for (long i = 0; i < count; i += perRun)
                            run(instructions);
                    },
                    perRun};
    };
    harness.measure("Kernels", kernel + ", " + size,
                    {tool("kernel", Role::Library, tkNMBestInstructions()),
                     tool("definition", Role::Naive, tkNMInstructions::Definition)},
                    3);
}

std::string text(long value)
{
    return std::to_string(value);
}

/// Distributions over all columns that have learned the rows in turn.
std::vector<tkNMNormal> normalsOf(const Table& table, long count)
{
    std::vector<tkNMNormal> normals(static_cast<std::size_t>(count));
    for (long i = 0; i < table.rows; ++i)
        normals[static_cast<std::size_t>(i % count)].add(table.row(i), table.columns);
    return normals;
}

void distances(Harness& harness)
{
    for (const long d : {2L, 6L, 16L, 64L})
    {
        const Table table = gaussianTable(4 * d + 10, d, 1, 81);
        const std::vector<tkNMNormal> normals = normalsOf(table, 1);
        const tkNMFactorisation& f = normals[0].factorisation();
        compare(harness, "tkNMMahalanobis", text(d) + " measurements",
                [&](tkNMInstructions instructions) { keep(f.squaredDistance(table.row(0), instructions)); });
    }
}

void batches(Harness& harness)
{
    for (const long categories : {2L, 3L, 10L, 100L})
        for (const long d : {1L, 6L, 16L, 64L})
        {
            const Table table = gaussianTable(categories * (d + 10), d, categories, 82);
            const std::vector<tkNMNormal> normals = normalsOf(table, categories);
            std::vector<tkNMNormalBatch::Category> densities;
            for (std::size_t c = 0; c < normals.size(); ++c)
                densities.push_back({c, {{0, &normals[c].factorisation()}}});
            const tkNMNormalBatch best(densities);
            const tkNMNormalBatch plain(densities, tkNMInstructions::Definition);
            std::vector<double> sums(normals.size());
            compare(harness, "tkNMNormalBatch", text(categories) + " categories of " + text(d) + " measurements",
                    [&](tkNMInstructions instructions)
                    {
                        std::fill(sums.begin(), sums.end(), 0.0);
                        (instructions == tkNMInstructions::Definition ? plain : best)
                            .addLogDensities(table.row(0), sums.data());
                        keep(sums);
                    });
        }
}

/// All patterns of a training of one category, whose measurements are apart or joint.
void trainings(Harness& harness)
{
    for (const bool areJoint : {false, true})
        for (const long d : {6L, 16L, 64L})
            for (const long rows : {30L, 400L, 10000L, 1000000L})
            {
                if (rows * d > 16000000)
                    continue;
                const Table table = gaussianTable(harness.size(rows, 30), d, 1, 83);
                const auto size = static_cast<std::size_t>(d);
                const std::size_t numParts = areJoint ? 1 : size;
                const auto run = [&](tkNMInstructions instructions)
                {
                    std::vector<tkNMStatistics> statistics(numParts, tkNMStatistics(size / numParts));
                    const auto addToEach = [&](const double* x)
                    {
                        for (std::size_t p = 0; p < numParts; ++p)
                            statistics[p].add(x + p * (size / numParts), instructions);
                    };
                    addToEach(table.row(0));
                    std::vector<tkNMNormalTrainer::Part> parts;
                    for (std::size_t p = 0; p < numParts; ++p)
                        parts.push_back({&statistics[p], p * (size / numParts)});
                    tkNMNormalTrainer trainer(size, static_cast<std::size_t>(table.rows));
                    if (instructions != tkNMInstructions::Definition)
                        trainer.start(parts);
                    for (long i = 1; i < table.rows; ++i)
                        if (instructions == tkNMInstructions::Definition)
                            addToEach(table.row(i));
                        else
                            trainer.add(table.row(i));
                    trainer.finish();
                    keep(statistics);
                };
                compare(harness, "tkNMNormalTrainer",
                        text(rows) + " patterns of " + text(d) + (areJoint ? " joint" : " single") +
                            " measurements, a pattern",
                        run, table.rows);
            }
}

void crossProducts(Harness& harness)
{
    for (const long d : {2L, 6L, 16L, 64L})
    {
        const Table table = gaussianTable(1000, d, 1, 84);
        compare(
            harness, "tkNMCrossProducts", text(d) + " joint measurements, a pattern",
            [&](tkNMInstructions instructions)
            {
                tkNMStatistics statistics(static_cast<std::size_t>(d));
                for (long i = 0; i < table.rows; ++i)
                    statistics.add(table.row(i), instructions);
                keep(statistics);
            },
            table.rows);
    }
}

void decisions(Harness& harness)
{
    for (const bool isOverridden : {false, true})
        for (const long n : {2L, 3L, 10L, 32L, 100L, 1000L})
        {
            const std::size_t room = tkNMDecision::roundUp(static_cast<std::size_t>(n));
            tkRandomUniform uniform(85);
            std::vector<double> scores(room);
            for (double& score : scores)
                score = uniform.next(0.0, 1.0);
            std::vector<double> weights(room);
            std::vector<double> risks(room);
            compare(harness, "tkNMRiskKernel",
                    text(n) + " categories, " + (isOverridden ? "a cost overridden" : "one cost for all"),
                    [&](tkNMInstructions instructions)
                    {
                        std::fill(weights.begin(), weights.end(), 1.0);
                        tkNMDecision::CostOverride costs[] = {{1, 0, 3.0}};
                        keep(tkNMDecision::compute(scores.data(), weights.data(), static_cast<double>(n), risks.data(),
                                                   static_cast<std::size_t>(n), 1.0, costs, isOverridden ? 1 : 0,
                                                   instructions));
                        keep(risks);
                    });
        }
    for (const long n : {2L, 10L, 32L})
    {
        std::vector<double> risks(tkNMDecision::roundUp(static_cast<std::size_t>(n)));
        tkRandomUniform uniform(86);
        for (double& risk : risks)
            risk = uniform.next(0.0, 1.0);
        std::vector<std::uint64_t> ranks(risks.size());
        compare(harness, "tkNMRiskKernel", "the ranks of " + text(n) + " categories",
                [&](tkNMInstructions instructions)
                {
                    tkNMDecision::rank(risks.data(), ranks.data(), static_cast<std::size_t>(n), instructions);
                    keep(ranks);
                });
    }
}

void elementaryFunctions(Harness& harness)
{
    for (const long count : {3L, 10L, 64L, 1000L})
    {
        std::vector<double> x;
        tkRandomUniform uniform(87);
        for (long i = 0; i < count; ++i)
            x.push_back(uniform.next(0.1, 9.0));
        std::vector<double> results(x.size());
        const auto compareFunction = [&](const std::string& name, const auto& function)
        {
            compare(
                harness, "tkNMElementaryKernel", name + " of " + text(count) + " arguments, an argument",
                [&](tkNMInstructions instructions)
                {
                    function(instructions);
                    keep(results);
                },
                count);
        };
        compareFunction("exp", [&](tkNMInstructions instructions)
                        { tkNMElementaryKernel::exp(x.data(), results.data(), x.size(), instructions); });
        compareFunction("log", [&](tkNMInstructions instructions)
                        { tkNMElementaryKernel::log(x.data(), results.data(), x.size(), instructions); });
        for (const double y : {1.5, 2.0, 3.0})
            compareFunction("power " + std::to_string(y).substr(0, 3), [&, y](tkNMInstructions instructions)
                            { tkNMElementaryKernel::pow(x.data(), y, results.data(), x.size(), instructions); });
    }
}

/// By tkNMNeighborScan or tkNMNeighborFilter, as the search chooses.
void neighbours(Harness& harness)
{
    constexpr long k = 5;
    for (const long count : {30L, 400L, 4000L, 10000L, 1000000L})
    {
        const Table table = gaussianTable(std::min(count, harness.size(count, 400)), 16, 10, 88);
        const Table queries = gaussianTable(16, 16, 10, 89);
        const RowsOf rows(table);
        tkNMNeighborSearch search;
        search.update(rows, table.rows, table.columns);
        std::vector<long> indices(k);
        std::vector<double> distances(2 * k);
        long next = 0;
        compare(harness, "neighbour search", text(count) + " patterns of 16 measurements, order 2, k = 5",
                [&](tkNMInstructions instructions)
                {
                    keep(search.nearestSet(rows, queries.row(next++ % queries.rows), 2.0, k, indices.data(),
                                           distances.data(), instructions));
                });
    }
}
} // namespace

void kernels(Harness& harness)
{
    neighbours(harness);
    distances(harness);
    batches(harness);
    trainings(harness);
    crossProducts(harness);
    decisions(harness);
    elementaryFunctions(harness);
}
