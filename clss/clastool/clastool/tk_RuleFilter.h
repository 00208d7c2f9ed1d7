#ifndef CLSS_CLASTOOL_CLASTOOL_TK_RULEFILTER_H
#define CLSS_CLASTOOL_CLASTOOL_TK_RULEFILTER_H

#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "foundation/tkChangeCount.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// Tells which rules of a table cannot score above 0 for given values, without scoring them.
///
/// A value at which a function scores 0 vetoes its rule: the product is 0, or NaN if another degree is infinite. The
/// filter cuts each feature into levels and keeps a bit per level and rule: whether the function's support, outside of
/// which it scores 0, reaches it. A rule with a function that could throw or is of an unknown class has no vetoes.
/// A filter belongs to a table and its copies and never changes. The functions are not its own: they take part in
/// change counts, and once a number is not the one noted here the filter vetoes nothing any more.
class tk_RuleFilter
{
    static constexpr std::size_t blockRules = 64;
    static constexpr std::size_t maxFeatures = 64; // of those with a veto; others veto nothing
    static constexpr std::size_t maxCounts = 64;
    static constexpr int numLevels = 128;

public:
    /// Null if no rule could be vetoed, or if the functions take part in too many counts: one for each table that was
    /// trained on its own before its rules came together here.
    static std::shared_ptr<const tk_RuleFilter> make(const std::vector<tkClassifierRule>& rules);

    /// The rules that may score above 0 for one vector of values.
    class Candidates
    {
    public:
        /// Without a filter every rule is a candidate. *Requires* as many values as the first rule has functions.
        Candidates(const tk_RuleFilter* filter, const std::vector<double>& values);

        /// The first candidate from `rule` on; the number of rules, or more, if there is none.
        std::size_t next(std::size_t rule);

    private:
        void readBlock_(std::size_t block);

        const tk_RuleFilter* filter_;
        std::size_t block_;   // that rules_ is about
        std::uint64_t rules_; // the candidates, first rule in the lowest bit
        std::uint8_t levels_[maxFeatures];
    };

private:
    /// The level of a value is (value - origin) * scale, cut to a whole number from 0 to numLevels - 1. None of these
    /// steps ever falls as the value grows, however it rounds: from low <= value <= high follows
    /// level(low) <= level(value) <= level(high). So no value within a support has a level outside of its levels; that
    /// other values have a level within them only means a veto missed. NaN has a level to itself.
    class Scale
    {
    public:
        Scale() = default;
        /// For supports whose ends lie between these.
        Scale(double lowest, double highest);
        std::uint8_t level(double value) const;

    private:
        double origin_ = 0.0; // finite
        double scale_ = 1.0;  // finite, > 0
    };

    /// For one feature and each level of it the rules of a block that it does not veto, first rule in the lowest bit.
    /// NaN vetoes none.
    struct Passes
    {
        std::uint64_t rules[numLevels + 1] = {};
    };

    struct Feature
    {
        std::size_t index; // of its values and functions
        Scale scale;
    };

    struct Count
    {
        tkPtrHandle<tkChangeCount> count;
        std::uint64_t number;
    };

    bool joinCounts_(const std::vector<tkClassifierRule>& rules);
    bool readSupports_(const std::vector<tkClassifierRule>& rules);
    bool isCurrent_() const;

    std::size_t numRules_ = 0;
    std::vector<Feature> features_; // the first ones that may veto
    std::vector<Passes> passes_;    // block by block, one per feature in features_
    std::vector<Count> counts_;     // of the functions, none twice
};

#endif
