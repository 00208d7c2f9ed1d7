#include "machine.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define WIDEST __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"), optimize("O3")))
#else
#define WIDEST
#endif

namespace
{
constexpr long lanes = 8; // of a vector of the widest registers
typedef double Vector __attribute__((vector_size(lanes * sizeof(double)), aligned(sizeof(double)), may_alias));
} // namespace

WIDEST double sumOf(const double* values, long count)
{
    Vector sums[4] = {};
    long i = 0;
    for (; i + 4 * lanes <= count; i += 4 * lanes)
        for (long s = 0; s < 4; ++s)
            sums[s] += *reinterpret_cast<const Vector*>(values + i + s * lanes);
    double sum = 0.0;
    for (; i < count; ++i)
        sum += values[i];
    const Vector total = sums[0] + sums[1] + (sums[2] + sums[3]);
    for (long lane = 0; lane < lanes; ++lane)
        sum += total[lane];
    return sum;
}

WIDEST void multiplyAdd(double* __restrict sums, const double* __restrict values, double factor, long count)
{
    for (long i = 0; i < count; ++i)
        sums[i] += values[i] * factor;
}

WIDEST std::vector<long> nearestByScan(const double* rows, long numRows, long columns, const double* query, long k)
{
    std::vector<long> indices(static_cast<std::size_t>(k), -1);
    std::vector<double> distances(static_cast<std::size_t>(k), std::numeric_limits<double>::infinity());
    double bound = distances.back();
    const long whole = columns / lanes * lanes;
    for (long r = 0; r < numRows; ++r)
    {
        const double* const row = rows + r * columns;
        Vector sums = {};
        for (long j = 0; j < whole; j += lanes)
        {
            const Vector d = *reinterpret_cast<const Vector*>(query + j) - *reinterpret_cast<const Vector*>(row + j);
            sums += d * d;
        }
        double sum = 0.0;
        for (long lane = 0; lane < lanes; ++lane)
            sum += sums[lane];
        for (long j = whole; j < columns; ++j)
            sum += (query[j] - row[j]) * (query[j] - row[j]);
        if (sum >= bound)
            continue;
        const auto place =
            static_cast<std::size_t>(std::upper_bound(distances.begin(), distances.end(), sum) - distances.begin());
        for (std::size_t j = distances.size() - 1; j > place; --j)
        {
            distances[j] = distances[j - 1];
            indices[j] = indices[j - 1];
        }
        distances[place] = sum;
        indices[place] = r;
        bound = distances.back();
    }
    return indices;
}
