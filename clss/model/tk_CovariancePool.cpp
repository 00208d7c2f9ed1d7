#include "clss/model/tk_CovariancePool.h"

#include "numerics/tkNMElementary.h"
#include "numerics/tkNMNormal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

namespace
{
using Group = tk_CovariancePool::Group;
using Member = tk_CovariancePool::Member;

double countOf(const Member& member)
{
    return static_cast<double>(member.density->normal().count());
}

/// The sum of squares or products of measurements i and j of the group, within a member.
double sumOf(const Member& member, std::size_t i, std::size_t j)
{
    const std::size_t a = member.places[i];
    const std::size_t b = member.places[j];
    return member.density->normal().statistics().crossProducts(std::max(a, b), std::min(a, b));
}

/// The Cholesky factor of a covariance, row by row, and the logarithm of its determinant.
struct Factor
{
    bool isPositiveDefinite = false;
    double logDeterminant = 0.0;
    std::vector<double> rows;

    /// Solves L y = v in place.
    void solve(std::vector<double>& v) const
    {
        const std::size_t d = v.size();
        for (std::size_t i = 0; i < d; ++i)
        {
            double rest = v[i];
            for (std::size_t k = 0; k < i; ++k)
                rest -= rows[i * d + k] * v[k];
            v[i] = rest / rows[i * d + i];
        }
    }
};

/// The least pivot, with measurements in units of their deviations, and the least share of a determinant that is left
/// when a pattern is left out: below, a covariance counts as singular.
constexpr double singular = 0x1p-28;

template <class Element>
Factor factorOf(std::size_t d, const Element& element)
{
    Factor factor;
    factor.rows.resize(d * d);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j <= i; ++j)
        {
            double rest = element(i, j);
            for (std::size_t k = 0; k < j; ++k)
                rest -= factor.rows[i * d + k] * factor.rows[j * d + k];
            if (i == j && !(rest > singular))
                return factor;
            factor.rows[i * d + j] = i == j ? std::sqrt(rest) : rest / factor.rows[j * d + j];
            factor.logDeterminant += i == j ? tkNMElementary::log(rest) : 0.0;
        }
    factor.isPositiveDefinite = true;
    return factor;
}

double dot(const std::vector<double>& a, const std::vector<double>& b)
{
    double sum = 0.0;
    for (std::size_t j = 0; j < a.size(); ++j)
        sum += a[j] * b[j];
    return sum;
}

/// 1 / x for the degrees of freedom x; 0 where there are none.
double inverse(double degrees)
{
    return degrees > 0.0 ? 1.0 / degrees : 0.0;
}

/// The log densities of one group, of patterns that are left out.
class GroupJudge
{
public:
    GroupJudge(const Group& group, std::size_t numModels, double amount)
        : group_(group),
          amount_(group.members.size() > 1 ? amount : 0.0),
          ofModel_(numModels, none_)
    {
        for (std::size_t j = 0; j < group.measurements.size(); ++j)
            if (group.sums(j, j) > 0.0)
            {
                used_.push_back(j);
                units_.push_back(std::sqrt(group.degrees / group.sums(j, j)));
                logUnits_ += tkNMElementary::log(units_.back());
            }
        for (std::size_t m = 0; m < group.members.size(); ++m)
        {
            const double n = countOf(group.members[m]);
            ofModel_[group.members[m].model] = m;
            plain_.push_back(factorOf_(m, inverse(n - 1.0), inverse(group.degrees)));
            others_.push_back(factorOf_(m, inverse(n - 1.0), inverse(group.degrees - 1.0)));
            own_.push_back(factorOf_(m, inverse(n - 2.0), inverse(group.degrees - 1.0)));
        }
    }

    /// Takes out the models that no amount helps. One without others to borrow from and with a singular covariance does
    /// not compete; one of which nothing, or that, is left without one of its patterns has none that is judged.
    void takeOut(std::vector<bool>& competes, std::vector<bool>& isJudged) const
    {
        for (std::size_t m = 0; m < group_.members.size(); ++m)
        {
            const std::size_t model = group_.members[m].model;
            if (isAlone_() && !plain_[m].isPositiveDefinite)
                competes[model] = false;
            if (countOf(group_.members[m]) < 2.0 || (isAlone_() && !own_[m].isPositiveDefinite))
                isJudged[model] = false;
        }
    }

    enum class Outcome
    {
        eAdded,
        eNotJudged, // a covariance that no amount changes is singular without the pattern
        eSingular   // with this amount a covariance is
    };

