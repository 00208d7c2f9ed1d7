#include "clss/model/tkAssessment.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tk_DecisionTerms.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "clss/model/tk_LeaveOneOut.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkRandom.h"
#include "foundation/tkScratch.h"
#include "numerics/tkNMDecision.h"
#include "numerics/tkNMElementary.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>

namespace
{
tkTrainer trainerOf(const tkClassifierTrainParams& params)
{
    return [&params](const tkClassifierDataProvider& training) -> tkJudge
    {
        const auto tool = std::make_shared<tkClassifierTool>();
        tool->train(training, params);
        return [tool](const tkFeaturePattern& pattern) { return tool->run(pattern); };
    };
}

/// All patterns but those of the fold.
tkClassifierDataProviderMemory withoutFold(const tk_LabelledPatterns& data, const std::vector<long>& folds, long fold)
{
    tkClassifierDataProviderMemory training;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
        if (folds[static_cast<std::size_t>(data.indices[i])] != fold)
            training.addData(data.patterns[i], data.labels[i]);
    return training;
}

void shuffle(std::vector<std::size_t>& places, tkRandomUniform& uniform)
{
    for (std::size_t left = places.size(); left > 1; --left)
    {
        const auto drawn = static_cast<std::size_t>(uniform.next(0.0, static_cast<double>(left)));
        std::swap(places[left - 1], places[std::min(drawn, left - 1)]);
    }
}

/// The bin of a score: the number of inner edges 1 / B ... (B - 1) / B below it.
std::size_t binOf(double score, long numBins)
{
    if (!(score > 0.0))
        return 0;
    const double n = static_cast<double>(numBins);
    auto bin = static_cast<long>(std::min(score, 1.0) * n); // rounding may take it beyond an edge
    while (bin > 0 && !(static_cast<double>(bin) / n < score))
        --bin;
    while (bin + 1 < numBins && static_cast<double>(bin + 1) / n < score)
        ++bin;
    return static_cast<std::size_t>(bin);
}

/// What a rule makes of the match scores of a pattern.
struct Decided
{
    std::size_t n;
    const long* labels;
    const double* classScores; // every `stride`-th
    const double* expectedCosts;
    std::size_t stride;
    std::size_t first; // of the ranking, if there are any

    double classScore(std::size_t i) const { return classScores[i * stride]; }
    double expectedCost(std::size_t i) const { return expectedCosts[i * stride]; }
};

/// Applies a rule to patterns whose match scores stand one after the other, a block of those with equal labels at a
/// time. What depends on the labels alone is computed where they change. Has the bits of tkClassifierResult::decide(),
/// and throws what that throws.
class Decider
{
public:
    /// The most patterns of a block.
    static constexpr std::size_t block = 8;

    explicit Decider(const tkDecisionRule& rule) : rule_(rule) {}

    /// Takes `count` patterns with these n labels each. *Requires* 0 < count <= block.
    void take(const long* labels, const double* matchScores, std::size_t n, std::size_t count)
    {
        labels_ = labels;
        matchScores_ = matchScores;
        n_ = n;
        std::fill_n(isDecided_, block, false);
        if (n > 0 && n <= mostCategories_ && count >= leastPatterns_ && takeTerms_())
            decideAll_(count);
    }

    /// The pattern of this number in the block. Valid until the next call.
    Decided decided(std::size_t pattern)
    {
        if (isDecided_[pattern])
            return {n_, labels_, classScores_ + pattern, expectedCosts_ + pattern, block, first_[pattern]};
        return decideOne_(matchScores_ + pattern * n_);
    }

private:
    /// With more categories or fewer patterns it takes less time to decide for one after the other.
    static constexpr std::size_t mostCategories_ = 16;
    static constexpr std::size_t leastPatterns_ = 3;

    /// False if the labels do not ascend: their ranking is another one then.
    bool takeTerms_()
    {
        if (!terms_ || !std::equal(labels_, labels_ + n_, termsLabels_.begin(), termsLabels_.end()))
        {
            terms_.reset(); // until all is done
            termsLabels_.assign(labels_, labels_ + n_);
            terms_.emplace(labels_, n_, rule_.frequencies(), rule_.costs());
            std::fill_n(costs_, n_ * n_, terms_->cost);
            for (std::size_t o = 0; o < terms_->overrides.size(); ++o) // of several for a pair the last counts
                costs_[terms_->overrides[o].decision * n_ + terms_->overrides[o].state] = terms_->overrides[o].cost;
        }
        return terms_->labelsAscend;
    }

