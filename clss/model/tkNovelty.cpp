#include "clss/model/tkNovelty.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "clss/model/tk_NoveltyEvidence.h"
#include "foundation/tkArchiveOperators.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <string>
#include <utility>

/// All that was learned. It does not move: the evidence refers to the data.
struct tk_NoveltyModel
{
    tkPtrHandle<tkClassifierTrainParams> params;
    tk_NoveltyData data;
    std::vector<double> bestEvidences; // of each pattern, without it
    std::vector<double> ownEvidences;  // parallel: for its own category
    std::unique_ptr<const tk_NoveltyEvidence> evidence;
    std::unique_ptr<const tk_NoveltyEvidence::View> view; // of all measurements
    std::vector<double> ranks;                            // bestEvidences, ascending
    std::vector<std::vector<double>> categoryRanks;       // ownEvidences of each category, ascending
};

namespace
{
/// The known patterns that a pattern with invalid measurements is ranked among.
constexpr std::size_t mostRanked = 256;

bool isComplete(const tkFeaturePattern& pattern)
{
    const std::vector<double>& x = pattern.featureMeasurements(false);
    return pattern.numInvalid() == 0 &&
           std::all_of(x.begin(), x.end(), [](double each) { return std::isfinite(each); });
}

tk_NoveltyData dataOf(const tk_LabelledPatterns& labelled)
{
    tk_NoveltyData data;
    data.numMeasurements = labelled.numMeasurements;
    std::map<long, std::vector<const tkFeaturePattern*>> complete;
    for (std::size_t i = 0; i < labelled.patterns.size(); ++i)
    {
        std::vector<const tkFeaturePattern*>& category = complete[labelled.labels[i]];
        if (isComplete(*labelled.patterns[i]))
            category.push_back(labelled.patterns[i].get());
    }
    long end = 0;
    for (const auto& [label, patterns] : complete)
    {
        if (patterns.empty())
            throw tkClassifierDefs::InsufficientTrainData(L"No pattern of category " + std::to_wstring(label) +
                                                          L" has all measurements.");
        end += static_cast<long>(patterns.size());
        data.labels.push_back(label);
        data.ends.push_back(end);
        for (const tkFeaturePattern* const pattern : patterns)
        {
            const std::vector<double>& x = pattern->featureMeasurements(false);
            data.measurements.insert(data.measurements.end(), x.begin(), x.end());
        }
    }
    return data;
}

std::vector<long> allMeasurements(const tk_NoveltyData& data)
{
    std::vector<long> all(static_cast<std::size_t>(data.numMeasurements));
    std::iota(all.begin(), all.end(), 0L);
    return all;
}

/// The best and the own category's evidence of pattern i, left out.
struct LeftOut
{
    LeftOut(const tk_NoveltyData& data, const tk_NoveltyEvidence::View& view, std::size_t i)
    {
        while (i >= data.end(category))
            ++category;
        std::vector<double> evidences(data.labels.size());
        view.fillLeftOut(i, evidences.data());
        best = *std::max_element(evidences.begin(), evidences.end());
        own = evidences[category];
    }