    /// Adds to each model of the group the log density of a pattern of model `truth`, of which patterns are judged.
    Outcome add(const tkFeaturePattern& pattern, std::size_t truth, std::vector<double>& logLikelihoods) const
    {
        const std::size_t own = ofModel_[truth];
        if (isAlone_() && own == none_ && !plain_[0].isPositiveDefinite)
            return Outcome::eAdded; // to a model that does not compete
        std::vector<double> u;
        double n = 0.0;
        if (own != none_)
        {
            n = countOf(group_.members[own]);
            fillDifference_(own, pattern, u);
        }
        std::vector<double> v;
        std::vector<double> y;
        for (std::size_t m = 0; m < group_.members.size(); ++m)
        {
            const Factor& factor = own == none_ ? plain_[m] : m == own ? own_[m] : others_[m];
            if (!factor.isPositiveDefinite)
                return Outcome::eSingular;
            fillDifference_(m, pattern, v);
            factor.solve(v);
            double square = dot(v, v);
            double left = 1.0; // of the determinant
            if (own != none_)
            {
                y = u;
                factor.solve(y);
                const double ofOwn = m == own ? (1.0 - amount_) * inverse(n - 2.0) : 0.0;
                const double taken = n / (n - 1.0) * (ofOwn + amount_ * inverse(group_.degrees - 1.0));
                left = 1.0 - taken * dot(y, y);
                if (!(left > singular))
                    return isAlone_() ? Outcome::eNotJudged : Outcome::eSingular;
                const double mixed = dot(v, y);
                square += taken * mixed * mixed / left;
                if (m == own) // x less the mean without x is n / (n - 1) u
                    square *= n / (n - 1.0) * (n / (n - 1.0));
            }
            logLikelihoods[group_.members[m].model] +=
                logUnits_ - 0.5 * (static_cast<double>(used_.size()) * logTwoPi_ + factor.logDeterminant +
                                   tkNMElementary::log(left) + square);
        }
        return Outcome::eAdded;
    }

private:
    static constexpr std::size_t none_ = static_cast<std::size_t>(-1);
    static constexpr double logTwoPi_ = 1.8378770664093454836;

    bool isAlone_() const { return group_.members.size() == 1; }

    Factor factorOf_(std::size_t m, double ofMember, double ofGroup) const
    {
        return factorOf(used_.size(),
                        [&](std::size_t i, std::size_t j)
                        {
                            return ((1.0 - amount_) * ofMember * sumOf(group_.members[m], used_[i], used_[j]) +
                                    amount_ * ofGroup * group_.sums(used_[i], used_[j])) *
                                   units_[i] * units_[j];
                        });
    }

    void fillDifference_(std::size_t m, const tkFeaturePattern& pattern, std::vector<double>& difference) const
    {
        const std::vector<double>& x = pattern.featureMeasurements(false);
        const tkNMStatistics& s = group_.members[m].density->normal().statistics();
        difference.resize(used_.size());
        for (std::size_t j = 0; j < used_.size(); ++j)
        {
            const std::size_t place = group_.members[m].places[used_[j]];
            const double measurement = x[static_cast<std::size_t>(group_.measurements[used_[j]])];
            difference[j] = ((measurement - s.mean[place]) - s.compensation[place]) * units_[j];
        }
    }

    const Group& group_;
    double amount_;
    std::vector<std::size_t> ofModel_; // members by model
    std::vector<std::size_t> used_;    // measurements that vary within the members
    std::vector<double> units_;        // parallel: what they are multiplied with
    double logUnits_ = 0.0;
    std::vector<Factor> plain_;  // of the members, for patterns of models without a member
    std::vector<Factor> others_; // when a pattern of another member is left out; before its part is taken
    std::vector<Factor> own_;    // when one of its own is; before its part is taken
};

/// Adds the log densities of all groups, as far as they are judged.
GroupJudge::Outcome addAll(const std::vector<GroupJudge>& judges, const tkFeaturePattern& pattern, std::size_t truth,
                           std::vector<double>& logLikelihoods)
{
    for (const GroupJudge& judge : judges)
    {
        const GroupJudge::Outcome outcome = judge.add(pattern, truth, logLikelihoods);
        if (outcome != GroupJudge::Outcome::eAdded)
            return outcome;
    }
    return GroupJudge::Outcome::eAdded;
}

/// Counts a pattern of model `truth`: whether another is more likely, and the logarithm of its posterior probability.
void count(tk_CovariancePool::Figures& figures, const std::vector<double>& logLikelihoods, std::size_t truth)
{
    const double best = *std::max_element(logLikelihoods.begin(), logLikelihoods.end());
    double sum = 0.0;
    for (const double each : logLikelihoods)
        sum += tkNMElementary::exp(each - best);
    const double score = tkNMElementary::exp(logLikelihoods[truth] - best) / sum;
    figures.areValid = true;
    figures.errors += logLikelihoods[truth] < best ? 1 : 0;
    figures.logLoss -= tkNMElementary::log(std::max(score, std::numeric_limits<double>::epsilon()));
}

bool isComplete(const tkFeaturePattern& pattern)
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    return pattern.numInvalid() == 0 &&
           std::all_of(x.begin(), x.end(), [](double each) { return std::isfinite(each); });
}
} // namespace

