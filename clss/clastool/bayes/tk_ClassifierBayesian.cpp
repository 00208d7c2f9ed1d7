#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkScratch.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <typeinfo>
#include <unordered_map>
#include <utility>

namespace
{
using DistributionType = tkClassifierDistributionTypes::DistributionType;

const tkClassifierTrainParamsBayesian& bayesianParams(const tkClassifierTrainParams& params)
{
    // Nearly always they are of the class itself, which is quicker to see.
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

/// The patterns of one category that wait to be learned together, which is faster and gives the same bits. Whatever
/// could fail does so at its own pattern; what waits is learned also when something else ends the training.
class WaitingPatterns
{
public:
    WaitingPatterns(tk_CategoryModelBayesian& model, long numMeasurements)
        : model_(model),
          size_(static_cast<std::size_t>(numMeasurements)),
          capacity_(std::min<std::size_t>(16, tkNMNormal::blockSize / std::max<std::size_t>((size_ + 15) / 16 * 16, 1)))
    {
    }
    WaitingPatterns(WaitingPatterns&& other) noexcept
        : model_(other.model_),
          size_(other.size_),
          capacity_(other.capacity_),
          count_(std::exchange(other.count_, 0)),
          values_(std::move(other.values_))
    {
    }
    WaitingPatterns& operator=(WaitingPatterns&&) = delete;
    ~WaitingPatterns() { learn_(); }

    void adapt(const tkFeaturePattern& pattern)
    {
        if (!takes_(pattern))
        {
            learn_();
            model_.adapt(pattern);
            return;
        }
        const std::vector<double>& x = pattern.featureMeasurements(false);
        std::copy(x.begin(), x.end(), &values_[count_ * size_]);
        if (++count_ == capacity_)
            learn_();
    }

private:
    bool takes_(const tkFeaturePattern& pattern)
    {
        const std::vector<double>& x = pattern.featureMeasurements(false);
        if (capacity_ < 2 || x.size() != size_ || pattern.numInvalid() > 0)
            return false;
        bool isInRange = true;
        for (const double v : x)
            isInRange &= std::fabs(v) <= tkNMNormal::largestMagnitude();
        if (!isInRange || (count_ == 0 && !model_.takesBlock(capacity_, static_cast<long>(size_))))
            return false;
        values_.resize(capacity_ * size_);
        return true;
    }

    void learn_() noexcept
    {
        if (count_ > 0)
            model_.adaptBlock(values_.data(), count_, static_cast<long>(size_));
        count_ = 0;
    }

    tk_CategoryModelBayesian& model_;
    std::size_t size_;
    std::size_t capacity_;
    std::size_t count_ = 0;
    std::vector<double> values_; // pattern by pattern
};

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

const tkPersistent::Registration tk_ClassifierBayesian::registration_(typeid(tk_ClassifierBayesian),
                                                                      &tk_ClassifierBayesian::make);

tkPtrHandle<tk_Classifier> tk_ClassifierBayesian::clone() const
{
    return tkPtrHandle<tk_Classifier>(new tk_ClassifierBayesian(*this));
}

bool tk_ClassifierBayesian::isEquivalent(const tk_Classifier& other) const
{
    const auto* const bayesian = dynamic_cast<const tk_ClassifierBayesian*>(&other);
    return bayesian && *this == *bayesian;
}

bool tk_ClassifierBayesian::operator==(const tk_ClassifierBayesian& other) const
{
    if (!tk_Classifier::isEquivalent(other) || categoryModels_.size() != other.categoryModels_.size())
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

    // Providers hand their patterns out through an operation that is not const, although reading is all it does: a
    // provider that computes or caches what it hands out is allowed to.
    auto& provider = const_cast<tkClassifierDataProvider&>(data);
    const long numPatterns = provider.numPatterns();
    const long numMeasurements = provider.numMeasurements();
    std::unordered_map<long, WaitingPatterns> categories;
    for (long p = 0; p < numPatterns; ++p)
    {
        const tkPtrHandle_const<tkFeaturePattern> pattern = provider.featurePattern(p);
        const long label = provider.categoryLabel(p);
        if (label == -1)
            continue;
        const auto found = categories.find(label);
        if (found != categories.end())
        {
            found->second.adapt(*pattern);
            continue;
        }
        const tkPtrHandle<tk_CategoryModelBayesian> model(newModel(label, numMeasurements, bayesian));
        model->adapt(*pattern);
        categoryModels_.reserve(categoryModels_.size() + 1);
        categoryLabels_.push_back(label);
        categoryModels_.push_back(model);
        categories.emplace(label, WaitingPatterns(*model, numMeasurements));
    }
    categories.clear();
    complete_();
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
    // Results whose match scores are still log likelihoods would not pass their own checks, so that these wait here.
    tkScratch<double, 256> scores(categoryModels_.size());
    for (std::size_t i = 0; i < categoryModels_.size(); ++i)
        scores[i] = categoryModels_[i]->matchScore(pattern);

    // trainParams() says what is wrong where there are none; otherwise a handle of one's own is not needed.
    const tkClassifierTrainParamsBayesian& params = bayesianParams(heldParams_() ? *heldParams_() : *trainParams());

    // Written for a NaN to become the maximum and to be replaced by what follows it.
    double best = -HUGE_VAL;
    for (std::size_t i = 0; i < categoryModels_.size(); ++i)
        if (!(best >= scores[i]))
            best = scores[i];
    const double offset = 0.0 - best; // ln 1 - s_max

    std::vector<tkClassifierCategoryResult> categoryResults;
    categoryResults.reserve(categoryModels_.size());
    for (std::size_t i = 0; i < categoryModels_.size(); ++i)
        categoryResults.emplace_back(categoryModels_[i]->categoryLabel(), std::exp(scores[i] + offset), 0.0, 0.0);
    result = tkClassifierResult(std::move(categoryResults), params.categoryFrequencies(),
                                params.misclassificationCosts(), offset);
}

void tk_ClassifierBayesian::complete_()
{
    setReferenceDeviations_();
    for (const tkPtrHandle<tk_CategoryModel>& model : categoryModels_)
        bayesianModel(model).groupDensities();
}

/// With the count n_c, mean m_c and variance v_c of measurement j in category c, N the sum of the n_c:
///     m = (sum of n_c m_c) / N,   deviation² = (sum of (n_c - 1) v_c + n_c (m_c - m)²) / N.
void tk_ClassifierBayesian::setReferenceDeviations_()
{
    struct Sums
    {
        double count = 0.0;
        double values = 0.0;
        double squares = 0.0;
    };
    std::map<long, Sums> sums;
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, const tk_PDFMultivariateNormal& density)
                  {
                      const tkNMNormal& normal = density.normal();
                      const double n = static_cast<double>(normal.count());
                      for (std::size_t j = 0; j < set.size(); ++j)
                      {
                          sums[set[j]].count += n;
                          sums[set[j]].values += n * normal.mean(static_cast<long>(j));
                      }
                  });
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, const tk_PDFMultivariateNormal& density)
                  {
                      const tkNMNormal& normal = density.normal();
                      const double n = static_cast<double>(normal.count());
                      for (std::size_t j = 0; j < set.size(); ++j)
                      {
                          Sums& sum = sums[set[j]];
                          const double distance = normal.mean(static_cast<long>(j)) - sum.values / sum.count;
                          sum.squares += (n - 1.0) * normal.variance(static_cast<long>(j)) + n * distance * distance;
                      }
                  });
    forEachNormal(categoryModels_,
                  [&](const std::vector<long>& set, tk_PDFMultivariateNormal& density)
                  {
                      std::vector<double> deviations;
                      for (const long index : set)
                          deviations.push_back(std::sqrt(sums[index].squares / sums[index].count));
                      density.referenceDeviations(deviations);
                  });
}

void tk_ClassifierBayesian::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tk_ClassifierBayesian::serialize_);
}

void tk_ClassifierBayesian::serialize_(tkArchive& archive, unsigned char version)
{
    tkArchive::requireVersion0(version);
    std::vector<tkPtrHandle<tk_CategoryModel>> models;
    if (archive.isLoading())
        categoryModels_.clear(); // what fails from here leaves it untrained
    else
        models = categoryModels_;
    tk_Classifier::dispatchSerialize(archive);
    archive || categoryLabels_ || models;
    if (!archive.isLoading())
        return;
    if (heldParams_() && !dynamic_cast<const tkClassifierTrainParamsBayesian*>(heldParams_()))
        throw tkArchive::Errors(L"A Bayesian classifier has parameters of another technique");
    for (const tkPtrHandle<tk_CategoryModel>& model : models)
        if (!dynamic_cast<const tk_CategoryModelBayesian*>(model.get()))
            throw tkArchive::Errors(L"A stored Bayesian classifier has a category without a Bayesian model");
    categoryModels_ = std::move(models);
    complete_();
}

tkPersistent* tk_ClassifierBayesian::make()
{
    return new tk_ClassifierBayesian;
}
