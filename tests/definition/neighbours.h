#ifndef TESTS_DEFINITION_NEIGHBOURS_H
#define TESTS_DEFINITION_NEIGHBOURS_H

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierResult.h"

#include <vector>

/// Nearest-neighbour classification as it is defined, plainly written and slow.
namespace definition
{
/// (sum of |a_i - b_i|^order)^(1 / order), each power and the root by tkNMElementary::pow, summed in order.
double normDistance(double order, const std::vector<double>& a, const std::vector<double>& b);

/// The k nearest of the rows offered to it in turn. A row is turned away if the list is full and it is not nearer than
/// the last one; otherwise it enters in front of the first one that is not nearer than it, and the last one of a full
/// list falls out.
///
/// The comparisons have no other form here: a NaN distance makes each of them false.
class NeighbourList
{
public:
    explicit NeighbourList(long k) : k_(k) {}

    void offer(long index, double distance);

    const std::vector<long>& indices() const { return indices_; }
    const std::vector<double>& distances() const { return distances_; }

private:
    long k_;
    std::vector<long> indices_;
    std::vector<double> distances_; // parallel
};

/// The list of rows 0, 1, ... at these distances.
NeighbourList neighbours(const std::vector<double>& distances, long k);

/// Labelled measurements, as plain numbers.
struct LabelledRows
{
    std::vector<std::vector<double>> patterns;
    std::vector<long> labels; // parallel
};

/// The result of the votes of the k nearest patterns, with the norm distance of this order: each label among them with
/// its share.
tkClassifierResult classifyByNeighbours(const LabelledRows& data, const std::vector<double>& query, double order,
                                        long k, const tkClassifierCosts& costs = tkClassifierCosts());
} // namespace definition

#endif
