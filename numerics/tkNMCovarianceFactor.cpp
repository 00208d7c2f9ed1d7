#include "numerics/tkNMCovarianceFactor.h"

#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/kernels/tkNMMahalanobis.h"
#include "numerics/tkNMElementary.h"
#include "numerics/tkNMSymmetricEigen.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{
using Role = tkNMCovarianceFactor::Role;
using Measurement = tkNMCovarianceFactor::Measurement;

double logPeakOf(std::size_t d, double lnDeterminant, long exponents)
{
    using Factor = tkNMCovarianceFactor;
    const double lnScaled = -0.5 * (static_cast<double>(d) * Factor::lnTwoPi + lnDeterminant);
    return std::round(lnScaled * Factor::perGridStep) / Factor::perGridStep +
           static_cast<double>(exponents) * Factor::gridLn2;
}

/// A measurement whose deviation is at most this part of its mean did not vary: rounding explains the rest.
const double constantPart = 0x1p-52;
/// The deviation of a measurement that did not vary, as a part of its reference. One pattern says nothing about
/// deviations, so that the reference is the best there is.
const double constantDeviation = 0x1p-7;
const double constantDeviationOfOnePattern = 1.0;
/// Whose inverse is still a double.
const double leastDeviation = 0x1p-1000;

/// The role of a measurement, and the deviation that it gets.
Role roleOf(long count, double mean, double variance, const double* referenceOrNull, double& deviation)
{
    const double magnitude = std::fabs(mean);
    deviation = std::sqrt(variance);
    if (referenceOrNull && *referenceOrNull == 0.0)
        return Role::eSameEverywhere;
    if (!(deviation <= constantPart * magnitude))
        return Role::eVaries;
    const double reference = referenceOrNull ? *referenceOrNull : magnitude > 0.0 ? magnitude : 1.0;
    const double part = count == 1 ? constantDeviationOfOnePattern : constantDeviation;
    deviation = std::max({deviation, part * reference, leastDeviation});
    return Role::eConstant;
}

/// The role of a measurement, its unit u, in which its deviation is in [1, 2), and its variance in it.
Measurement measurementOf(long count, double mean, double variance, const double* referenceOrNull,
                          double& scaledVariance)
{
    double deviation = 0.0;
    const Role role = roleOf(count, mean, variance, referenceOrNull, deviation);
    if (role == Role::eSameEverywhere)
    {
        scaledVariance = 1.0; // whose logarithm is 0
        return {role, 0};
    }
    int exponent = 0; // deviation in [2^(exponent - 1), 2^exponent)
    if (std::isfinite(deviation))
        std::frexp(deviation, &exponent);
    const double u = std::ldexp(1.0, 1 - exponent);
    scaledVariance = role == Role::eVaries ? variance * u * u : (deviation * u) * (deviation * u);
    return {role, 1 - exponent};
}

/// The floor of the eigenvalues of a correlation matrix, for `count` patterns of d measurements. No more patterns than
/// measurements have a singular covariance for certain, and say the less the fewer they are.
double eigenvalueFloor(long count, std::size_t d)
{
    const auto n = static_cast<std::size_t>(count);
    if (n > d)
        return 0x1p-28;
    const std::size_t step = d > 1 ? 8 * (n - 1) / (d - 1) : 0;
    return std::ldexp(1.0, -2 - static_cast<int>(step));
}

/// Whether A - shift I is positive definite, for a symmetric matrix A of d² elements: whether it has a Cholesky factor.
/// Each element of the factor gets its terms in ascending k; the elements of a row do so side by side.
bool exceeds(std::size_t d, std::vector<double> a, double shift)
{
    std::vector<double> column(d);
    for (std::size_t i = 0; i < d; ++i)
        a[i * d + i] -= shift;
    for (std::size_t k = 0; k < d; ++k)
    {
        const double pivot = a[k * d + k];
        if (!(pivot > 0.0))
            return false;
        const double root = std::sqrt(pivot);
        for (std::size_t i = k + 1; i < d; ++i)
        {
            column[i] = a[i * d + k] / root;
            double* const row = &a[i * d];
            for (std::size_t j = k + 1; j <= i; ++j)
                row[j] -= column[i] * column[j];
        }
    }
    return true;
}