    /// The formulas of tkNMDecision::compute(), each sum with its terms in the same order, for the patterns side by
    /// side. Leaves those undecided that have an error.
    void decideAll_(std::size_t count)
    {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        double scores[mostCategories_ * block];
        for (std::size_t p = 0; p < block; ++p) // those that are missing repeat the first one
            for (std::size_t i = 0; i < n_; ++i)
                scores[i * block + p] = matchScores_[(p < count ? p : 0) * n_ + i];

        double joints[mostCategories_ * block];
        double sum[block] = {};
        for (std::size_t i = 0; i < n_; ++i)
        {
            const double weight = terms_->weights[i];
            const double weightSum = terms_->weightSum;
            for (std::size_t p = 0; p < block; ++p)
            {
                joints[i * block + p] = scores[i * block + p] * weight / weightSum;
                sum[p] += joints[i * block + p];
            }
        }
        double least[block] = {};
        std::size_t first[block] = {};
        bool isWrong[block] = {};
        for (std::size_t i = 0; i < n_; ++i)
        {
            double risk[block] = {};
            for (std::size_t j = 0; j < n_; ++j)
                if (j != i)
                {
                    const double cost = costs_[i * n_ + j];
                    for (std::size_t p = 0; p < block; ++p)
                        risk[p] += cost * joints[j * block + p];
                }
            for (std::size_t p = 0; p < block; ++p)
            {
                const double m = scores[i * block + p];
                const double c = joints[i * block + p] / sum[p];
                const double r = risk[p] / sum[p];
                classScores_[i * block + p] = c;
                expectedCosts_[i * block + p] = r;
                isWrong[p] = isWrong[p] | (m < 0.0) | (m > 1.0) | (c < 0.0) | (c > 1.0) | (r < 0.0);
                // NaN last, equal ones in their order.
                const bool isBefore = (i == 0) | (!(r >= least[p]) & (r <= infinity));
                least[p] = isBefore ? r : least[p];
                first[p] = isBefore ? i : first[p];
            }
        }
        for (std::size_t p = 0; p < block; ++p)
        {
            isDecided_[p] = sum[p] != 0.0 && !isWrong[p];
            first_[p] = first[p];
        }
    }

    Decided decideOne_(const double* matchScores)
    {
        if (n_ == 0)
            return {0, nullptr, nullptr, nullptr, 1, 0};
        tkScratch<double> scores(tkNMDecision::roundUp(n_)); // decide() reads whole groups
        std::fill(scores.begin() + n_, scores.end(), 0.0);
        std::copy_n(matchScores, n_, scores.data());
        result_.decide(labels_, scores.data(), n_, rule_.frequencies(), rule_.costs(), 0.0);
        rankedLabels_.clear();
        rankedScores_.clear();
        rankedCosts_.clear();
        for (const tkClassifierCategoryResult& category : result_.categoryResults())
        {
            rankedLabels_.push_back(category.categoryLabel());
            rankedScores_.push_back(category.classScore());
            rankedCosts_.push_back(category.expectedCost());
        }
        return {n_, rankedLabels_.data(), rankedScores_.data(), rankedCosts_.data(), 1, 0};
    }

    const tkDecisionRule& rule_;

    const long* labels_ = nullptr; // of the block
    const double* matchScores_ = nullptr;
    std::size_t n_ = 0;

    std::vector<long> termsLabels_;
    std::optional<tk_DecisionTerms> terms_;
    double costs_[mostCategories_ * mostCategories_] = {}; // of deciding for i while j is the case: at i * n + j

    double classScores_[mostCategories_ * block] = {}; // category by category, those of the patterns side by side
    double expectedCosts_[mostCategories_ * block] = {};
    std::size_t first_[block] = {};
    bool isDecided_[block] = {};

    tkClassifierResult result_; // of a single pattern
    std::vector<long> rankedLabels_;
    std::vector<double> rankedScores_; // parallel
    std::vector<double> rankedCosts_;  // parallel
};

/// The class score; 0.0 for NaN.
double scoreOf(const Decided& decided, std::size_t i)
{
    return std::isnan(decided.classScore(i)) ? 0.0 : decided.classScore(i);
}

/// The category of the largest class score, the one of the lowest label among equals.
std::size_t mostProbable(const Decided& decided)
{
    std::size_t best = 0;
    for (std::size_t i = 1; i < decided.n; ++i)
        if (scoreOf(decided, i) > scoreOf(decided, best) ||
            (scoreOf(decided, i) == scoreOf(decided, best) && decided.labels[i] < decided.labels[best]))
            best = i;
    return best;
}
} // namespace

