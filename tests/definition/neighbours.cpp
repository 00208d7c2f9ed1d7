#include "tests/definition/neighbours.h"

#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "numerics/tkNMElementary.h"

#include <cmath>
#include <map>

namespace definition
{
double normDistance(double order, const std::vector<double>& a, const std::vector<double>& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += tkNMElementary::pow(std::fabs(a[i] - b[i]), order);
    return tkNMElementary::pow(sum, 1.0 / order);
}

void NeighbourList::offer(long index, double distance)
{
    const bool isFull = static_cast<long>(indices_.size()) >= k_;
    if (isFull && distance >= distances_.back())
        return;
    std::size_t place = 0;
    while (place < distances_.size() && distance > distances_[place])
        ++place;
    indices_.insert(indices_.begin() + static_cast<long>(place), index);
    distances_.insert(distances_.begin() + static_cast<long>(place), distance);
    if (isFull)
    {
        indices_.pop_back();
        distances_.pop_back();
    }
}

NeighbourList neighbours(const std::vector<double>& distances, long k)
{
    NeighbourList list(k);
    for (std::size_t i = 0; i < distances.size(); ++i)
        list.offer(static_cast<long>(i), distances[i]);
    return list;
}

tkClassifierResult classifyByNeighbours(const LabelledRows& data, const std::vector<double>& query, double order,
                                        long k, const tkClassifierCosts& costs)
{
    std::vector<double> distances;
    for (const std::vector<double>& pattern : data.patterns)
        distances.push_back(normDistance(order, query, pattern));
    const NeighbourList list = neighbours(distances, k);
    std::map<long, long> votes;
    for (const long i : list.indices())
        ++votes[data.labels[static_cast<std::size_t>(i)]];
    std::vector<tkClassifierCategoryResult> shares;
    for (const auto& [label, count] : votes)
        shares.emplace_back(label, static_cast<double>(count) / static_cast<double>(list.indices().size()));
    return tkClassifierResult(shares, tkClassifierFrequencies(1.0), costs, 0.0);
}
} // namespace definition
