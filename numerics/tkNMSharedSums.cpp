#include "numerics/tkNMSharedSums.h"

#include "numerics/tkNMLanes.h"

#include <algorithm>

namespace
{
using Exception = tkNMSharedSums::Exception;
constexpr std::size_t group = tkNMSharedSums::group;

/// Adds a group of shared terms to all sums, and puts the sums for which a term is not the shared one in their places
/// afterwards: those of the group itself, and those with exceptions. The own term is 0.0, like the terms that fill the
/// last group; it changes no sum, since none is -0.0: they start at 0.0.
///
/// Plain loops: compilers turn these into the instructions of the function that they become part of, which they do not
/// do with vectors wider than the target's own.
TK_ALWAYS_INLINE void computeSums(double* sums, const double* terms, std::size_t count, Exception* exception,
                                  const Exception* last)
{
    std::fill_n(sums, count, 0.0);
    for (std::size_t first = 0; first < count; first += group)
    {
        const double t[group] = {terms[first],     terms[first + 1], terms[first + 2], terms[first + 3],
                                 terms[first + 4], terms[first + 5], terms[first + 6], terms[first + 7]};

        double own[group];
        for (std::size_t k = 0; k < group; ++k)
        {
            own[k] = sums[first + k];
            for (std::size_t j = 0; j < group; ++j)
                own[k] += j == k ? 0.0 : t[j];
        }

        Exception* const firstException = exception;
        while (exception != last && exception->place < first + group)
        {
            double x[group];
            for (std::size_t j = 0; j < group; ++j)
                x[j] = t[j];
            const std::size_t i = exception->sum;
            if (i - first < group)
                x[i - first] = 0.0;
            Exception* const begin = exception;
            for (; exception != last && exception->place < first + group && exception->sum == i; ++exception)
                x[exception->place - first] = exception->term;
            double sum = sums[i];
            for (std::size_t j = 0; j < group; ++j)
                sum += x[j];
            for (Exception* e = begin; e != exception; ++e)
                e->term = sum;
        }

        for (std::size_t i = 0; i < count; ++i)
            sums[i] = (((((((sums[i] + t[0]) + t[1]) + t[2]) + t[3]) + t[4]) + t[5]) + t[6]) + t[7];
        for (std::size_t k = 0; k < group; ++k)
            sums[first + k] = own[k];
        for (const Exception* e = firstException; e != exception; ++e)
            sums[e->sum] = e->term;
    }
}

void computePlain(double* sums, const double* terms, std::size_t count, Exception* first, const Exception* last)
{
    computeSums(sums, terms, count, first, last);
}

#if TK_WIDER_LEVELS
__attribute__((target("avx2"))) void computeAVX2(double* sums, const double* terms, std::size_t count, Exception* first,
                                                 const Exception* last)
{
    computeSums(sums, terms, count, first, last);
}

__attribute__((target("avx512f"))) void computeAVX512(double* sums, const double* terms, std::size_t count,
                                                      Exception* first, const Exception* last)
{
    computeSums(sums, terms, count, first, last);
}
#endif
} // namespace

void tkNMSharedSums::compute(double* sums, const double* terms, std::size_t count, Exception* exceptions,
                             std::size_t numExceptions, tkNMTriangle::Level level)
{
    const Exception* const last = exceptions + numExceptions;
#if TK_WIDER_LEVELS
    if (level == tkNMTriangle::eAVX512)
        return computeAVX512(sums, terms, count, exceptions, last);
    if (level == tkNMTriangle::eAVX2)
        return computeAVX2(sums, terms, count, exceptions, last);
#else
    static_cast<void>(level);
#endif
    computePlain(sums, terms, count, exceptions, last);
}
