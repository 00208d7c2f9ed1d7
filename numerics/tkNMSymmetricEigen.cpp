#include "numerics/tkNMSymmetricEigen.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace
{
const int mostSteps = 60;
const double roundingUnit = 0x1p-53;

/// Reflects row and column k + 1, k + 2, ... such that column k ends below its subdiagonal element, which is returned:
/// A becomes H A H with H = I - v v' / h. The vector v is stored in row k, after the diagonal. h = 0: H = I.
double reflect(std::size_t n, double* a, std::size_t k, double* p, double& h)
{
    double* const v = a + k * n; // by symmetry row k is column k
    double rest = 0.0;
    for (std::size_t i = k + 2; i < n; ++i)
        rest += v[i] * v[i];
    h = 0.0;
    if (rest == 0.0)
        return v[k + 1];

    // Of the two images of the column, the one on whose way no digits cancel.
    const double length = std::sqrt(v[k + 1] * v[k + 1] + rest);
    const double image = v[k + 1] > 0.0 ? -length : length;
    h = length * (length + std::fabs(v[k + 1])); // |v|² / 2
    v[k + 1] -= image;

    // With p = A v / h and q = p - v (v' p) / (2 h), H A H = A - v q' - q v'.
    std::fill(p + k + 1, p + n, 0.0);
    for (std::size_t i = k + 1; i < n; ++i)
    {
        const double factor = v[i] / h;
        const double* const row = a + i * n;
        for (std::size_t j = k + 1; j < n; ++j)
            p[j] += factor * row[j];
    }
    double dot = 0.0;
    for (std::size_t i = k + 1; i < n; ++i)
        dot += v[i] * p[i];
    const double part = dot / (2.0 * h);
    for (std::size_t i = k + 1; i < n; ++i)
        p[i] -= part * v[i];
    for (std::size_t i = k + 1; i < n; ++i)
    {
        double* const row = a + i * n;
        for (std::size_t j = k + 1; j < n; ++j)
            row[j] -= v[i] * p[j] + p[i] * v[j];
    }
    return image;
}

/// The product of all reflections, row by row its transpose: it takes the place of their vectors.
void collectReflections(std::size_t n, double* a, const double* halves, double* w)
{
    for (std::size_t k = n; k-- > 0;)
    {
        if (k + 2 < n && halves[k] != 0.0)
        {
            // Rows and columns from k + 1 on: Q' becomes Q' H = Q' - (Q' v) v' / h.
            const double* const v = a + k * n;
            std::copy(v + k + 1, v + n, w + k + 1);
            for (std::size_t i = k + 1; i < n; ++i)
            {
                double* const row = a + i * n;
                double dot = 0.0;
                for (std::size_t j = k + 1; j < n; ++j)
                    dot += row[j] * w[j];
                const double part = dot / halves[k];
                for (std::size_t j = k + 1; j < n; ++j)
                    row[j] -= part * w[j];
            }
        }
        std::fill(a + k * n, a + k * n + n, 0.0);
        for (std::size_t i = k + 1; i < n; ++i)
            a[i * n + k] = 0.0;
        a[k * n + k] = 1.0;
    }
}

/// One QL step from row `last` up to row `first` of the tridiagonal matrix, whose shift is the eigenvalue near d[first]
/// of the two rows there. The rotations go into the eigenvectors.
void step(std::size_t n, std::size_t first, std::size_t last, double* d, double* e, double* vectors)
{
    const double half = (d[first + 1] - d[first]) / (2.0 * e[first]);
    const double length = std::sqrt(half * half + 1.0);
    double g = d[last] - d[first] + e[first] / (half + (half < 0.0 ? -length : length));
    double s = 1.0;
    double c = 1.0;
    double p = 0.0;
    for (std::size_t i = last; i-- > first;)
    {
        const double f = s * e[i];
        const double b = c * e[i];
        const double r = std::sqrt(f * f + g * g);
        e[i + 1] = r;
        if (r == 0.0)
        {
            // The matrix has fallen apart between rows i and i + 1.
            d[i + 1] -= p;
            e[last] = 0.0;
            return;
        }
        s = f / r;
        c = g / r;
        const double shifted = d[i + 1] - p;
        const double t = (d[i] - shifted) * s + 2.0 * c * b;
        p = s * t;
        d[i + 1] = shifted + p;
        g = c * t - b;
        double* const low = vectors + i * n;
        double* const high = low + n;
        for (std::size_t j = 0; j < n; ++j)
        {
            const double before = high[j];
            high[j] = s * low[j] + c * before;
            low[j] = c * low[j] - s * before;
        }
    }
    d[first] -= p;
    e[first] = g;
    e[last] = 0.0;
}
} // namespace

bool tkNMSymmetricEigen(std::size_t dimension, double* matrix, double* values)
{
    const std::size_t n = dimension;
    double* const d = values;
    std::vector<double> e(n + 1); // e[i] couples rows i and i + 1
    std::vector<double> halves(n);
    std::vector<double> scratch(n);
    for (std::size_t k = 0; k + 1 < n; ++k)
        e[k] = reflect(n, matrix, k, scratch.data(), halves[k]);
    for (std::size_t k = 0; k < n; ++k)
        d[k] = matrix[k * n + k];
    collectReflections(n, matrix, halves.data(), scratch.data());

    double largest = 0.0;
    for (std::size_t k = 0; k < n; ++k)
        largest = std::max(largest, std::fabs(d[k]) + std::fabs(e[k]));
    const double negligible = roundingUnit * largest;
    for (std::size_t first = 0; first < n; ++first)
        for (int steps = 0;; ++steps)
        {
            std::size_t last = first;
            while (last + 1 < n && !(std::fabs(e[last]) <= negligible))
                ++last;
            if (last == first)
                break;
            if (steps == mostSteps)
                return false;
            step(n, first, last, d, e.data(), matrix);
        }
    return true;
}
