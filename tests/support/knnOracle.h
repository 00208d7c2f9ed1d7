#ifndef TESTS_SUPPORT_KNNORACLE_H
#define TESTS_SUPPORT_KNNORACLE_H

#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "numerics/tkNMElementary.h"

#include <cmath>
#include <limits>
#include <map>
#include <vector>

/// Nearest-neighbour classification as it is defined, plainly written and slow, for tests to compare with.
namespace knnOracle
{
/// (sum of |a_i - b_i|^order)^(1 / order), each power and the root by tkNMElementary::pow, summed in order.
inline double normDistance(double order, const std::vector<double>& a, const std::vector<double>& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += tkNMElementary::pow(std::fabs(a[i] - b[i]), order);
    return tkNMElementary::pow(sum, 1.0 / order);
}

/// Indices of the k nearest patterns, given the distance of each in storage order. Every pattern in turn is offered
/// to a list of k places. It is turned away if the list is full and it is not nearer than the last one; otherwise it
/// enters in front of the first one that is not nearer than it, and the last one of a full list falls out.
///
/// The comparisons have no other form here: a NaN distance makes each of them false.
inline std::vector<long> neighbours(const std::vector<double>& distances, long k)
{
    struct Place
    {
        long index;
        double distance;
    };
    std::vector<Place> list;
    for (std::size_t i = 0; i < distances.size(); ++i)
    {
        const double d = distances[i];
        const bool full = static_cast<long>(list.size()) >= k;
        if (full && d >= list.back().distance)
            continue;
        auto place = list.begin();
        while (place != list.end() && d > place->distance)
            ++place;
        list.insert(place, {static_cast<long>(i), d});
        if (full)
            list.pop_back();
    }
    std::vector<long> indices;
    for (const Place& place : list)
        indices.push_back(place.index);
    return indices;
}

/// The result of the votes of the neighbours: each label among them with its share.
inline tkClassifierResult vote(const std::vector<long>& neighbours, const std::vector<long>& labels,
                               const tkClassifierCosts& costs)
{
    std::map<long, long> votes;
    for (const long i : neighbours)
        ++votes[labels[static_cast<std::size_t>(i)]];
    std::vector<tkClassifierCategoryResult> shares;
    for (const auto& [label, count] : votes)
        shares.emplace_back(label, static_cast<double>(count) / static_cast<double>(neighbours.size()));
    return tkClassifierResult(shares, tkClassifierFrequencies(1.0), costs, 0.0);
}

/// Labelled measurements, as plain numbers.
struct Data
{
    std::vector<std::vector<double>> patterns;
    std::vector<long> labels;
};

/// The whole classification with the norm distance.
inline tkClassifierResult classify(const Data& data, const std::vector<double>& query, double order, long k,
                                   const tkClassifierCosts& costs = tkClassifierCosts())
{
    std::vector<double> distances;
    for (const std::vector<double>& pattern : data.patterns)
        distances.push_back(normDistance(order, query, pattern));
    return vote(neighbours(distances, k), data.labels, costs);
}
} // namespace knnOracle

#endif
