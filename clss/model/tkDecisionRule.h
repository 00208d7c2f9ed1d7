#ifndef CLSS_MODEL_TKDECISIONRULE_H
#define CLSS_MODEL_TKDECISIONRULE_H

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"

#include <limits>

class tkClassifierTrainParams;

/// How the match scores of a pattern become a decision: the frequencies and costs by which the categories are ranked,
/// and when it is better to decide for none of them.
///
/// A decision is a category's label, or one of the two refusals below. A pattern that is too improbable under all
/// categories is none of these; where every category is expected to cost more than the refusal costs, the rule cannot
/// tell (Chow, IEEE Trans. Inf. Theory 16, 1970, 41-46). At first a rule refuses nothing.
class TK_EXPORT tkDecisionRule
{
public:
    /// The decisions that are no category.
    static constexpr long noneOfThese = -1;
    static constexpr long cannotTell = -2;

    /// Equal frequencies and unit costs, unless given; nothing is refused.
    tkDecisionRule(const tkClassifierFrequencies& frequencies = tkClassifierFrequencies(),
                   const tkClassifierCosts& costs = tkClassifierCosts());
    /// The frequencies and costs of the parameters of a Bayesian or nearest-neighbour training; others have none, and
    /// give the rule without arguments. Neighbours have no frequencies.
    tkDecisionRule(const tkClassifierTrainParams& params);
    tkDecisionRule(const tkDecisionRule&) = default;
    tkDecisionRule(tkDecisionRule&&) = default;
    /// Strong exception guarantee.
    tkDecisionRule& operator=(const tkDecisionRule& other) { return *this = tkDecisionRule(other); }
    tkDecisionRule& operator=(tkDecisionRule&&) = default;

    /// A-priori frequencies of the categories.
    const tkClassifierFrequencies& frequencies() const { return frequencies_; }
    void frequencies(const tkClassifierFrequencies& frequencies) { frequencies_ = frequencies; }

    /// Costs of deciding for one category when another is true.
    const tkClassifierCosts& costs() const { return costs_; }
    void costs(const tkClassifierCosts& costs) { costs_ = costs; }

    /// What a refusal costs, in the unit of the costs; infinity at first. The rule cannot tell if the least expected
    /// cost is greater. Throws tkClassifierDefs::BadParams unless cost >= 0.
    double refusalCost() const { return refusalCost_; }
    void refusalCost(double cost);

    /// A pattern with a p-value below alpha is none of these; 0.0 at first. The p-value is the share of known patterns
    /// that are no more probable than this one, so that alpha is the share of them that is refused by mistake. Throws
    /// tkClassifierDefs::BadParams unless 0 <= alpha <= 1.
    double alpha() const { return alpha_; }
    void alpha(double alpha);

    /// Exact comparison of the four.
    bool operator==(const tkDecisionRule& other) const;
    bool operator!=(const tkDecisionRule& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkDecisionRule& rule);

    tkClassifierFrequencies frequencies_;
    tkClassifierCosts costs_;
    double refusalCost_ = std::numeric_limits<double>::infinity(); // >= 0, unless loaded
    double alpha_ = 0.0;                                           // in [0, 1], unless loaded
};

/// The record is a version byte, the frequencies, the costs, the refusal's cost, alpha. Loading checks no values.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkDecisionRule& rule);

#endif
