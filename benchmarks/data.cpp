#include "workloads.h"

Table gaussianTable(long rows, long columns, long classes, long seed)
{
    tkRandomGaussian random(seed);
    Table table{rows, columns, {}, {}};
    std::vector<double> centres(static_cast<std::size_t>(classes * columns));
    for (double& centre : centres)
        centre = random.next(0.0, 1.0);
    table.values.reserve(static_cast<std::size_t>(rows * columns));
    table.labels.reserve(static_cast<std::size_t>(rows));
    for (long i = 0; i < rows; ++i)
    {
        const long label = i % classes;
        const double common = random.next(0.0, 0.5);
        for (long j = 0; j < columns; ++j)
            table.values.push_back(centres[static_cast<std::size_t>(label * columns + j)] + common +
                                   random.next(0.0, 1.0));
        table.labels.push_back(label);
    }
    return table;
}

tkClassifierDataProviderMemory providerOf(const Table& table)
{
    tkClassifierDataProviderMemory provider;
    for (long i = 0; i < table.rows; ++i)
        provider.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(table.pattern(i))),
                         table.labels[static_cast<std::size_t>(i)]);
    return provider;
}

std::vector<tkFeaturePattern> patternsOf(const Table& table)
{
    std::vector<tkFeaturePattern> patterns;
    for (long i = 0; i < table.rows; ++i)
        patterns.push_back(table.pattern(i));
    return patterns;
}
