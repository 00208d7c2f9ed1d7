#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERRULETABLE_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERRULETABLE_H

#include "clss/clastool/clastool/tkClassifierFeatureScore.h"

#include <vector>

/// The rule table's input: one value per feature, in the order of the rules' scoring methods and in the units that
/// these expect. Any value is allowed, NaN and infinities too.
class TK_EXPORT tkClassifierFeatureVector
{
public:
    /// No values.
    tkClassifierFeatureVector() = default;
    /// Copies the values.
    tkClassifierFeatureVector(const std::vector<double>& featureValues) : featureValues_(featureValues) {}

    const std::vector<double>& featureValues() const { return featureValues_; }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureVector& featureVector);

    std::vector<double> featureValues_;
};

/// A category and what each feature of its objects is expected to be like. Copies share the scoring functions.
class TK_EXPORT tkClassifierRule
{
public:
    /// No scoring methods, label 0.
    tkClassifierRule() = default;
    tkClassifierRule(const tkClassifierRule&) = default;
    tkClassifierRule(tkClassifierRule&&) = default;
    /// Strong exception guarantee.
    tkClassifierRule& operator=(const tkClassifierRule& other) { return *this = tkClassifierRule(other); }
    tkClassifierRule& operator=(tkClassifierRule&&) = default;

    /// Throws tkClassifierDefs::BadParams if label < 0, then if there are no scoring methods.
    void init(const std::vector<tkPtrHandle<tkClsFtSc>>& scoringMethods, long label);

    /// One scoring function per feature, in feature order.
    const std::vector<tkPtrHandle<tkClsFtSc>>& scoringMethods() const { return scoringMethods_; }
    /// The category; >= 0 once init() has run.
    long label() const { return label_; }

    /// Geometric mean, in [0, 1], of the features' degrees of membership: pow(product, 1 / number of them). Features
    /// that score -1.0 or NaN are left out; with none left the score is 1. One degree of 0 makes the score 0 (a veto).
    /// A product that is not above 0 is the score itself.
    ///
    /// Throws tkClassifierDefs::BadParams if the numbers of values and scoring methods differ, then if both are 0,
    /// then what a scoring function throws; tkBadPointer for a null scoring method. Allocates nothing.
    double score(const tkClassifierFeatureVector& featureVector) const;

    /// Equal scoring functions in the same order, equal labels.
    bool operator==(const tkClassifierRule& other) const;
    bool operator!=(const tkClassifierRule& other) const { return !(*this == other); }

private:
    friend class tkClassifierRuleTable;
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierRule& rule);

    /// The degrees of membership multiplied, those left out excepted, and how many they are. Throws as score() does.
    double product_(const tkClassifierFeatureVector& featureVector, int& used) const;
    static double mean_(double product, int used);

    /// Whether some degree is 0 for certain, and no function can fail: then the score is 0 or NaN.
    bool isVetoed_(const std::vector<double>& featureValues) const;

    /// Whether the score is greater than `threshold`, which is in [0, 1]. Throws as score() does.
    bool exceeds_(const tkClassifierFeatureVector& featureVector, double threshold) const;

    std::vector<tkPtrHandle<tkClsFtSc>> scoringMethods_;
    std::vector<const tkFeatureScoreSupport*> supports_; // of scoringMethods_; empty if one is not of the library
    long label_ = 0;
};

/// A classifier written by hand: the first of its rules that fits well enough decides. Put the most specific
/// rules first. It is untrained until it is given rules.
class TK_EXPORT tkClassifierRuleTable
{
public:
    /// No rules: untrained.
    tkClassifierRuleTable() = default;
    tkClassifierRuleTable(const tkClassifierRuleTable&) = default;
    tkClassifierRuleTable(tkClassifierRuleTable&&) = default;
    /// Strong exception guarantee.
    tkClassifierRuleTable& operator=(const tkClassifierRuleTable& other)
    {
        return *this = tkClassifierRuleTable(other);
    }
    tkClassifierRuleTable& operator=(tkClassifierRuleTable&&) = default;

    /// Replaces the rules. Throws tkClassifierDefs::BadParams if there are none, then if they differ in their number
    /// of scoring methods; the table then keeps its rules.
    void train(const std::vector<tkClassifierRule>& rules);

    /// The rules in the order in which they are tried; none if untrained.
    const std::vector<tkClassifierRule>& rules() const { return rules_; }

    /// Label of the first rule whose score is greater than `hardThreshold`; -1 if there is none. Later rules are not
    /// scored. Time for each function of each rule up to that one.
    ///
    /// Throws tkClassifierDefs::BadParams unless the threshold is in [0, 1], tkClassifierDefs::NotTrained without
    /// rules, tkClassifierDefs::BadParams if there are no values, then if they are not as many as scoring methods, then
    /// what a rule throws. Allocates nothing.
    long classifyHardThreshold(const tkClassifierFeatureVector& featureVector, double hardThreshold) const;

    /// Equal rules in the same order.
    bool operator==(const tkClassifierRuleTable& other) const;
    bool operator!=(const tkClassifierRuleTable& other) const { return !(*this == other); }

private:
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierRuleTable& table);

    std::vector<tkClassifierRule> rules_;
};

/// The records carry no version byte of their own. Loading checks nothing: rules of different sizes, null functions and
/// negative labels come back as they were stored.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierFeatureVector& featureVector);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierRule& rule);
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkClassifierRuleTable& table);

#endif