std::vector<long> tkAssessment::stratifiedFolds(const tkClassifierDataProvider& data, long numFolds, long seed)
{
    const tk_LabelledPatterns labelled(data);
    if (numFolds < 2)
        throw tkClassifierDefs::BadParams(L"Cross-validation needs at least 2 folds.");
    if (static_cast<std::size_t>(numFolds) > labelled.patterns.size())
        throw tkClassifierDefs::BadParams(L"There are more folds than patterns: " + std::to_wstring(numFolds) +
                                          L" for " + std::to_wstring(labelled.patterns.size()) + L".");
    std::map<long, std::vector<std::size_t>> places; // of each category, ascending
    for (std::size_t i = 0; i < labelled.labels.size(); ++i)
        places[labelled.labels[i]].push_back(static_cast<std::size_t>(labelled.indices[i]));
    std::vector<long> folds(static_cast<std::size_t>(data.numPatterns()), -1);
    tkRandomUniform uniform(seed);
    long next = 0;
    for (auto& [label, ofCategory] : places)
    {
        shuffle(ofCategory, uniform);
        for (const std::size_t place : ofCategory)
        {
            folds[place] = next;
            next = (next + 1) % numFolds;
        }
    }
    return folds;
}

tkAssessment tkAssessment::crossValidate(const tkClassifierDataProvider& data, const tkTrainer& trainer,
                                         const std::vector<long>& folds, const Progress& progress)
{
    if (folds.size() != static_cast<std::size_t>(data.numPatterns()))
        throw tkClassifierDefs::BadParams(L"There are " + std::to_wstring(folds.size()) + L" folds for " +
                                          std::to_wstring(data.numPatterns()) + L" patterns.");
    for (std::size_t i = 0; i < folds.size(); ++i)
        if (folds[i] < -1)
            throw tkClassifierDefs::BadParams(L"The fold of pattern " + std::to_wstring(i) + L" is " +
                                              std::to_wstring(folds[i]) + L"; folds are >= 0, or -1 for none.");
    const tk_LabelledPatterns labelled(data);

    std::map<long, std::vector<std::size_t>> judged; // the patterns of each fold
    long total = 0;
    for (std::size_t i = 0; i < labelled.patterns.size(); ++i)
    {
        const long fold = folds[static_cast<std::size_t>(labelled.indices[i])];
        if (fold < 0)
            continue;
        judged[fold].push_back(i);
        ++total;
    }
    std::map<std::size_t, tkJudgement> judgements; // of the patterns, in their order
    for (const auto& [fold, patterns] : judged)
    {
        const tkJudge judge = trainer(withoutFold(labelled, folds, fold));
        for (const std::size_t i : patterns)
        {
            judgements.emplace(i, judge(*labelled.patterns[i]));
            if (progress)
                progress(static_cast<long>(judgements.size()), total);
        }
    }
    tkAssessment assessment;
    for (const auto& [i, judgement] : judgements)
        assessment.add_(labelled.indices[i], labelled.labels[i], judgement);
    return assessment;
}

tkAssessment tkAssessment::crossValidate(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                                         const std::vector<long>& folds, const Progress& progress)
{
    return crossValidate(data, trainerOf(params), folds, progress);
}

tkAssessment tkAssessment::leaveOneOut(const tkClassifierDataProvider& data, const tkTrainer& trainer,
                                       const Progress& progress)
{
    std::vector<long> folds(static_cast<std::size_t>(data.numPatterns()));
    std::iota(folds.begin(), folds.end(), 0L);
    return crossValidate(data, trainer, folds, progress);
}

tkAssessment tkAssessment::leaveOneOut(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                                       const Progress& progress)
{
    const tk_LabelledPatterns labelled(data);
    const tk_LeftOutJudge judge = tk_leaveOneOut(labelled, params);
    if (!judge)
        return leaveOneOut(data, trainerOf(params), progress);
    tkAssessment assessment;
    const auto total = static_cast<long>(labelled.patterns.size());
    for (long i = 0; i < total; ++i)
    {
        const auto place = static_cast<std::size_t>(i);
        assessment.add_(labelled.indices[place], labelled.labels[place], judge(place));
        if (progress)
            progress(i + 1, total);
    }
    return assessment;
}

tkAssessment tkAssessment::heldOut(const tkClassifierDataProvider& data, const tkJudge& judge, const Progress& progress)
{
    const tkTrainer trained = [&](const tkClassifierDataProvider&) { return judge; };
    return crossValidate(data, trained, std::vector<long>(static_cast<std::size_t>(data.numPatterns()), 0), progress);
}

