#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_BayesAccelerator.h"
#include "clss/clastool/bayes/tk_BayesTrainer.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"
#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/tkNMNormal.h"
#include "numerics/tkNMReferenceDeviation.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <typeinfo>
#include <unordered_set>
#include <utility>

namespace
{
using DistributionType = tkClassifierDistributionTypes::DistributionType;

const tkClassifierTrainParamsBayesian& bayesianParams(const tkClassifierTrainParams& params)
{
    // Nearly always they are of the class itself, for which no base classes are searched.
    if (typeid(params) == typeid(tkClassifierTrainParamsBayesian))
        return static_cast<const tkClassifierTrainParamsBayesian&>(params);
    const auto* const bayesian = dynamic_cast<const tkClassifierTrainParamsBayesian*>(&params);
    TK_ASSERT(bayesian != nullptr);
    return *bayesian;
}

tk_CategoryModelBayesian& bayesianModel(const tkPtrHandle<tk_CategoryModel>& model)
{
    auto* const bayesian = dynamic_cast<tk_CategoryModelBayesian*>(model.get());
    TK_ASSERT(bayesian != nullptr);
    return *bayesian;
}

/// The untrained model of a category whose patterns have `numMeasurements` measurements: each measurement that no
/// earlier set holds brings its dependency set, or is a set of its own.
tk_CategoryModelBayesian* newModel(long label, long numMeasurements, const tkClassifierTrainParamsBayesian& params)
{
    const tkClassifierDistributionTypes& types = params.distributionTypes();
    std::vector<std::vector<long>> sets;
    std::vector<DistributionType> setTypes;
    std::vector<bool> isTaken(static_cast<std::size_t>(numMeasurements), false);
    for (long j = 0; j < numMeasurements; ++j)
    {
        if (isTaken[static_cast<std::size_t>(j)])
            continue;
        sets.push_back({j});
        for (long s = 0; s < types.numDependencySets(); ++s)
        {
            const std::vector<long>& set = types.dependencySet(s);
            if (types.dependencySetCategory(s) == label && std::find(set.begin(), set.end(), j) != set.end())
            {
                sets.back() = set;
                break;
            }
        }
        setTypes.push_back(types.distributionType(label, j));
        for (const long index : sets.back())
            if (index >= 0 && index < numMeasurements)
                isTaken[static_cast<std::size_t>(index)] = true;
    }
    return new tk_CategoryModelBayesian(label, sets, setTypes, params.maxMeasurementValues());
}

/// Prefetches the patterns after `p`, which may lie anywhere: first the object, then, when its turn comes to be read
/// without waiting, the measurements that it points to.
void fetchAhead(const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns, std::size_t p)
{
    const std::size_t object = p + 16;
    const std::size_t measurements = p + 8;
    if (object < patterns.size())
        tkPrefetch(patterns[object].get());
    if (measurements < patterns.size() && patterns[measurements])
    {
        const std::vector<double>& x = patterns[measurements]->featureMeasurements(false);
        for (std::size_t j = 0; j < x.size(); j += 8)
            tkPrefetch(&x[j]);
        if (!x.empty())
            tkPrefetch(&x.back());
    }
}

/// Calls visit(set, density) for every trained normal density.
template <class Visit>
void forEachNormal(const std::vector<tkPtrHandle<tk_CategoryModel>>& models, Visit visit)
{
    for (const tkPtrHandle<tk_CategoryModel>& handle : models)
    {
        const tk_CategoryModelBayesian& model = bayesianModel(handle);
        for (std::size_t i = 0; i < model.densities().size(); ++i)
        {
            auto* const normal = dynamic_cast<tk_PDFMultivariateNormal*>(model.densities()[i].get());
            const auto& set = model.dependencySets()[i];
            if (normal && normal->isValid() && normal->normal().dimension() == static_cast<long>(set.size()))
                visit(set, *normal);
        }
    }
}
} // namespace

tkPtrHandle<tk_Classifier> tk_ClassifierBayesian::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierBayesian(*this));
}

bool tk_ClassifierBayesian::isEquivalent(const tk_Classifier& other) const
{
    return typeid(*this) == typeid(other) && *this == static_cast<const tk_ClassifierBayesian&>(other);
}

