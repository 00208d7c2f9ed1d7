#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERRESULT_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERRESULT_H

#include "foundation/tkExport.h"

#include <cstddef>
#include <vector>

class tkArchive;
class tkClassifierCosts;
class tkClassifierFrequencies;

/// What a classifier says about one category: how well the pattern matches it, how probable it is among the
/// categories considered, and what deciding for it is expected to cost.
class TK_EXPORT tkClassifierCategoryResult
{
public:
    /// Throws tkClassifierDefs::BadLabel if categoryLabel < 0, then tkClassifierDefs::BadParams if matchScore,
    /// then if classScore is below 0 or above 1, then if expectedCost < 0. A NaN passes.
    tkClassifierCategoryResult(long categoryLabel = 0, double matchScore = 0.0, double classScore = 0.0,
                               double expectedCost = 0.0)
        : categoryLabel_(categoryLabel),
          matchScore_(matchScore),
          classScore_(classScore),
          expectedCost_(expectedCost)
    {
        require_(categoryLabel, matchScore, classScore, expectedCost);
    }

    /// The category, >= 0 unless loaded.
    long categoryLabel() const { return categoryLabel_; }
    /// The classifier's raw score in [0, 1]; what it means depends on the method.
    double matchScore() const { return matchScore_; }
    /// Posterior probability in [0, 1]: the class scores of one result sum to 1.
    double classScore() const { return classScore_; }
    /// Expected cost >= 0 of deciding for this category, in the unit of the costs.
    double expectedCost() const { return expectedCost_; }

    /// Exact comparison of the four values.
    bool operator==(const tkClassifierCategoryResult& other) const;
    bool operator!=(const tkClassifierCategoryResult& other) const { return !(*this == other); }

private:
    friend class tkClassifierResult;
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierCategoryResult& result);

    // Given values, not the object: it can then stay in registers until it is stored.
    static void require_(long categoryLabel, double matchScore, double classScore, double expectedCost)
    {
        if (categoryLabel < 0 || matchScore < 0.0 || matchScore > 1.0 || classScore < 0.0 || classScore > 1.0 ||
            expectedCost < 0.0)
            fail_(categoryLabel, matchScore, classScore);
    }
    [[noreturn]] static void fail_(long categoryLabel, double matchScore, double classScore);

    long categoryLabel_;
    double matchScore_;
    double classScore_;
    double expectedCost_;
};

/// The outcome of classifying one pattern: every candidate category, the one to decide for first.
///
/// The categories are sorted by ascending expected cost (Bayes' rule of minimum risk: Duda, Hart and Stork,
/// Pattern Classification, 2nd ed., section 2.2); equal costs stand by ascending label, NaN costs last.
class TK_EXPORT tkClassifierResult
{
public:
    /// No categories, factor 0.0.
    tkClassifierResult() = default;

    /// Categories whose class scores and expected costs are known: sorts them and divides the class scores by
    /// their sum. Throws tkClassifierDefs::BadParams if a label occurs twice, then if the class scores sum to
    /// 0.0, then as the category result's constructor for a quotient outside [0, 1].
    tkClassifierResult(std::vector<tkClassifierCategoryResult> classScores, double matchScoreFactorLog);

    /// Categories whose match scores m are known; the other two scores are ignored. With the frequencies f,
    /// P their sum and the joint scores q_i = m_i f_i / P, Q their sum, category i gets the class score q_i / Q
    /// and the expected cost (sum over j != i of cost(j taken for i) q_j) / Q; all sums run in the given order.
    ///
    /// Throws tkClassifierDefs::BadParams if a label occurs twice, tkClassifierDefs::BadLabel if one is negative,
    /// tkClassifierDefs::BadParams if P is 0.0, then if Q is 0.0, then as the category result's constructor.
    /// n categories and m overrides take n^2 additions and (n + m) log(n + m) steps.
    tkClassifierResult(std::vector<tkClassifierCategoryResult> matchResults, const tkClassifierFrequencies& frequencies,
                       const tkClassifierCosts& costs, double matchScoreFactorLog);

    /// Becomes what the constructor from match scores makes of n categories with these labels and match scores, in the
    /// memory it has if that is enough. Throws as that constructor does. Strong exception guarantee. *Requires* that
    /// match scores up to the next multiple of 8 can be read; those beyond the n-th are ignored.
    void decide(const long* labels, const double* matchScores, std::size_t n,
                const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs, double matchScoreFactorLog);

    /// The categories, lowest expected cost first.
    const std::vector<tkClassifierCategoryResult>& categoryResults() const { return categoryResults_; }

    /// Natural logarithm of the factor by which the classifier scaled its match scores into [0, 1]: 0.0 for
    /// nearest neighbours; for Bayesian classification the negated best log likelihood, so that a large value
    /// tells of a pattern that fits no category.
    double matchScoreFactorLog() const { return matchScoreFactorLog_; }

    /// Exact comparison of the categories, in order, and of the factors.
    bool operator==(const tkClassifierResult& other) const;
    bool operator!=(const tkClassifierResult& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierResult& result);

    /// Writes the categories by ascending expected cost. Reads costs up to tkNMDecision::roundUp(n).
    void fillRanked_(const long* labels, const double* matchScores, const double* classScores,
                     const double* expectedCosts, std::size_t n, bool labelsAscend);
    void sort_();

    std::vector<tkClassifierCategoryResult> categoryResults_;
    double matchScoreFactorLog_ = 0.0;
};

/// The records: version byte, then label, match score, class score and expected cost of a category; version byte, then
/// the categories in their order and the factor of a result. Loading checks no values and sorts nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierCategoryResult& result);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierResult& result);

#endif
