#include "clss/model/tk_IncompleteStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>

namespace
{
using Row = std::vector<double>;
using Matrix = std::vector<Row>; // row by row

/// Mean and variance with divisor count of what the rows have of measurement j; no count where none has it.
struct Known
{
    double count = 0.0;
    double mean = 0.0;
    double variance = 0.0;
};

Known knownOf(const std::vector<Row>& rows, std::size_t j)
{
    tkNMStatistics statistics(1);
    for (const Row& row : rows)
        if (!std::isnan(row[j]))
            statistics.add(&row[j]);
    if (statistics.count == 0)
        return {};
    const double count = static_cast<double>(statistics.count);
    return {count, statistics.mean[0], statistics.crossProducts(0, 0) / count};
}

/// Rows that have the same measurements, O, and lack the others, M.
struct Group
{
    std::vector<std::size_t> has;
    std::vector<std::size_t> lacks;
    std::vector<const Row*> rows;
};

/// The coefficients C_MO C_OO^-1 and the covariance C_MM - C_MO C_OO^-1 C_OM of a group.
struct Regression
{
    Matrix coefficients;
    Matrix rest;
};

/// Sweeps measurement k (Goodnight, The American Statistician 33, 1979, 149-158).
void sweep(Matrix& swept, std::size_t k)
{
    const std::size_t d = swept.size();
    const double pivot = swept[k][k];
    for (std::size_t i = 0; i < d; ++i)
    {
        if (i == k)
            continue;
        const double factor = swept[i][k] / pivot;
        for (std::size_t j = 0; j < d; ++j)
            if (j != k)
                swept[i][j] -= factor * swept[k][j];
        swept[i][k] = factor;
    }
    for (std::size_t j = 0; j < d; ++j)
        if (j != k)
            swept[k][j] /= pivot;
    swept[k][k] = -1.0 / pivot;
}

/// By sweeping the measurements of O; one that the others of O determine is left out.
Regression regressionOf(const Group& group, const Matrix& covariance)
{
    constexpr double dependent = 0x1p-28;
    Matrix swept = covariance;
    std::vector<bool> isSwept(covariance.size(), false);
    for (const std::size_t k : group.has)
    {
        isSwept[k] = swept[k][k] > dependent * covariance[k][k];
        if (isSwept[k])
            sweep(swept, k);
    }
    Regression regression;
    for (const std::size_t m : group.lacks)
    {
        Row coefficients;
        Row rest;
        for (const std::size_t k : group.has)
            coefficients.push_back(isSwept[k] ? swept[m][k] : 0.0);
        for (const std::size_t other : group.lacks)
            rest.push_back(swept[m][other]);
        regression.coefficients.push_back(coefficients);
        regression.rest.push_back(rest);
    }
    return regression;
}

/// Mean and covariance of standardised rows.
class Estimate
{
public:
    explicit Estimate(const std::vector<Row>& rows) : n_(static_cast<double>(rows.size()))
    {
        std::map<std::vector<bool>, Group> groups;
        const std::size_t d = rows.front().size();
        for (const Row& row : rows)
        {
            std::vector<bool> has(d);
            for (std::size_t j = 0; j < d; ++j)
                has[j] = !std::isnan(row[j]);
            groups[has].rows.push_back(&row);
        }
        for (auto& [has, group] : groups)
        {
            for (std::size_t j = 0; j < d; ++j)
                (has[j] ? group.has : group.lacks).push_back(j);
            groups_.push_back(group);
        }
        mean.assign(d, 0.0);
        covariance.assign(d, Row(d, 0.0));
        for (std::size_t j = 0; j < d; ++j)
            covariance[j][j] = 1.0;
    }

    /// One step of the EM algorithm; returns the largest change of a mean or covariance.
    double step()
    {
        const std::size_t d = mean.size();
        Row sum(d, 0.0); // of what the filled rows differ from the mean
        Matrix products(d, Row(d, 0.0));
        expect_(sum, products);
        return maximise_(sum, products);
    }