bool tk_ClassifierBayesian::operator==(const tk_ClassifierBayesian& other) const
{
    if (typeid(*this) != typeid(other) || !tk_Classifier::isEquivalent(other) ||
        categoryModels_.size() != other.categoryModels_.size())
        return false;
    for (std::size_t i = 0; i < categoryModels_.size(); ++i)
        if (bayesianModel(categoryModels_[i]) != bayesianModel(other.categoryModels_[i]))
            return false;
    return true;
}

void tk_ClassifierBayesian::train_(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params)
{
    const tkClassifierTrainParamsBayesian& bayesian = bayesianParams(params);
    // A training starts from no categories; untrain_() leaves their labels.
    categoryLabels_.clear();
    categoryModels_.clear();
    accelerator_.reset();

    learn_(data, bayesian);
    complete_();
}

void tk_ClassifierBayesian::learn_(const tkClassifierDataProvider& data, const tkClassifierTrainParamsBayesian& params)
{
    // Providers hand their patterns out through an operation that is not const, although reading is all it does: a
    // provider that computes or caches what it hands out is allowed to.
    auto& provider = const_cast<tkClassifierDataProvider&>(data);
    const long numPatterns = provider.numPatterns();
    const long numMeasurements = provider.numMeasurements();
    tk_BayesTrainer trainer(numMeasurements, numPatterns);
    const auto learn = [&](const tkPtrHandle_const<tkFeaturePattern>& pattern, long label)
    {
        if (label == -1 || trainer.adapt(label, pattern))
            return;
        const tkPtrHandle<tk_CategoryModelBayesian> model(newModel(label, numMeasurements, params));
        model->adapt(*pattern);
        categoryModels_.reserve(categoryModels_.size() + 1);
        categoryLabels_.push_back(label);
        categoryModels_.push_back(model);
        trainer.add(label, *model);
    };
    if (typeid(data) == typeid(tkClassifierDataProviderMemory))
    {
        // This class hands out what stands in its vectors. Reading it there saves a change of the reference count for
        // every pattern, which costs as much as learning it.
        const auto& memory = static_cast<const tkClassifierDataProviderMemory&>(data);
        for (std::size_t p = 0; p < memory.patterns().size(); ++p)
        {
            fetchAhead(memory.patterns(), p);
            learn(memory.patterns()[p], memory.labels()[p]);
        }
        return;
    }
    for (long p = 0; p < numPatterns; ++p)
    {
        const tkPtrHandle_const<tkFeaturePattern> pattern = provider.featurePattern(p);
        learn(pattern, provider.categoryLabel(p));
    }
}

void tk_ClassifierBayesian::retrain_(const tkClassifierTrainParams& params)
{
    const tkClassifierTrainParamsBayesian& bayesian = bayesianParams(params);
    const tkPtrHandle_const<tkClassifierTrainParams> kept = trainParams();
    const tkClassifierTrainParamsBayesian& current = bayesianParams(*kept);
    if (bayesian.distributionTypes() != current.distributionTypes())
        throw tkClassifierDefs::BadParams(L"Cannot retrain a Bayesian classifier with different distribution types.");
    if (bayesian.maxMeasurementValues() != current.maxMeasurementValues())
        throw tkClassifierDefs::BadParams(
            L"Cannot retrain a Bayesian classifier with different maximum measurements values.");
}

void tk_ClassifierBayesian::trainStart_(const tkClassifierTrainParams&) {}

void tk_ClassifierBayesian::trainIncremental_(const tkFeaturePattern&, long)
{
    const bool bayesianClassifierLearnsIncrementally = false;
    TK_ASSERT(bayesianClassifierLearnsIncrementally);
}

void tk_ClassifierBayesian::untrain_()
{
    categoryModels_.clear();
    accelerator_.reset();
}

bool tk_ClassifierBayesian::isTrained_() const
{
    return !categoryModels_.empty();
}

void tk_ClassifierBayesian::checkRunnable_() const
{
    if (categoryModels_.empty())
        throw tkClassifierDefs::InsufficientTrainData(tk_Messages::noValidTrainData);
    const long numMeasurements = categoryModels_.front()->numMeasurements();
    tkClassifierResult result;
    run_(tkFeaturePattern(std::vector<double>(static_cast<std::size_t>(numMeasurements), 0.0)), result);
}