    std::size_t category = 0;
    double best;
    double own;
};

/// What is derived from parameters and data.
void derive(tk_NoveltyModel& model)
{
    model.evidence = tk_NoveltyEvidence::make(model.data, *model.params);
    model.view = model.evidence->view(allMeasurements(model.data));
}

/// What is derived from the evidences of the patterns.
void rank(tk_NoveltyModel& model)
{
    model.ranks = model.bestEvidences;
    std::sort(model.ranks.begin(), model.ranks.end());
    for (std::size_t c = 0; c < model.data.labels.size(); ++c)
    {
        const auto begin = model.ownEvidences.begin();
        model.categoryRanks.emplace_back(begin + static_cast<std::ptrdiff_t>(model.data.begin(c)),
                                         begin + static_cast<std::ptrdiff_t>(model.data.end(c)));
        std::sort(model.categoryRanks.back().begin(), model.categoryRanks.back().end());
    }
}

/// The rank of an evidence among ascending ones.
double pValueOf(double evidence, const std::vector<double>& ranks)
{
    const auto notGreater = std::upper_bound(ranks.begin(), ranks.end(), evidence) - ranks.begin();
    return (1.0 + static_cast<double>(notGreater)) / (1.0 + static_cast<double>(ranks.size()));
}

tkNovelty::Judgement judgementOf(const double* pattern, const tk_NoveltyEvidence::View& view,
                                 const std::vector<double>& ranks,
                                 const std::vector<std::vector<double>>& categoryRanks)
{
    std::vector<double> evidences(categoryRanks.size());
    view.fill(pattern, evidences.data());
    tkNovelty::Judgement judgement{1.0, *std::max_element(evidences.begin(), evidences.end()), {}};
    judgement.pValue = pValueOf(judgement.evidence, ranks);
    for (std::size_t c = 0; c < evidences.size(); ++c)
        judgement.categoryPValues.push_back(pValueOf(evidences[c], categoryRanks[c]));
    return judgement;
}

bool areEqual(const tkClassifierTrainParams& a, const tkClassifierTrainParams& b)
{
    if (const auto* const bayesian = dynamic_cast<const tkClassifierTrainParamsBayesian*>(&a))
        return *bayesian == b;
    return dynamic_cast<const tkClassifierTrainParamsKNN&>(a) == b;
}

/// Refuses a record whose parts do not fit together.
void check(tkArchive& archive, const tk_NoveltyModel& model)
{
    const tk_NoveltyData& data = model.data;
    long label = -1;
    for (const long next : data.labels)
    {
        if (next <= label)
            archive.fail(L"The categories of a novelty are not in ascending order");
        label = next;
    }
    long end = 0;
    for (const long next : data.ends)
    {
        if (next <= end)
            archive.fail(L"A category of a novelty ends before it begins");
        end = next;
    }
    if (static_cast<std::size_t>(end) != model.bestEvidences.size())
        archive.fail(L"A novelty has not as many evidences as patterns");
    const std::size_t size = data.measurements.size();
    const std::size_t numPatterns = data.numPatterns();
    const bool isTable = numPatterns == 0
                             ? size == 0 && data.numMeasurements == 0
                             : size % numPatterns == 0 && static_cast<long>(size / numPatterns) == data.numMeasurements;
    if (!isTable)
        archive.fail(L"The patterns of a novelty have not as many measurements as it says");
    if ((numPatterns == 0) != model.params.isNull())
        archive.fail(L"A novelty has patterns without parameters, or parameters without patterns");
    for (const double x : data.measurements)
        if (!std::isfinite(x))
            archive.fail(L"A measurement of a novelty is not finite");
    for (const std::vector<double>* const evidences : {&model.bestEvidences, &model.ownEvidences})
        if (std::any_of(evidences->begin(), evidences->end(), [](double each) { return std::isnan(each); }))
            archive.fail(L"An evidence of a novelty is not a number");
}
} // namespace

tkNovelty::tkNovelty() = default;

tkNovelty::tkNovelty(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    const auto model = std::make_shared<tk_NoveltyModel>();
    model->data = dataOf(tk_LabelledPatterns(data));
    model->params = params.clone();
    derive(*model);
    for (std::size_t i = 0; i < model->data.numPatterns(); ++i)
    {
        const LeftOut leftOut(model->data, *model->view, i);
        model->bestEvidences.push_back(leftOut.best);
        model->ownEvidences.push_back(leftOut.own);
    }
    rank(*model);
    model_ = model;
}

long tkNovelty::numMeasurements() const
{
    return model_ ? model_->data.numMeasurements : 0;
}

const std::vector<long>& tkNovelty::categoryLabels() const
{
    static const std::vector<long> none;
    return model_ ? model_->data.labels : none;
}