tkAssessment tkAssessment::heldOut(const tkClassifierDataProvider& data, const tkClassifierTool& tool,
                                   const Progress& progress)
{
    return heldOut(
        data, [&](const tkFeaturePattern& pattern) { return tool.run(pattern); }, progress);
}

void tkAssessment::add_(long index, long label, const tkJudgement& judgement)
{
    std::vector<std::pair<long, double>> scores;
    scores.reserve(judgement.result.categoryResults().size());
    for (const tkClassifierCategoryResult& category : judgement.result.categoryResults())
        scores.emplace_back(category.categoryLabel(), category.matchScore());
    std::sort(scores.begin(), scores.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [category, score] : scores)
    {
        categories_.push_back(category);
        matchScores_.push_back(score);
    }
    ends_.push_back(static_cast<long>(categories_.size()));
    matchScoreFactorLogs_.push_back(judgement.result.matchScoreFactorLog());
    pValues_.push_back(judgement.pValue);
    labels_.push_back(label);
    indices_.push_back(index);
}

std::size_t tkAssessment::begin_(std::size_t i) const
{
    return i == 0 ? 0 : static_cast<std::size_t>(ends_[i - 1]);
}

template <class Visit>
void tkAssessment::forEachDecided_(const tkDecisionRule& rule, Visit visit) const
{
    Decider decider(rule);
    const std::size_t numPatterns = labels_.size();
    for (std::size_t i = 0; i < numPatterns;)
    {
        const std::size_t begin = begin_(i);
        const std::size_t n = begin_(i + 1) - begin;
        const long* const labels = categories_.data() + begin;
        std::size_t count = 1; // of patterns with these labels, one after the other
        while (count < Decider::block && i + count < numPatterns && begin_(i + count + 1) - begin_(i + count) == n &&
               std::equal(labels, labels + n, labels + count * n))
            ++count;
        decider.take(labels, matchScores_.data() + begin, n, count);
        for (std::size_t p = 0; p < count; ++p)
            visit(i + p, decider.decided(p));
        i += count;
    }
}

tkClassifierResult tkAssessment::result(long i, const tkDecisionRule& rule) const
{
    TK_ASSERT(i >= 0 && i < numPatterns());
    const auto place = static_cast<std::size_t>(i);
    const std::size_t begin = begin_(place);
    const std::size_t n = begin_(place + 1) - begin;
    tkClassifierResult result;
    if (n == 0)
        return result;
    tkScratch<double, 64> scores(tkNMDecision::roundUp(n)); // decide() reads whole groups
    std::fill(scores.begin() + n, scores.end(), 0.0);
    std::copy_n(&matchScores_[begin], n, scores.data());
    result.decide(&categories_[begin], scores.data(), n, rule.frequencies(), rule.costs(),
                  matchScoreFactorLogs_[place]);
    return result;
}

std::vector<long> tkAssessment::decisions(const tkDecisionRule& rule) const
{
    std::vector<long> decisions(labels_.size());
    forEachDecided_(rule,
                    [&](std::size_t i, const Decided& decided)
                    {
                        decisions[i] = pValues_[i] < rule.alpha() ? tkDecisionRule::noneOfThese
                                       : decided.n == 0 || decided.expectedCost(decided.first) > rule.refusalCost()
                                           ? tkDecisionRule::cannotTell
                                           : decided.labels[decided.first];
                    });
    return decisions;
}

double tkAssessment::logLoss(const tkDecisionRule& rule) const
{
    constexpr double least = std::numeric_limits<double>::epsilon();
    double sum = 0.0;
    forEachDecided_(rule,
                    [&](std::size_t i, const Decided& decided)
                    {
                        double score = least;
                        for (std::size_t c = 0; c < decided.n; ++c)
                            if (decided.labels[c] == labels_[i] && decided.classScore(c) > least)
                                score = decided.classScore(c);
                        sum -= tkNMElementary::log(score);
                    });
    return labels_.empty() ? 0.0 : sum / static_cast<double>(labels_.size());
}