void tk_ClassifierBayesian::run_(const tkFeaturePattern& pattern, tkClassifierResult& result) const
{
    TK_ASSERT(isTrained_());
    const std::size_t n = categoryModels_.size();
    tkScratch<double, 256> scores((n + 7) / 8 * 8); // first the log likelihoods; decide() reads whole eights
    matchScores_(pattern, scores.data());

    // trainParams() throws the right error when there are none.
    const tkClassifierTrainParamsBayesian& params = bayesianParams(heldParams_() ? *heldParams_() : *trainParams());

    // Written for a NaN to become the maximum and to be replaced by what follows it.
    double best = -HUGE_VAL;
    for (std::size_t i = 0; i < n; ++i)
        if (!(best >= scores[i]))
            best = scores[i];
    const double offset = 0.0 - best; // ln 1 - s_max

    for (std::size_t i = 0; i < n; ++i)
        scores[i] = scores[i] + offset;
    tkNMElementaryKernel::exp(scores.data(), scores.data(), n, tkNMBestInstructions());

    tkScratch<long, 256> labels(n);
    for (std::size_t i = 0; i < n; ++i)
    {
        labels[i] = categoryModels_[i]->categoryLabel();
        // The order of errors: label, then score, category by category.
        static_cast<void>(tkClassifierCategoryResult(labels[i], scores[i]));
    }
    std::fill(scores.begin() + n, scores.end(), 0.0);
    result.decide(labels.data(), scores.data(), n, params.categoryFrequencies(), params.misclassificationCosts(),
                  offset);
}

void tk_ClassifierBayesian::complete_()
{
    setReferenceDeviations_();
    accelerator_ = std::make_shared<const tk_BayesAccelerator>(categoryModels_);
}

void tk_ClassifierBayesian::matchScores_(const tkFeaturePattern& pattern, double* scores) const
{
    if (accelerator_)
        return accelerator_->matchScores(categoryModels_, pattern, scores);
    for (std::size_t i = 0; i < categoryModels_.size(); ++i) // after a training that failed
        scores[i] = categoryModels_[i]->matchScore(pattern);
}

void tk_ClassifierBayesian::setReferenceDeviations_()
{
    std::map<long, tkNMReferenceDeviation> references;
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, const tk_PDFMultivariateNormal& density)
                  {
                      const tkNMStatistics& s = density.normal().statistics();
                      for (std::size_t j = 0; j < set.size(); ++j)
                          references[set[j]].addMean(static_cast<double>(s.count), s.mean[j], s.compensation[j]);
                  });
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, const tk_PDFMultivariateNormal& density)
                  {
                      const tkNMStatistics& s = density.normal().statistics();
                      for (std::size_t j = 0; j < set.size(); ++j)
                          references[set[j]].addSquares(static_cast<double>(s.count), s.mean[j], s.compensation[j],
                                                        s.crossProducts(j, j));
                  });
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, tk_PDFMultivariateNormal& density)
                  {
                      std::vector<double> deviations;
                      deviations.reserve(set.size());
                      for (const long index : set)
                          deviations.push_back(references[index].value());
                      density.referenceDeviations(deviations);
                  });
}

TK_DEFINE_FACTORY_RECORD(tk_ClassifierBayesian, 0)

void tk_ClassifierBayesian::serialize_(tkArchive& archive, unsigned char)
{
    std::vector<tkPtrHandle<tk_CategoryModel>> models;
    if (archive.isLoading())
        untrain_(); // what fails from here leaves it so
    else
        models = categoryModels_;
    tk_Classifier::dispatchSerialize(archive);
    archive || categoryLabels_ || models;
    if (!archive.isLoading())
        return;
    if (heldParams_() && !dynamic_cast<const tkClassifierTrainParamsBayesian*>(heldParams_()))
        archive.fail(L"A Bayesian classifier has parameters of another technique");
    std::unordered_set<const tk_CategoryModel*> distinct;
    for (const tkPtrHandle<tk_CategoryModel>& model : models)
    {
        if (!dynamic_cast<const tk_CategoryModelBayesian*>(model.get()))
            archive.fail(L"A stored Bayesian classifier has a category without a Bayesian model");
        if (!distinct.insert(model.get()).second)
            archive.fail(L"A stored Bayesian classifier has the same category model more than once");
    }
    categoryModels_ = std::move(models);
    try
    {
        complete_();
    }
    catch (...)
    {
        untrain_();
        throw;
    }
}