/// The correlation matrix R_ab = C_ab / (D_a D_b) of the measurements `varying`, which have the deviations D.
std::vector<double> correlationsOf(const tkNMTriangle& c, const std::vector<std::size_t>& varying,
                                   const std::vector<double>& deviations)
{
    const std::size_t d = varying.size();
    std::vector<double> r(d * d, 1.0);
    for (std::size_t a = 0; a < d; ++a)
        for (std::size_t b = 0; b < a; ++b)
            r[a * d + b] = r[b * d + a] = c(varying[a], varying[b]) / (deviations[a] * deviations[b]);
    return r;
}

/// What raises the eigenvalues l_i with eigenvectors v_i, row i of `vectors`, to `floor`:
///     sum over l_i < floor of (floor - l_i) v_ia v_ib, for b <= a.
std::vector<double> raiseOf(const std::vector<double>& values, const std::vector<double>& vectors, double floor)
{
    const std::size_t d = values.size();
    std::vector<double> raise(d * d);
    for (std::size_t i = 0; i < d; ++i)
        if (values[i] < floor)
            for (std::size_t a = 0; a < d; ++a)
            {
                const double factor = (floor - values[i]) * vectors[i * d + a];
                for (std::size_t b = 0; b <= a; ++b)
                    raise[a * d + b] += factor * vectors[i * d + b];
            }
    return raise;
}

/// Raises the eigenvalues of the correlation matrix of the measurements `varying` to `floor`: with deviations D,
///     C'_ab = C_ab + D_a D_b raise_ab.
/// False, and nothing done, if the eigenvalues did not converge.
bool raiseEigenvalues(tkNMTriangle& c, const std::vector<std::size_t>& varying, double floor, bool isSingular)
{
    const std::size_t d = varying.size();
    if (d < 2)
        return true; // the correlation matrix is 1
    std::vector<double> deviations;
    deviations.reserve(d);
    for (const std::size_t j : varying)
        deviations.push_back(std::sqrt(c(j, j)));
    std::vector<double> r = correlationsOf(c, varying, deviations);
    if (!isSingular && exceeds(d, r, floor))
        return true;

    std::vector<double> values(d);
    if (!tkNMSymmetricEigen(d, r.data(), values.data())) // r becomes the eigenvectors
        return false;
    const std::vector<double> raise = raiseOf(values, r, floor);
    for (std::size_t a = 0; a < d; ++a)
        for (std::size_t b = 0; b <= a; ++b)
            c(varying[a], varying[b]) += deviations[a] * deviations[b] * raise[a * d + b];
    return true;
}

