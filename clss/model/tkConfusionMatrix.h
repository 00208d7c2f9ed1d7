#ifndef CLSS_MODEL_TKCONFUSIONMATRIX_H
#define CLSS_MODEL_TKCONFUSIONMATRIX_H

#include "foundation/tkExport.h"

#include <vector>

class tkArchive;
class tkDecisionRule;

/// The share of hits, with a confidence interval for the true rate.
struct TK_EXPORT tkRate
{
    /// `hits` of `total`, with the interval of Wilson (J. Am. Stat. Assoc. 22, 1927, 209-212) to `z` standard
    /// deviations: 95 % of such intervals hold the true rate. 0.0, and from 0.0 to 1.0, if the total is 0. *Requires*
    /// 0 <= hits <= total and a finite z >= 0.
    tkRate(long hits, long total, double z = 1.959963984540054);

    long hits;
    long total;
    double value; // hits / total
    double low;
    double high;
};

/// How often patterns of each category were taken for each: what an assessment makes of a decision rule.
///
/// Rows are the true categories; columns are the categories decided for, and the two refusals of tkDecisionRule. A new
/// matrix has no patterns.
class TK_EXPORT tkConfusionMatrix
{
public:
    tkConfusionMatrix() = default;
    /// Counts pairs. *Requires* as many decisions as true labels, which are >= 0.
    tkConfusionMatrix(const std::vector<long>& truths, const std::vector<long>& decisions);

    tkConfusionMatrix(const tkConfusionMatrix&) = default;
    tkConfusionMatrix(tkConfusionMatrix&&) = default;
    /// Strong exception guarantee.
    tkConfusionMatrix& operator=(const tkConfusionMatrix& other) { return *this = tkConfusionMatrix(other); }
    tkConfusionMatrix& operator=(tkConfusionMatrix&&) = default;

    /// All labels that were true or decided for, ascending.
    const std::vector<long>& categories() const { return categories_; }

    /// Patterns of category `truth` for which `decision` was taken, a category or a refusal; 0 for others.
    long count(long truth, long decision) const;
    /// Patterns of the category; patterns for which `decision` was taken; all patterns.
    long numTrue(long truth) const;
    long numDecided(long decision) const;
    long numPatterns() const { return numPatterns_; }

    /// Of the patterns of this category, those decided for it.
    tkRate recall(long label) const { return {count(label, label), numTrue(label)}; }
    /// Of the patterns decided for this category, those that are of it.
    tkRate precision(long label) const { return {count(label, label), numDecided(label)}; }
    /// Of all patterns, those decided for their category. A refusal is not right.
    tkRate accuracy() const;

    /// What a pattern costs on average where categories are as frequent as the rule says: with f_t the frequency of
    /// category t and P their sum over those that patterns have,
    ///     sum over t of f_t / P (sum over d of count(t, d) cost(t, d)) / numTrue(t),
    /// where each refusal costs what the rule says. 0.0 without patterns. Throws what the rule's frequencies and costs
    /// throw for a label.
    double expectedCost(const tkDecisionRule& rule) const;

    /// Equality of categories and counts.
    bool operator==(const tkConfusionMatrix& other) const;
    bool operator!=(const tkConfusionMatrix& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkConfusionMatrix& matrix);

    std::size_t row_(long label) const;    // of a category; categories_.size() if it is none
    std::size_t column_(long label) const; // of a category or refusal; categories_.size() + 2 if it is none

    std::vector<long> categories_;
    std::vector<long> counts_; // row by row; in each one for every category, none of these, cannot tell
    long numPatterns_ = 0;
};

/// The record is a version byte, the categories, the counts. Loading throws tkArchive::Errors unless the categories
/// ascend and are >= 0, and the counts are those of their rows, >= 0, with a sum that a record can hold; a failed
/// loading changes nothing.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkConfusionMatrix& matrix);

#endif
