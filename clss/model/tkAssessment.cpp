#include "clss/model/tkAssessment.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
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

/// The class score; 0.0 for NaN.
double scoreOf(const tkClassifierCategoryResult& category)
{
    return std::isnan(category.classScore()) ? 0.0 : category.classScore();
}

/// The category of the largest class score, the one of the lowest label among equals.
const tkClassifierCategoryResult& mostProbable(const tkClassifierResult& result)
{
    return *std::min_element(result.categoryResults().begin(), result.categoryResults().end(),
                             [](const tkClassifierCategoryResult& a, const tkClassifierCategoryResult& b) {
                                 return scoreOf(a) > scoreOf(b) ||
                                        (scoreOf(a) == scoreOf(b) && a.categoryLabel() < b.categoryLabel());
                             });
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

void tkAssessment::resultOf_(std::size_t i, const tkDecisionRule& rule, tkClassifierResult& result) const
{
    const auto begin = static_cast<std::size_t>(i == 0 ? 0 : ends_[i - 1]);
    const std::size_t n = static_cast<std::size_t>(ends_[i]) - begin;
    if (n == 0)
    {
        result = tkClassifierResult();
        return;
    }
    tkScratch<double, 64> scores(tkNMDecision::roundUp(n)); // decide() reads whole groups
    std::fill(scores.begin() + n, scores.end(), 0.0);
    std::copy_n(&matchScores_[begin], n, scores.data());
    result.decide(&categories_[begin], scores.data(), n, rule.frequencies(), rule.costs(), matchScoreFactorLogs_[i]);
}

template <class Visit>
void tkAssessment::forEachResult_(const tkDecisionRule& rule, Visit visit) const
{
    tkClassifierResult result;
    for (std::size_t i = 0; i < labels_.size(); ++i)
    {
        resultOf_(i, rule, result);
        visit(i, result);
    }
}

tkClassifierResult tkAssessment::result(long i, const tkDecisionRule& rule) const
{
    TK_ASSERT(i >= 0 && i < numPatterns());
    tkClassifierResult result;
    resultOf_(static_cast<std::size_t>(i), rule, result);
    return result;
}

std::vector<long> tkAssessment::decisions(const tkDecisionRule& rule) const
{
    std::vector<long> decisions(labels_.size());
    forEachResult_(rule,
                   [&](std::size_t i, const tkClassifierResult& result)
                   {
                       const auto& categories = result.categoryResults();
                       decisions[i] = pValues_[i] < rule.alpha() ? tkDecisionRule::noneOfThese
                                      : categories.empty() || categories.front().expectedCost() > rule.refusalCost()
                                          ? tkDecisionRule::cannotTell
                                          : categories.front().categoryLabel();
                   });
    return decisions;
}

double tkAssessment::logLoss(const tkDecisionRule& rule) const
{
    constexpr double least = std::numeric_limits<double>::epsilon();
    double sum = 0.0;
    forEachResult_(rule,
                   [&](std::size_t i, const tkClassifierResult& result)
                   {
                       double score = least;
                       for (const tkClassifierCategoryResult& category : result.categoryResults())
                           if (category.categoryLabel() == labels_[i] && category.classScore() > least)
                               score = category.classScore();
                       sum -= tkNMElementary::log(score);
                   });
    return labels_.empty() ? 0.0 : sum / static_cast<double>(labels_.size());
}

std::vector<tkAssessment::ReliabilityBin> tkAssessment::reliability(const tkDecisionRule& rule, long numBins) const
{
    if (numBins < 1)
        throw tkClassifierDefs::BadParams(L"A reliability diagram needs at least 1 bin.");
    std::vector<ReliabilityBin> bins(static_cast<std::size_t>(numBins), ReliabilityBin{0, 0.0, 0.0});
    forEachResult_(rule,
                   [&](std::size_t i, const tkClassifierResult& result)
                   {
                       double score = 0.0;
                       bool isRight = false;
                       if (!result.categoryResults().empty())
                       {
                           const tkClassifierCategoryResult& category = mostProbable(result);
                           score = scoreOf(category);
                           isRight = category.categoryLabel() == labels_[i];
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

    struct Decided
    {
        double expectedCost;
        double weight;
        double cost; // that came of it
    };
    std::vector<Decided> decided;
    forEachResult_(
        rule,
        [&](std::size_t i, const tkClassifierResult& result)
        {
            if (pValues_[i] < rule.alpha() || result.categoryResults().empty())
                return;
            const tkClassifierCategoryResult& best = result.categoryResults().front();
            const bool isRight = best.categoryLabel() == labels_[i];
            decided.push_back(
                {std::isnan(best.expectedCost()) ? 0.0 : best.expectedCost(), // which no refusal's cost is below
                 weights[labels_[i]],
                 isRight ? 0.0 : rule.costs().misclassificationCost(labels_[i], best.categoryLabel())});
        });
    std::stable_sort(decided.begin(), decided.end(),
                     [](const Decided& a, const Decided& b) { return a.expectedCost < b.expectedCost; });
    std::vector<RefusalPoint> points;
    double weight = 0.0;
    double cost = 0.0;
    for (std::size_t i = 0; i < decided.size(); ++i)
    {
        weight += decided[i].weight;
        cost += decided[i].weight * decided[i].cost;
        const double refused = 1.0 - weight; // less than nothing by rounding
        if (i + 1 == decided.size() || decided[i + 1].expectedCost != decided[i].expectedCost)
            points.push_back({decided[i].expectedCost, refused < 0.0 ? 0.0 : refused, cost / weight});
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
