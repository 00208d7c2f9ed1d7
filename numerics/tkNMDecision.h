#ifndef NUMERICS_TKNMDECISION_H
#define NUMERICS_TKNMDECISION_H

#include "foundation/tkExport.h"
#include "numerics/tkNMBestInstructions.h"

#include <cstddef>
#include <cstdint>

/// Bayes' rule of minimum risk in numbers: one of n states is the case, and a decision for one of them is due (Duda,
/// Hart and Stork, Pattern Classification, 2nd ed., section 2.2).
///
/// With the scores m, the weights w, P their sum, the joint scores q_j = (m_j w_j) / P and Q their sum, state i has the
/// class score q_i / Q and the risk (sum over j != i of c_ij q_j) / Q. The cost c_ij of deciding for i while j is the
/// case is the same for all pairs but for overrides. Each sum starts at 0.0 and gets its terms in ascending order, one
/// rounding each. Results are bit-identical for every instruction set (NaN payloads excepted).
class TK_EXPORT tkNMDecision
{
public:
    /// Arrays of n entries have room for roundUp(n); entries n .. roundUp(n) - 1 are ignored.
    static constexpr std::size_t group = 8;
    static constexpr std::size_t roundUp(std::size_t n) { return (n + group - 1) / group * group; }

    /// Another cost c_ij.
    struct CostOverride
    {
        std::size_t decision; // i
        std::size_t state;    // j, not i
        double cost;
    };

    /// Replaces the weights, of which P is given, by the class scores, computes the risks and returns Q. If Q is 0.0,
    /// there are no class scores and no risks.
    ///
    /// *Requires* the overrides in ascending state / group, within a group in ascending decision; of several for the
    /// same i and j the last counts. `overrides` is scratch afterwards. Takes n^2 additions, and by Definition n^2
    /// searches among the overrides.
    static double compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                          double cost, CostOverride* overrides, std::size_t numOverrides);
    /// The same by the given instruction set. *Requires* that the processor has it.
    static double compute(const double* scores, double* weights, double weightSum, double* risks, std::size_t n,
                          double cost, CostOverride* overrides, std::size_t numOverrides,
                          tkNMInstructions instructions);

    /// No more are ranked by counting: a sort is quicker.
    static constexpr std::size_t mostRanked = 32;

    /// The rank of every state by ascending risk, equal risks in their order, NaN last: the number of states that come
    /// before it. *Requires* n <= mostRanked and no risk below 0.0. Takes n^2 comparisons.
    static void rank(const double* risks, std::uint64_t* ranks, std::size_t n);
    /// The same by the given instruction set. *Requires* that the processor has it.
    static void rank(const double* risks, std::uint64_t* ranks, std::size_t n, tkNMInstructions instructions);
};

#endif
