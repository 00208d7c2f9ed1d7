#ifndef NUMERICS_TKNMDECISION_H
#define NUMERICS_TKNMDECISION_H

#include "foundation/tkExport.h"

#include <cstddef>
#include <cstdint>

enum class tkNMInstructions : int;
TK_EXPORT tkNMInstructions tkNMBestInstructions();

/// Bayes' rule of minimum risk in numbers: one of n states is the case, and a decision for one of them is due.
///
/// With the scores m, the weights w, P their sum, the products q_j = (m_j w_j) / P and Q their sum, state i gets the
/// share q_i / Q and the risk (sum over j != i of c_ij q_j) / Q, where c_ij, the cost of deciding for i while j is the
/// case, is the same for all pairs but for exceptions. Each sum starts at 0.0 and gets its terms in ascending order,
/// one rounding each; many sums grow side by side. Every instruction set follows these formulas, and their results have
/// the same bits, but for which NaN a NaN is.
class TK_EXPORT tkNMDecision
{
public:
    /// So many states are worked on at a time.
    static constexpr std::size_t group = 8;
    static constexpr std::size_t roundUp(std::size_t n) { return (n + group - 1) / group * group; }

    /// Another cost c_ij.
    struct Exception
    {
        std::size_t decision; // i
        std::size_t state;    // j, not i
        double cost;
    };

    /// Replaces the weights, of which P is given, by the shares, gives the risks and returns Q; if that is 0.0, there
    /// are neither.
    ///
    /// *Requires* roundUp(n) scores and weights, those beyond the n-th of no matter, room for as many risks, and the
    /// exceptions in ascending state / group, within a group in ascending decision; of several for the same i and j the
    /// last counts. They are used up. *Requires* level <= tkNMBestInstructions().
    static double compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                          double cost, Exception* exceptions, std::size_t numExceptions,
                          tkNMInstructions level = tkNMBestInstructions());

    /// No more are ranked by counting: a sort is quicker.
    static constexpr std::size_t mostRanked = 32;

    /// Gives every state its place by ascending risk, those of equal risk in their order, NaN last: the number of those
    /// that come before it, which takes n^2 subtractions, but no comparison that would have to be foreseen. *Requires*
    /// n <= mostRanked, no risk below 0.0, room for roundUp(n) of risks and places, and
    /// level <= tkNMBestInstructions().
    static void rank(const double* risks, std::uint64_t* places, std::size_t n,
                     tkNMInstructions level = tkNMBestInstructions());
};

#endif
