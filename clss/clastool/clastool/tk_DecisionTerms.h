#ifndef CLSS_CLASTOOL_CLASTOOL_TK_DECISIONTERMS_H
#define CLSS_CLASTOOL_CLASTOOL_TK_DECISIONTERMS_H

#include "foundation/tkScratch.h"
#include "numerics/tkNMDecision.h"

#include <cstddef>

class tkClassifierCosts;
class tkClassifierFrequencies;

/// What tkNMDecision::compute() takes beside the match scores: the weights and costs of some categories. They are the
/// same for all patterns of which match scores for these categories are known.
class tk_DecisionTerms
{
public:
    /// For n categories with these labels. Throws as tkClassifierResult's constructor from match scores does, up to P.
    tk_DecisionTerms(const long* labels, std::size_t n, const tkClassifierFrequencies& frequencies,
                     const tkClassifierCosts& costs);

    /// Throws tkClassifierDefs::BadParams if a label occurs twice.
    static void requireUnique(const long* labels, std::size_t n);

    tkScratch<double> weights; // up to tkNMDecision::roundUp(n)
    double weightSum;
    double cost;
    tkScratch<tkNMDecision::CostOverride> overrides;
    bool labelsAscend;
};

#endif