std::vector<tkAssessment::ReliabilityBin> tkAssessment::reliability(const tkDecisionRule& rule, long numBins) const
{
    if (numBins < 1)
        throw tkClassifierDefs::BadParams(L"A reliability diagram needs at least 1 bin.");
    std::vector<ReliabilityBin> bins(static_cast<std::size_t>(numBins), ReliabilityBin{0, 0.0, 0.0});
    forEachDecided_(rule,
                    [&](std::size_t i, const Decided& decided)
                    {
                        double score = 0.0;
                        bool isRight = false;
                        if (decided.n > 0)
                        {
                            const std::size_t best = mostProbable(decided);
                            score = scoreOf(decided, best);
                            isRight = decided.labels[best] == labels_[i];
                        }
                        ReliabilityBin& bin = bins[binOf(score, numBins)];
                        ++bin.count;
                        bin.meanScore += score;
                        bin.shareRight += isRight ? 1.0 : 0.0;
                    });
    for (ReliabilityBin& bin : bins)
    {
        const double count = static_cast<double>(std::max(bin.count, 1L));
        bin.meanScore /= count;
        bin.shareRight /= count;
    }
    return bins;
}

double tkAssessment::calibrationError(const tkDecisionRule& rule, long numBins) const
{
    double sum = 0.0;
    for (const ReliabilityBin& bin : reliability(rule, numBins))
        sum += static_cast<double>(bin.count) * std::abs(bin.meanScore - bin.shareRight);
    return labels_.empty() ? 0.0 : sum / static_cast<double>(labels_.size());
}

std::vector<tkAssessment::RefusalPoint> tkAssessment::costAgainstRefusals(const tkDecisionRule& rule) const
{
    std::map<long, double> weights; // of a pattern of each category: all together weigh 1
    for (const long label : labels_)
        weights[label] += 1.0;
    double frequencySum = 0.0;
    for (const auto& [label, count] : weights)
        frequencySum += rule.frequencies().categoryFrequency(label);
    for (auto& [label, weight] : weights)
        weight = rule.frequencies().categoryFrequency(label) / (frequencySum * weight);

    struct Outcome
    {
        double expectedCost;
        double weight;
        double cost; // that came of it
    };
    std::vector<Outcome> outcomes;
    forEachDecided_(rule,
                    [&](std::size_t i, const Decided& decided)
                    {
                        if (pValues_[i] < rule.alpha() || decided.n == 0)
                            return;
                        const double expected = decided.expectedCost(decided.first);
                        const long label = decided.labels[decided.first];
                        outcomes.push_back(
                            {std::isnan(expected) ? 0.0 : expected, // which no refusal's cost is below
                             weights[labels_[i]],
                             label == labels_[i] ? 0.0 : rule.costs().misclassificationCost(labels_[i], label)});
                    });
    std::stable_sort(outcomes.begin(), outcomes.end(),
                     [](const Outcome& a, const Outcome& b) { return a.expectedCost < b.expectedCost; });
    std::vector<RefusalPoint> points;
    double weight = 0.0;
    double cost = 0.0;
    for (std::size_t i = 0; i < outcomes.size(); ++i)
    {
        weight += outcomes[i].weight;
        cost += outcomes[i].weight * outcomes[i].cost;
        const double refused = 1.0 - weight; // less than nothing by rounding
        if (i + 1 == outcomes.size() || outcomes[i + 1].expectedCost != outcomes[i].expectedCost)
            points.push_back({outcomes[i].expectedCost, refused < 0.0 ? 0.0 : refused, cost / weight});
    }
    return points;
}

bool tkAssessment::operator==(const tkAssessment& other) const
{
    return indices_ == other.indices_ && labels_ == other.labels_ && pValues_ == other.pValues_ &&
           matchScoreFactorLogs_ == other.matchScoreFactorLogs_ && ends_ == other.ends_ &&
           categories_ == other.categories_ && matchScores_ == other.matchScores_;
}

tkArchive& operator||(tkArchive& archive, tkAssessment& assessment)
{
    tkAssessment loaded; // a failed loading changes nothing
    tkAssessment& exchanged = archive.isLoading() ? loaded : assessment;
    archive.exchangeVersion();
    tkExchangeParallel(archive, L"The patterns of an assessment have not as many values of each kind",
                       exchanged.indices_, exchanged.labels_, exchanged.pValues_, exchanged.matchScoreFactorLogs_,
                       exchanged.ends_);
    tkExchangeParallel(archive, L"The categories of an assessment are not as many as their match scores",
                       exchanged.categories_, exchanged.matchScores_);
    if (archive.isStoring())
        return archive;
    long end = 0;
    for (const long next : exchanged.ends_)
    {
        if (next < end)
            archive.fail(L"The categories of a pattern in an assessment end before they begin");
        end = next;
    }
    if (static_cast<std::size_t>(end) != exchanged.categories_.size())
        archive.fail(L"The patterns of an assessment have not all of its categories");
    assessment = std::move(loaded);
    return archive;
}
