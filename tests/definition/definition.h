#ifndef TESTS_DEFINITION_DEFINITION_H
#define TESTS_DEFINITION_DEFINITION_H

#include "clss/clastool/clastool.h"

#include <string>
#include <vector>

/// The definitions written down as they read: every pattern and function behind a counted handle, every distance and
/// score a virtual call, everything computed where it is needed. What anyone would write first, and what the library
/// must agree with: the oracle of the tests, and the plain competitor of the benchmarks. The competitor calls the C
/// library's exp, log and pow; the oracle of a rule's score, which is held to the bits, calls the library's own pow.
/// Nothing else of the library's numerics is used.
namespace definition
{
using PatternHandle = tkPtrHandle_const<tkFeaturePattern>;

struct CategoryResult
{
    long label;
    double matchScore;
    double classScore;
    double expectedCost;
};
using Result = std::vector<CategoryResult>;

/// Priors, costs and ranking; `matchResults` have label and match score.
Result result(const Result& matchResults, const tkClassifierFrequencies& frequencies, const tkClassifierCosts& costs);

/// Whether the library's result has the same bits; entries of equal cost may be ordered in any way.
bool agrees(const Result& result, const tkClassifierResult& libraryResult);

class Metric
{
public:
    virtual ~Metric() = default;
    virtual double distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const = 0;
};

class NormMetric : public Metric
{
public:
    explicit NormMetric(double order) : order_(order) {}
    double distance(const tkFeaturePattern& a, const tkFeaturePattern& b) const override;

private:
    double order_;
};

/// The k nearest of the provider's patterns, by bounded insertion.
std::vector<long> nearest(tkClassifierDataProviderMemory& provider, const Metric& metric, long k,
                          const tkFeaturePattern& query);

/// The vote of the nearest.
Result classifyByNeighbours(tkClassifierDataProviderMemory& provider, const Metric& metric, long k,
                            const tkFeaturePattern& query);

/// What a rule or a scoring function throws.
struct Failure
{
    std::wstring text;
};

/// How often a score met corners in an arrangement that cannot occur, of which the library tells the assertion handler.
extern int reports;

double oneSidedScore(double x0, double x1, double xc, double y0, double y1, double value);
double oneSidedScore(const tkClassifierFeatureScoreOneSided& parameters, double value);
double twoSidedScore(const tkClassifierFeatureScoreTwoSided& parameters, double value);

/// Functions of other classes than these two are asked for their score.
double ruleScore(const tkClassifierRule& rule, const std::vector<double>& values);

/// The label of the first rule that scores above the threshold, or -1.
long classifyByRules(const std::vector<tkClassifierRule>& rules, const std::vector<double>& values, double threshold);

class Score : public tkRepBase
{
public:
    virtual double score(double value) const = 0;
};

/// A trapezoid that checks its corners at every score.
class TwoSidedScore : public Score
{
public:
    explicit TwoSidedScore(const tkClassifierFeatureScoreTwoSided& parameters) : parameters_(parameters) {}
    double score(double value) const override;

private:
    tkClassifierFeatureScoreTwoSided parameters_;
};

struct Rule
{
    std::vector<tkPtrHandle<Score>> scores;
    long label;
    double score(const std::vector<double>& values) const;
};

/// The first rule that scores above the threshold, or -1.
long classifyByRules(const std::vector<Rule>& rules, const std::vector<double>& values, double threshold);

/// The running mean and covariance of a set of measurements (Welford), and their normal density.
class NormalDensity : public tkRepBase
{
public:
    void add(const tkFeaturePattern& pattern);
    /// Factors the covariance anew each time.
    double logValue(const tkFeaturePattern& pattern) const;

private:
    double count_ = 0.0;
    std::vector<double> mean_;
    std::vector<double> products_; // sums of products of deviations, row by row
};

/// A class: sets of measurements that depend on one another, each with a density.
struct Category
{
    long label;
    std::vector<std::vector<long>> sets;
    std::vector<tkPtrHandle<NormalDensity>> densities;
};

/// Trains each class with the sets given, pattern by pattern.
std::vector<Category> trainNormals(tkClassifierDataProviderMemory& provider,
                                   const std::vector<std::vector<long>>& sets);

Result classifyByNormals(const std::vector<Category>& categories, const tkFeaturePattern& pattern);

/// Whether the library decides for the same category, with scores that differ by rounding only: how a factor is
/// computed is not part of the definition.
bool nearlyAgrees(const Result& result, const tkClassifierResult& libraryResult);

class Predicate : public tkRepBase
{
public:
    virtual bool outcome(const tkFeaturePattern& pattern) const = 0;
};

class RangePredicate : public Predicate
{
public:
    RangePredicate(double low, double high, const std::vector<long>& indices)
        : low_(low),
          high_(high),
          indices_(indices)
    {
    }
    bool outcome(const tkFeaturePattern& pattern) const override;

private:
    double low_;
    double high_;
    std::vector<long> indices_;
};

class Tree : public tkRepBase
{
};

class Leaf : public Tree
{
public:
    explicit Leaf(const Result& result) : result_(result) {}
    Result result() const { return result_; }

private:
    Result result_;
};

class Node : public Tree
{
public:
    Node(tkPtrHandle_const<Predicate> predicate, tkPtrHandle_const<Tree> trueTree, tkPtrHandle_const<Tree> falseTree)
        : predicate_(predicate),
          trueTree_(trueTree),
          falseTree_(falseTree)
    {
    }
    tkPtrHandle_const<Predicate> predicate() const { return predicate_; }
    tkPtrHandle_const<Tree> trueTree() const { return trueTree_; }
    tkPtrHandle_const<Tree> falseTree() const { return falseTree_; }

private:
    tkPtrHandle_const<Predicate> predicate_;
    tkPtrHandle_const<Tree> trueTree_;
    tkPtrHandle_const<Tree> falseTree_;
};

Result classifyByTree(tkPtrHandle_const<Tree> tree, const tkFeaturePattern& pattern);
} // namespace definition

#endif