tk_CovariancePool::tk_CovariancePool(const Models& models)
{
    std::map<std::vector<long>, std::size_t> groups; // by the measurements
    for (std::size_t m = 0; m < models.size(); ++m)
    {
        const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*models[m]);
        labels_.push_back(model.categoryLabel());
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            auto* const density = dynamic_cast<tk_PDFMultivariateNormal*>(model.densities()[s].get());
            const std::vector<long>& set = model.dependencySets()[s];
            if (!density || !density->isValid() || density->normal().dimension() != static_cast<long>(set.size()))
                continue;
            Member member{m, density, std::vector<std::size_t>(set.size())};
            for (std::size_t j = 0; j < set.size(); ++j)
                member.places[j] = j;
            std::sort(member.places.begin(), member.places.end(),
                      [&](std::size_t a, std::size_t b) { return set[a] < set[b]; });
            std::vector<long> measurements;
            for (const std::size_t place : member.places)
                measurements.push_back(set[place]);
            const auto [found, isNew] = groups.emplace(measurements, groups_.size());
            if (isNew)
            {
                groups_.emplace_back();
                groups_.back().measurements = measurements;
                groups_.back().sums = tkNMTriangle(set.size());
            }
            Group& group = groups_[found->second];
            group.degrees += countOf(member) - 1.0;
            for (std::size_t i = 0; i < set.size(); ++i)
                for (std::size_t j = 0; j <= i; ++j)
                    group.sums(i, j) += sumOf(member, i, j);
            group.members.push_back(std::move(member));
        }
    }
}

tk_CovariancePool::Figures tk_CovariancePool::judge(const tk_LabelledPatterns& data,
                                                    const tkClassifierFrequencies& frequencies, double amount) const
{
    std::vector<GroupJudge> judges;
    for (const Group& group : groups_)
        judges.emplace_back(group, labels_.size(), amount);
    std::vector<bool> competes(labels_.size(), true);
    std::vector<bool> isJudged(labels_.size(), true);
    for (std::size_t m = 0; m < labels_.size(); ++m)
        isJudged[m] = std::count(data.labels.begin(), data.labels.end(), labels_[m]) > 1;
    for (const GroupJudge& judge : judges)
        judge.takeOut(competes, isJudged);
    std::vector<double> logFrequencies;
    for (std::size_t m = 0; m < labels_.size(); ++m)
        logFrequencies.push_back(competes[m] ? tkNMElementary::log(frequencies.categoryFrequency(labels_[m]))
                                             : -std::numeric_limits<double>::infinity());

    Figures figures{false, 0, 0.0};
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
    {
        const auto truth =
            static_cast<std::size_t>(std::find(labels_.begin(), labels_.end(), data.labels[i]) - labels_.begin());
        if (!competes[truth] || !isJudged[truth] || !isComplete(*data.patterns[i]))
            continue;
        std::vector<double> logLikelihoods = logFrequencies;
        const GroupJudge::Outcome outcome = addAll(judges, *data.patterns[i], truth, logLikelihoods);
        if (outcome == GroupJudge::Outcome::eSingular)
            return {false, 0, 0.0};
        if (outcome == GroupJudge::Outcome::eAdded)
            count(figures, logLikelihoods, truth);
    }
    return figures;
}

double tk_CovariancePool::choose(const tk_LabelledPatterns& data, const tkClassifierFrequencies& frequencies) const
{
    double chosen = 1.0;
    Figures best{false, 0, 0.0};
    for (const double amount : {0.0, 0.01, 0.03, 0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1.0})
    {
        const Figures figures = judge(data, frequencies, amount);
        if (!figures.areValid)
            continue;
        if (!best.areValid || figures.errors < best.errors ||
            (figures.errors == best.errors && figures.logLoss < best.logLoss))
        {
            best = figures;
            chosen = amount;
        }
    }
    return chosen;
}

void tk_CovariancePool::pool(double amount) const
{
    for (const Group& group : groups_)
    {
        if (group.members.size() < 2 || !(group.degrees > 0.0) || !(amount > 0.0))
            continue;
        for (const Member& member : group.members)
        {
            tkNMStatistics pooled = member.density->normal().statistics();
            const double ofMember = (1.0 - amount) * inverse(countOf(member) - 1.0) * group.degrees;
            for (std::size_t i = 0; i < group.measurements.size(); ++i)
                for (std::size_t j = 0; j <= i; ++j)
                {
                    const std::size_t a = member.places[i];
                    const std::size_t b = member.places[j];
                    pooled.crossProducts(std::max(a, b), std::min(a, b)) =
                        ofMember * sumOf(member, i, j) + amount * group.sums(i, j);
                }
            pooled.count = static_cast<long>(group.degrees) + 1;
            member.density->swapStatistics(pooled);
        }
    }
}