void makeIndependent(tkNMTriangle& c)
{
    for (std::size_t i = 0; i < c.dimension(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            c(i, j) = 0.0;
}

/// sums_i += factor a_ij for the rows from i = `first` >= j on and those before it in its block, whose sums are
/// undefined. Sums of different rows do not wait for one another.
void addColumn(const tkNMTriangle& a, std::size_t j, std::size_t first, double factor, double* sums)
{
    for (std::size_t block = first / 8; 8 * block < a.dimension(); ++block)
    {
        const double* const rows = a.column(block, j);
        for (std::size_t l = 0; l < 8; ++l)
            sums[8 * block + l] += factor * rows[l];
    }
}

/// Replaces C by its Cholesky factor L, and gives ln det C:
///     L_jj = sqrt(C_jj - L_j0² - L_j1² - ...),   L_ij = (C_ij - L_i0 L_j0 - L_i1 L_j1 - ...) / L_jj.
/// False, and C is lost, if there is none.
bool factor(tkNMTriangle& c, double& lnDeterminant)
{
    const std::size_t d = c.dimension();
    tkScratch<double, 256> column((d + 7) / 8 * 8);
    std::fill(column.begin(), column.end(), 0.0);
    lnDeterminant = 0.0;
    for (std::size_t j = 0; j < d; ++j)
    {
        for (std::size_t i = j; i < d; ++i)
            column[i] = c(i, j);
        for (std::size_t k = 0; k < j; ++k)
            addColumn(c, k, j, -c(j, k), column.data());
        const double pivot = column[j];
        if (!(pivot > 0.0) || !std::isfinite(pivot))
            return false;
        lnDeterminant += tkNMElementary::log(pivot);
        c(j, j) = std::sqrt(pivot);
        for (std::size_t i = j + 1; i < d; ++i)
            c(i, j) = column[i] / c(j, j);
    }
    return true;
}

/// V = L^-1: V_jj = 1 / L_jj,   V_ij = -(L_ij V_jj + L_i(j+1) V_(j+1)j + ...) / L_ii.
tkNMTriangle inverseOf(const tkNMTriangle& l)
{
    const std::size_t d = l.dimension();
    tkNMTriangle inverse(d);
    tkScratch<double, 256> sums((d + 7) / 8 * 8);
    for (std::size_t j = 0; j < d; ++j)
    {
        std::fill(sums.begin(), sums.end(), 0.0);
        inverse(j, j) = 1.0 / l(j, j);
        for (std::size_t i = j + 1; i < d; ++i)
        {
            addColumn(l, i - 1, i, inverse(i - 1, j), sums.data());
            inverse(i, j) = -sums[i] / l(i, i);
        }
    }
    return inverse;
}

/// The measurements with a term: how many are valid and invalid, and the sum of the valid ones' exponents.
struct Terms
{
    std::size_t numValid = 0;
    std::size_t numInvalid = 0;
    long exponents = 0;
};

/// The indices of the invalid ones go into `invalid`, ascending.
Terms termsOf(const std::vector<Measurement>& measurements, const bool* valid, std::size_t* invalid)
{
    Terms terms;
    for (std::size_t j = 0; j < measurements.size(); ++j)
        if (measurements[j].role == Role::eSameEverywhere)
            continue;
        else if (!valid[j])
            invalid[terms.numInvalid++] = j;
        else
        {
            ++terms.numValid;
            terms.exponents += measurements[j].exponent;
        }
    return terms;
}

/// Columns whose number of rows is rounded up to a multiple of eight; the further rows are zeros.
class Columns
{
public:
    Columns(std::size_t rows, std::size_t count) : rows_((rows + 7) / 8 * 8), elements_(rows_ * count)
    {
        std::fill(elements_.begin(), elements_.end(), 0.0);
    }

    double* operator[](std::size_t k) { return elements_.data() + k * rows_; }

    /// The sum of a_i b_i from the eight rows of row `first` on: q_l is that of rows l, l + 8, ...
    double dot(const double* a, const double* b, std::size_t first) const
    {
        double q[8] = {};
        for (std::size_t i = first / 8 * 8; i < rows_; i += 8)
            for (std::size_t l = 0; l < 8; ++l)
                q[l] += a[i + l] * b[i + l];
        return ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
    }

    /// a_i -= factor b_i from the eight rows of row `first` on.
    void subtract(double* a, const double* b, double factor, std::size_t first) const
    {
        for (std::size_t i = first / 8 * 8; i < rows_; ++i)
            a[i] -= factor * b[i];
    }

private:
    std::size_t rows_;
    tkScratch<double, 2048> elements_;
};

/// Makes the columns at the invalid measurements, each divided by its unit, and W v orthogonal. Returns the square of
/// what is left of W v, and those of the columns in `squares`. `v` has 0.0 for the invalid measurements.
double project(const tkNMCovarianceFactor& f, const double* v, const std::size_t* invalid, std::size_t numInvalid,
               double* squares)
{
    const std::size_t d = f.w.dimension();
    Columns columns(d, numInvalid + 1);
    for (std::size_t k = 0; k < numInvalid; ++k)
    {
        const std::size_t j = invalid[k];
        const double unit = std::ldexp(1.0, -f.measurements[j].exponent);
        for (std::size_t i = j; i < d; ++i)
            columns[k][i] = f.w(i, j) * unit;
    }
    double* const residual = columns[numInvalid];
    for (std::size_t block = 0; 8 * block < d; ++block)
        for (std::size_t j = 0; j < std::min(8 * block + 8, d); ++j)
        {
            const double* const rows = f.w.column(block, j);
            for (std::size_t l = 0; l < 8; ++l)
                residual[8 * block + l] += rows[l] * v[j];
        }

    for (std::size_t k = numInvalid; k-- > 0;)
    {
        const std::size_t first = invalid[k];
        const double* const column = columns[k];
        const double square = squares[k] = columns.dot(column, column, first);
        for (std::size_t other = 0; other < k; ++other)
            columns.subtract(columns[other], column, columns.dot(column, columns[other], first) / square, first);
        columns.subtract(residual, column, columns.dot(column, residual, first) / square, first);
    }
    return columns.dot(residual, residual, 0);
}
} // namespace

tkNMCovarianceFactor::tkNMCovarianceFactor(long count, const std::vector<double>& mean, const tkNMTriangle& squares,
                                           const std::vector<double>& references)
    : measurements(mean.size())
{
    TK_ASSERT(count > 0);
    const std::size_t d = mean.size();
    const double divisor = static_cast<double>(std::max(count - 1, 1L));
    tkNMTriangle c(d); // the covariance in the units 1 / u
    std::vector<double> units(d);
    std::vector<std::size_t> varying;
    varying.reserve(d);
    std::size_t numTerms = 0;
    for (std::size_t i = 0; i < d; ++i)
    {
        const double* const referenceOrNull = i < references.size() ? &references[i] : nullptr;
        measurements[i] = measurementOf(count, mean[i], squares(i, i) / divisor, referenceOrNull, c(i, i));
        units[i] = std::ldexp(1.0, measurements[i].exponent);
        numTerms += measurements[i].role == eSameEverywhere ? 0 : 1;
        if (measurements[i].role != eVaries)
            continue;
        for (const std::size_t j : varying)
            c(i, j) = squares(i, j) / divisor * units[i] * units[j];
        varying.push_back(i);
    }

    const bool isSingular = static_cast<std::size_t>(count) <= numTerms;
    if (!raiseEigenvalues(c, varying, eigenvalueFloor(count, numTerms), isSingular))
        makeIndependent(c);
    tkNMTriangle l(c);
    if (!factor(l, lnDeterminant))
    {
        makeIndependent(c); // needed only for loaded statistics that no patterns have
        l = c;
        if (!factor(l, lnDeterminant))
        {
            lnDeterminant = std::numeric_limits<double>::quiet_NaN();
            w = tkNMTriangle(d);
            return;
        }
    }

    w = inverseOf(l);
    for (std::size_t j = 0; j < d; ++j)
        for (std::size_t i = j; i < d; ++i)
            w(i, j) *= measurements[j].role == eSameEverywhere ? 0.0 : units[j];
}

double tkNMCovarianceFactor::logPeak() const
{
    std::size_t numTerms = 0;
    long exponents = 0;
    for (const Measurement& m : measurements)
    {
        numTerms += m.role == eSameEverywhere ? 0 : 1;
        exponents += m.exponent;
    }
    return logPeakOf(numTerms, lnDeterminant, exponents);
}

tkNMCovarianceFactor::Marginal tkNMCovarianceFactor::marginal(const double* v, const bool* valid,
                                                              tkNMInstructions instructions) const
{
    const std::size_t d = w.dimension();
    tkScratch<std::size_t, 256> invalid(d);
    const Terms terms = termsOf(measurements, valid, invalid.data());
    const std::size_t numInvalid = terms.numInvalid;
    if (terms.numValid == 0)
        return {0.0, 0.0};

    tkScratch<double, 256> known((d + 7) / 8 * 8);
    std::fill(known.begin(), known.end(), 0.0);
    for (std::size_t j = 0; j < d; ++j)
        if (valid[j])
            known[j] = v[j];
    tkScratch<double, 256> squares(numInvalid);
    const double square =
        instructions == tkNMInstructions::Definition || d == 1 // where the triangle has one column instead of eight
            ? project(*this, known.data(), invalid.data(), numInvalid, squares.data())
            : tkNMProject(*this, known.data(), invalid.data(), numInvalid, squares.data(), instructions);
    tkNMElementaryKernel::log(squares.data(), squares.data(), numInvalid, instructions);
    double ln = lnDeterminant;
    for (std::size_t k = numInvalid; k-- > 0;)
        ln += squares[k];
    return {logPeakOf(terms.numValid, ln, terms.exponents), square};
}
