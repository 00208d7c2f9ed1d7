#include "machine.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define WIDEST __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"), optimize("O3")))
#else
#define WIDEST
#endif

#if defined(__GNUC__)
#define ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define ALWAYS_INLINE inline
#endif

namespace
{
constexpr long lanes = 8; // of a vector of the widest registers
typedef double Vector __attribute__((vector_size(lanes * sizeof(double)), aligned(sizeof(double)), may_alias));

/// The k smallest squared distances so far; inlined into functions for several instruction sets.
class Nearest
{
public:
    ALWAYS_INLINE Nearest(long columns, const double* query, long k)
        : columns_(columns),
          query_(query),
          indices_(static_cast<std::size_t>(k), -1),
          distances_(static_cast<std::size_t>(k), std::numeric_limits<double>::infinity()),
          bound_(distances_.back())
    {
    }

    ALWAYS_INLINE void add(long index, const double* row)
    {
        const long whole = columns_ / lanes * lanes;
        Vector sums = {};
        for (long j = 0; j < whole; j += lanes)
        {
            const Vector d = *reinterpret_cast<const Vector*>(query_ + j) - *reinterpret_cast<const Vector*>(row + j);
            sums += d * d;
        }
        double sum = 0.0;
        for (long lane = 0; lane < lanes; ++lane)
            sum += sums[lane];
        for (long j = whole; j < columns_; ++j)
            sum += (query_[j] - row[j]) * (query_[j] - row[j]);
        if (sum < bound_)
            insert_(index, sum);
    }

    std::vector<long> indices() { return std::move(indices_); }

private:
    void insert_(long index, double sum)
    {
        const auto place =
            static_cast<std::size_t>(std::upper_bound(distances_.begin(), distances_.end(), sum) - distances_.begin());
        for (std::size_t j = distances_.size() - 1; j > place; --j)
        {
            distances_[j] = distances_[j - 1];
            indices_[j] = indices_[j - 1];
        }
        distances_[place] = sum;
        indices_[place] = index;
        bound_ = distances_.back();
    }

    long columns_;
    const double* query_;
    std::vector<long> indices_;
    std::vector<double> distances_;
    double bound_;
};
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
    Nearest nearest(columns, query, k);
    for (long i = 0; i < numRows; ++i)
        nearest.add(i, rows + i * columns);
    return nearest.indices();
}

WIDEST std::vector<long> nearestByScan(const std::vector<const double*>& rows, long columns, const double* query,
                                       long k)
{
    Nearest nearest(columns, query, k);
    for (std::size_t i = 0; i < rows.size(); ++i)
        nearest.add(static_cast<long>(i), rows[i]);
    return nearest.indices();
}
