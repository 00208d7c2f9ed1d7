#ifndef BENCHMARKS_WORKLOADS_H
#define BENCHMARKS_WORKLOADS_H

#include "clss/clastool/clastool.h"
#include "harness.h"
#include "numerics/tkNMNeighborSearch.h"

#include <vector>

/// Labelled rows of measurements, one after the other.
struct Table
{
    long rows = 0;
    long columns = 0;
    std::vector<double> values;
    std::vector<long> labels;

    const double* row(long i) const { return &values[static_cast<std::size_t>(i * columns)]; }
    tkFeaturePattern pattern(long i) const { return tkFeaturePattern({row(i), row(i) + columns}); }
};

/// The rows of a table, which must outlive it, for a search.
class RowsOf : public tkNMNeighborSearch::Rows
{
public:
    explicit RowsOf(const Table& table) : table_(table) {}
    void fetch(const long* indices, long count, const double** rows) const override
    {
        for (long i = 0; i < count; ++i)
            rows[i] = table_.row(indices[i]);
    }

private:
    const Table& table_;
};

/// Rows around one centre for each class, the classes in turn; with `spread` of the centres and correlated noise.
Table gaussianTable(long rows, long columns, long classes, long seed);

/// The table as training data.
tkClassifierDataProviderMemory providerOf(const Table& table);
std::vector<tkFeaturePattern> patternsOf(const Table& table);

/// One workload each, or a few that belong together.
void nearestNeighbours(Harness& harness);
/// Single runs of every method with as many patterns as an inspection line has.
void latencies(Harness& harness);
void neighboursBeforeAvx2(Harness& harness);
void hostileNeighbours(Harness& harness);
/// So many patterns of 2 to 64 measurements with k from 1 to 25, and in other orders.
void neighbourGrid(Harness& harness, long patterns);
void normalDistributions(Harness& harness);
void invalidMeasurements(Harness& harness);
void ruleTables(Harness& harness);
void decisionTrees(Harness& harness);
void results(Harness& harness);
void assessments(Harness& harness);
void archives(Harness& harness);
void kernels(Harness& harness);

#endif