long tkNovelty::numPatterns() const
{
    return model_ ? static_cast<long>(model_->data.numPatterns()) : 0;
}

tkNovelty::Judgement tkNovelty::judge(const tkFeaturePattern& pattern) const
{
    if (!model_)
        return {1.0, 0.0, {}};
    const tk_NoveltyData& data = model_->data;
    if (pattern.numMeasurements() != data.numMeasurements)
        throw tkClassifierDefs::BadFeatures(L"The pattern has " + std::to_wstring(pattern.numMeasurements()) +
                                            L" measurements, the novelty " + std::to_wstring(data.numMeasurements) +
                                            L".");
    const double* const x = pattern.featureMeasurements(false).data();
    std::vector<long> present;
    for (long j = 0; j < data.numMeasurements; ++j)
        if (pattern.isValid(j) && std::isfinite(x[j]))
            present.push_back(j);
    if (present.empty())
        return {1.0, 0.0, std::vector<double>(data.labels.size(), 1.0)};
    if (static_cast<long>(present.size()) == data.numMeasurements)
        return judgementOf(x, *model_->view, model_->ranks, model_->categoryRanks);

    const std::unique_ptr<const tk_NoveltyEvidence::View> view = model_->evidence->view(present);
    const std::size_t numPatterns = data.numPatterns();
    const std::size_t numRanked = std::min(numPatterns, mostRanked);
    std::vector<double> ranks;
    std::vector<std::vector<double>> categoryRanks(data.labels.size());
    for (std::size_t r = 0; r < numRanked; ++r)
    {
        const LeftOut leftOut(data, *view, (2 * r + 1) * numPatterns / (2 * numRanked));
        ranks.push_back(leftOut.best);
        categoryRanks[leftOut.category].push_back(leftOut.own);
    }
    std::sort(ranks.begin(), ranks.end());
    for (std::vector<double>& each : categoryRanks)
        std::sort(each.begin(), each.end());
    return judgementOf(x, *view, ranks, categoryRanks);
}

bool tkNovelty::operator==(const tkNovelty& other) const
{
    if (!model_ || !other.model_)
        return !model_ && !other.model_;
    const tk_NoveltyData& a = model_->data;
    const tk_NoveltyData& b = other.model_->data;
    return areEqual(*model_->params, *other.model_->params) && a.numMeasurements == b.numMeasurements &&
           a.labels == b.labels && a.ends == b.ends && a.measurements == b.measurements &&
           model_->bestEvidences == other.model_->bestEvidences && model_->ownEvidences == other.model_->ownEvidences;
}

tkArchive& operator||(tkArchive& archive, tkNovelty& novelty)
{
    archive.exchangeVersion();
    const auto loaded = std::make_shared<tk_NoveltyModel>(); // a failed loading changes nothing
    // One operator serves both directions; storing only reads.
    tk_NoveltyModel& exchanged =
        archive.isStoring() && novelty.model_ ? const_cast<tk_NoveltyModel&>(*novelty.model_) : *loaded;
    archive || exchanged.params || exchanged.data.numMeasurements;
    tkExchangeParallel(archive, L"The categories of a novelty are not as many as their ends", exchanged.data.labels,
                       exchanged.data.ends);
    archive || exchanged.data.measurements;
    tkExchangeParallel(archive, L"A novelty has not as many evidences of each kind", exchanged.bestEvidences,
                       exchanged.ownEvidences);
    if (archive.isStoring())
        return archive;
    check(archive, *loaded);
    try
    {
        if (!loaded->params.isNull())
        {
            derive(*loaded);
            rank(*loaded);
        }
    }
    catch (const tkException& error) // what the parameters do not allow
    {
        archive.fail(L"A novelty cannot be learned with its parameters: " + error.message());
    }
    catch (...)
    {
        archive.setFailed();
        throw;
    }
    novelty.model_ = loaded->params.isNull() ? nullptr : loaded;
    return archive;
}