    Row mean;
    Matrix covariance;

private:
    /// What the sums of the rows, and of their products, are expected to be with the present estimate: each measurement
    /// that is missing is what the regression on the others of its row says, and varies by what that leaves.
    void expect_(Row& sum, Matrix& products) const
    {
        const std::size_t d = mean.size();
        Row filled(d);
        for (const Group& group : groups_)
        {
            const Regression regression = regressionOf(group, covariance);
            for (const Row* row : group.rows)
            {
                for (const std::size_t k : group.has)
                    filled[k] = (*row)[k] - mean[k];
                for (std::size_t m = 0; m < group.lacks.size(); ++m)
                {
                    double expected = 0.0;
                    for (std::size_t k = 0; k < group.has.size(); ++k)
                        expected += regression.coefficients[m][k] * filled[group.has[k]];
                    filled[group.lacks[m]] = expected;
                }
                for (std::size_t i = 0; i < d; ++i)
                {
                    sum[i] += filled[i];
                    for (std::size_t j = 0; j <= i; ++j)
                        products[i][j] += filled[i] * filled[j];
                }
            }
            const double count = static_cast<double>(group.rows.size());
            for (std::size_t m = 0; m < group.lacks.size(); ++m)
                for (std::size_t l = 0; l <= m; ++l)
                    products[group.lacks[m]][group.lacks[l]] += count * regression.rest[m][l];
        }
    }

    /// The mean and covariance that make these sums most likely; returns the largest change.
    double maximise_(const Row& sum, const Matrix& products)
    {
        const std::size_t d = mean.size();
        double change = 0.0;
        for (std::size_t i = 0; i < d; ++i)
            for (std::size_t j = 0; j <= i; ++j)
            {
                const double next = products[i][j] / n_ - sum[i] / n_ * (sum[j] / n_);
                change = std::max(change, std::abs(next - covariance[i][j]));
                covariance[i][j] = next;
                covariance[j][i] = next;
            }
        for (std::size_t j = 0; j < d; ++j)
        {
            change = std::max(change, std::abs(sum[j] / n_));
            mean[j] += sum[j] / n_;
        }
        return change;
    }

    double n_;
    std::vector<Group> groups_;
};
} // namespace

tkNMStatistics tk_incompleteStatistics(const std::vector<std::vector<double>>& rows,
                                       const std::vector<tk_Moments>& others, long maxSteps)
{
    const std::size_t d = others.size();
    const double n = static_cast<double>(rows.size());
    tkNMStatistics statistics(d);
    statistics.count = static_cast<long>(rows.size());
    std::vector<std::size_t> varying;
    std::vector<Known> known;
    for (std::size_t j = 0; j < d; ++j)
    {
        known.push_back(knownOf(rows, j));
        const double deviation = std::sqrt(known[j].variance);
        statistics.mean[j] = known[j].count > 0.0 ? known[j].mean : others[j].mean;
        if (known[j].count == 0.0)
            statistics.crossProducts(j, j) = (n - 1.0) * others[j].variance;
        else if (deviation > 0x1p-52 * std::abs(known[j].mean))
            varying.push_back(j);
    }
    if (varying.empty())
        return statistics;

    std::vector<Row> standardised;
    for (const Row& row : rows)
    {
        Row values;
        for (const std::size_t j : varying)
            values.push_back((row[j] - known[j].mean) / std::sqrt(known[j].variance));
        standardised.push_back(values);
    }
    Estimate estimate(standardised);
    constexpr double leastChange = 1e-6;
    for (long step = 0; step < maxSteps; ++step)
        if (estimate.step() <= leastChange)
            break;
    for (std::size_t a = 0; a < varying.size(); ++a)
    {
        const std::size_t i = varying[a];
        statistics.mean[i] = known[i].mean + std::sqrt(known[i].variance) * estimate.mean[a];
        for (std::size_t b = 0; b <= a; ++b)
            statistics.crossProducts(i, varying[b]) =
                n * estimate.covariance[a][b] * std::sqrt(known[i].variance) * std::sqrt(known[varying[b]].variance);
    }
    return statistics;
}
