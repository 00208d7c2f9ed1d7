#include "clss/model/tkTrainingReport.h"

#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tk_ClassifierIncomplete.h"
#include "clss/model/tk_ClassifierPooled.h"
#include "clss/model/tk_LabelledPatterns.h"
#include "clss/model/tk_LeaveOneOut.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMFactorisation.h"
#include "numerics/tkNMNormal.h"
#include "numerics/tkNMStatistics.h"
#include "numerics/tkNMSymmetricEigen.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <map>
#include <memory>
#include <numeric>
#include <sstream>
#include <tuple>
#include <typeinfo>
#include <utility>

namespace
{
using Category = tkTrainingReport::Category;
using Measurement = tkTrainingReport::Measurement;
using ScarceSet = tkTrainingReport::ScarceSet;
using NearDependency = tkTrainingReport::NearDependency;
using DoubtfulLabel = tkTrainingReport::DoubtfulLabel;

constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr double largest = std::numeric_limits<double>::max();

/// Whether measurement j of the pattern, which has one, is valid and finite.
bool counts(const tkFeaturePattern& pattern, long j)
{
    return pattern.isValid(j) && std::isfinite(pattern.featureMeasurements(false)[static_cast<std::size_t>(j)]);
}

std::vector<Category> categoriesOf(const tk_LabelledPatterns& data)
{
    std::map<long, Category> categories;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
    {
        Category& category = categories.emplace(data.labels[i], Category{data.labels[i], 0, 0}).first->second;
        bool isComplete = true;
        for (long j = 0; j < data.numMeasurements; ++j)
            isComplete = isComplete && counts(*data.patterns[i], j);
        ++category.numPatterns;
        category.numComplete += isComplete ? 1 : 0;
    }
    std::vector<Category> ascending;
    ascending.reserve(categories.size());
    for (const auto& [label, category] : categories)
        ascending.push_back(category);
    return ascending;
}

/// Mean and sum of squares of values, in a unit of a power of two above all magnitudes: squares neither overflow nor
/// vanish.
struct Spread
{
    explicit Spread(const std::vector<double>& values) : exponent(0), statistics(1)
    {
        double magnitude = 0.0;
        for (const double value : values)
            magnitude = std::max(magnitude, std::abs(value));
        static_cast<void>(std::frexp(magnitude, &exponent));
        for (const double value : values)
        {
            const double scaled = std::ldexp(value, -exponent);
            statistics.add(&scaled);
        }
    }

    double squares() const { return statistics.crossProducts(0, 0); }
    double deviation() const
    {
        return statistics.count < 2 ? 0.0 : std::sqrt(squares() / (static_cast<double>(statistics.count) - 1.0));
    }
    /// Whether there is more than rounding, by the rule of the normal density.
    bool varies() const { return deviation() > 0x1p-52 * std::abs(statistics.mean[0]); }

    int exponent; // of the unit
    tkNMStatistics statistics;
};

Measurement measurementOf(const tk_LabelledPatterns& data, long j)
{
    Measurement measurement{0, 0, 0.0, 0.0, {}};
    std::vector<double> all;
    std::map<long, std::vector<double>> ofCategories;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
    {
        const tkFeaturePattern& pattern = *data.patterns[i];
        if (!pattern.isValid(j))
            ++measurement.numInvalid;
        else if (!counts(pattern, j))
            ++measurement.numNonFinite;
        else
        {
            all.push_back(pattern.featureMeasurement(j, true));
            ofCategories[data.labels[i]].push_back(all.back());
        }
    }
    const Spread total(all);
    if (!total.varies())
        return measurement;
    measurement.deviation = std::clamp(std::ldexp(total.deviation(), total.exponent), smallest, largest);
    double within = 0.0; // sum of squares
    for (const auto& [label, values] : ofCategories)
    {
        const Spread spread(values);
        within += std::ldexp(spread.squares(), 2 * (spread.exponent - total.exponent));
        if (values.size() > 1 && !spread.varies())
            measurement.constantIn.push_back(label);
    }
    measurement.separation = std::max(0.0, 1.0 - within / total.squares());
    return measurement;
}

/// Groups of equal patterns of different labels.
std::vector<std::vector<long>> contradictionsOf(const tk_LabelledPatterns& data)
{
    // What does not count becomes one value, which no finite one equals.
    const double nothing = std::numeric_limits<double>::infinity();
    std::map<std::vector<double>, std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < data.patterns.size(); ++i)
    {
        std::vector<double> values = data.patterns[i]->featureMeasurements(false);
        for (std::size_t j = 0; j < values.size(); ++j)
            if (!counts(*data.patterns[i], static_cast<long>(j)))
                values[j] = nothing;
        groups[std::move(values)].push_back(i);
    }
    std::vector<std::vector<long>> contradictions;
    for (const auto& [values, group] : groups)
    {
        const long first = data.labels[group.front()];
        if (std::all_of(group.begin(), group.end(), [&](std::size_t i) { return data.labels[i] == first; }))
            continue;
        contradictions.emplace_back();
        for (const std::size_t i : group)
            contradictions.back().push_back(data.indices[i]);
    }
    std::sort(contradictions.begin(), contradictions.end());
    return contradictions;
}

/// The measurements that the norm distance hardly sees.
std::vector<long> outweighedOf(const std::vector<Measurement>& measurements, const tkClassifierTrainParams& params)
{
    const auto* const neighbors = dynamic_cast<const tkClassifierTrainParamsKNN*>(&params);
    if (!neighbors)
        return {};
    const tkPtrHandle_const<tkPatternDistanceMetric> handle = neighbors->distanceMetric();
    const tkPatternDistanceMetric& metric = *handle;
    if (typeid(metric) != typeid(tkPatternDistanceMetricNorm))
        return {};
    double most = 0.0;
    for (const Measurement& measurement : measurements)
        most = std::max(most, measurement.deviation);
    std::vector<long> outweighed;
    for (std::size_t j = 0; j < measurements.size(); ++j)
        if (measurements[j].deviation > 0.0 && measurements[j].deviation < 0.1 * most)
            outweighed.push_back(static_cast<long>(j));
    return outweighed;
}

/// An untrained classifier of the parameters, which has densities; null if they are not Bayesian.
tkPtrHandle<tk_ClassifierBayesian> classifierOf(const tkClassifierTrainParams& params)
{
    if (dynamic_cast<const tkCovariancePooling*>(&params))
        return tkPtrHandle<tk_ClassifierBayesian>(new tk_ClassifierPooled);
    if (dynamic_cast<const tkIncompleteTraining*>(&params))
        return tkPtrHandle<tk_ClassifierBayesian>(new tk_ClassifierIncomplete);
    if (dynamic_cast<const tkClassifierTrainParamsBayesian*>(&params))
        return tkPtrHandle<tk_ClassifierBayesian>(new tk_ClassifierBayesian);
    return tkPtrHandle<tk_ClassifierBayesian>();
}

/// Appends the directions in which the density of a set hardly varies.
void addNearDependencies(long label, const std::vector<long>& set, const tkNMNormal& normal,
                         std::vector<NearDependency>& dependencies)
{
    const auto& roles = normal.factorisation().covariance.measurements;
    const tkNMMatrix covariance = normal.covariance();
    std::vector<long> places;
    std::vector<long> measurements;
    std::vector<double> deviations;
    for (std::size_t j = 0; j < roles.size(); ++j)
        if (roles[j].role == tkNMCovarianceFactor::eVaries)
        {
            places.push_back(static_cast<long>(j));
            measurements.push_back(set[j]);
            deviations.push_back(std::sqrt(covariance(places.back(), places.back())));
        }
    const std::size_t d = places.size();
    if (d < 2)
        return;
    std::vector<double> correlations(d * d);
    for (std::size_t i = 0; i < d; ++i)
        for (std::size_t j = 0; j < d; ++j)
            correlations[i * d + j] = i == j ? 1.0 : covariance(places[i], places[j]) / deviations[i] / deviations[j];
    std::vector<double> variances(d);
    if (!tkNMSymmetricEigen(d, correlations.data(), variances.data()))
        return;
    std::vector<std::size_t> ascending(d);
    std::iota(ascending.begin(), ascending.end(), std::size_t{0});
    std::stable_sort(ascending.begin(), ascending.end(),
                     [&](std::size_t a, std::size_t b) { return variances[a] < variances[b]; });
    constexpr double index = 30.0;
    for (const std::size_t k : ascending)
    {
        if (!(variances[k] * index * index < variances[ascending.back()]))
            return;
        const double* const direction = &correlations[k * d];
        NearDependency dependency{label, measurements, std::vector<double>(direction, direction + d),
                                  std::sqrt(std::max(variances[k], 0.0))};
        const double longest = *std::max_element(dependency.weights.begin(), dependency.weights.end(),
                                                 [](double a, double b) { return std::abs(a) < std::abs(b); });
        if (longest < 0.0)
            for (double& weight : dependency.weights)
                weight = -weight;
        dependencies.push_back(std::move(dependency));
    }
}

/// What a training without pattern i says of it.
tkClassifierResult leftOut(const tk_LeftOutJudge& judge, std::size_t i, const tkClassifierDataProvider& data,
                           const tk_LabelledPatterns& labelled, const tkClassifierTrainParams& params)
{
    if (judge)
        return judge(i);
    std::vector<long> folds(static_cast<std::size_t>(data.numPatterns()), -1);
    folds[static_cast<std::size_t>(labelled.indices[i])] = 0;
    return tkAssessment::crossValidate(data, params, folds).result(0, params);
}

auto fieldsOf(const Category& c)
{
    return std::tie(c.label, c.numPatterns, c.numComplete);
}
auto fieldsOf(const Measurement& m)
{
    return std::tie(m.numInvalid, m.numNonFinite, m.deviation, m.separation, m.constantIn);
}
auto fieldsOf(const ScarceSet& s)
{
    return std::tie(s.label, s.measurements, s.numPatterns);
}
auto fieldsOf(const NearDependency& n)
{
    return std::tie(n.label, n.measurements, n.weights, n.deviation);
}
auto fieldsOf(const DoubtfulLabel& d)
{
    return std::tie(d.pattern, d.label, d.decided, d.score);
}

template <class Part>
bool areEqual(const std::vector<Part>& a, const std::vector<Part>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Part& x, const Part& y) { return fieldsOf(x) == fieldsOf(y); });
}

/// "3, 5, 8"
std::wstring listOf(const std::vector<long>& numbers)
{
    std::wstring list;
    for (const long number : numbers)
        list += (list.empty() ? L"" : L", ") + std::to_wstring(number);
    return list;
}

/// "measurement 3", "measurements 3, 5"
std::wstring measurementsOf(const std::vector<long>& numbers)
{
    return (numbers.size() == 1 ? L"measurement " : L"measurements ") + listOf(numbers);
}

/// "1 pattern", "2 patterns"
std::wstring patterns(long count)
{
    return std::to_wstring(count) + (count == 1 ? L" pattern" : L" patterns");
}

/// "0.71 m3 - 0.7 m5": the measurements with a weight of at least a tenth of the largest.
void writeDirection(std::wostream& stream, const NearDependency& dependency)
{
    double longest = 0.0;
    for (const double weight : dependency.weights)
        longest = std::max(longest, weight);
    bool isFirst = true;
    for (std::size_t j = 0; j < dependency.weights.size(); ++j)
    {
        const double weight = dependency.weights[j];
        if (std::abs(weight) < 0.1 * longest)
            continue;
        const wchar_t* const sign = weight < 0.0 ? (isFirst ? L"-" : L" - ") : (isFirst ? L"" : L" + ");
        stream << sign << std::abs(weight) << L" m" << dependency.measurements[j];
        isFirst = false;
    }
}
} // namespace

tkTrainingReport::tkTrainingReport(const tkClassifierDataProvider& data, const tkClassifierTrainParams& params,
                                   const Progress& progress)
{
    const tk_LabelledPatterns labelled(data);
    const std::size_t numPatterns = labelled.patterns.size();
    categories_ = categoriesOf(labelled);
    numUnlabelled_ = data.numPatterns() - static_cast<long>(numPatterns);
    for (long j = 0; j < labelled.numMeasurements; ++j)
        measurements_.push_back(measurementOf(labelled, j));
    contradictions_ = contradictionsOf(labelled);
    outweighed_ = outweighedOf(measurements_, params);

    const tkPtrHandle<tk_ClassifierBayesian> classifier = classifierOf(params);
    tk_LeftOutJudge judge;
    try
    {
        tkClassifierTool().train(data, params);
        if (classifier)
            classifier->train(data, params);
        judge = tk_leaveOneOut(labelled, params);
    }
    catch (const tkException& error)
    {
        trainingError_ = error.message();
        numUnjudged_ = static_cast<long>(numPatterns);
        return;
    }
    if (classifier)
        addSets_(*classifier);
    for (std::size_t i = 0; i < numPatterns; ++i)
    {
        try
        {
            const tkClassifierResult result = leftOut(judge, i, data, labelled, params);
            for (const tkClassifierCategoryResult& category : result.categoryResults())
                if (category.categoryLabel() != labelled.labels[i] && category.classScore() >= 0.99)
                    doubtfulLabels_.push_back(
                        {labelled.indices[i], labelled.labels[i], category.categoryLabel(), category.classScore()});
        }
        catch (const tkException&)
        {
            ++numUnjudged_;
        }
        if (progress)
            progress(static_cast<long>(i) + 1, static_cast<long>(numPatterns));
    }
}

void tkTrainingReport::addSets_(const tk_ClassifierBayesian& classifier)
{
    for (const tkPtrHandle<tk_CategoryModel>& handle : classifier.categoryModels())
    {
        const auto& model = dynamic_cast<const tk_CategoryModelBayesian&>(*handle);
        for (std::size_t s = 0; s < model.densities().size(); ++s)
        {
            const auto* const density = dynamic_cast<const tk_PDFMultivariateNormal*>(model.densities()[s].get());
            const std::vector<long>& set = model.dependencySets()[s];
            if (!density)
                continue;
            const tkNMNormal& normal = density->normal();
            if (normal.count() < 10 * static_cast<long>(set.size()))
                scarceSets_.push_back({model.categoryLabel(), set, normal.count()});
            if (normal.count() > static_cast<long>(set.size()) && normal.dimension() == static_cast<long>(set.size()))
                addNearDependencies(model.categoryLabel(), set, normal, nearDependencies_);
        }
    }
}

std::wstring tkTrainingReport::text() const
{
    std::wostringstream stream;
    stream.imbue(std::locale::classic());
    stream.precision(3);
    for (const Category& category : categories_)
        stream << L"Category " << category.label << L": " << patterns(category.numPatterns) << L", "
               << category.numComplete << L" complete.\n";
    stream << L"Without a label: " << patterns(numUnlabelled_) << L".\n";
    for (std::size_t j = 0; j < measurements_.size(); ++j)
    {
        const Measurement& measurement = measurements_[j];
        stream << L"Measurement " << j << L": " << measurement.numInvalid << L" invalid, " << measurement.numNonFinite
               << L" not finite, ";
        if (measurement.deviation == 0.0)
            stream << L"constant";
        else
            stream << L"deviation " << measurement.deviation << L", eta squared " << measurement.separation;
        if (!measurement.constantIn.empty())
            stream << (measurement.constantIn.size() == 1 ? L", constant in category " : L", constant in categories ")
                   << listOf(measurement.constantIn);
        stream << L".\n";
    }
    for (const ScarceSet& set : scarceSets_)
    {
        const auto size = static_cast<long>(set.measurements.size());
        stream << L"Category " << set.label << L", " << measurementsOf(set.measurements) << L": learned from "
               << patterns(set.numPatterns) << L"; " << 10 * size << L" are advised"
               << (set.numPatterns > size ? L".\n" : L", and the covariance is singular.\n");
    }
    for (const NearDependency& dependency : nearDependencies_)
    {
        stream << L"Category " << dependency.label << L", " << measurementsOf(dependency.measurements)
               << L": nearly dependent. In units of deviations, ";
        writeDirection(stream, dependency);
        stream << L" has the deviation " << dependency.deviation << L".\n";
    }
    for (const std::vector<long>& equal : contradictions_)
        stream << L"Patterns " << listOf(equal) << L" are equal, but not their labels.\n";
    for (const DoubtfulLabel& doubt : doubtfulLabels_)
        stream << L"Pattern " << doubt.pattern << L" of category " << doubt.label << L": a training without it says "
               << doubt.decided << L" with score " << doubt.score << L".\n";
    if (!outweighed_.empty())
        stream << L"Nearest neighbours hardly see " << measurementsOf(outweighed_)
               << L": the patterns need to be scaled.\n";
    if (!trainingError_.empty())
        stream << L"The training fails: " << trainingError_ << L'\n';
    else if (numUnjudged_ > 0)
        stream << L"Not judged, since a training without the pattern fails, or its run: " << patterns(numUnjudged_)
               << L".\n";
    return stream.str();
}

bool tkTrainingReport::operator==(const tkTrainingReport& other) const
{
    return areEqual(categories_, other.categories_) && numUnlabelled_ == other.numUnlabelled_ &&
           areEqual(measurements_, other.measurements_) && areEqual(scarceSets_, other.scarceSets_) &&
           areEqual(nearDependencies_, other.nearDependencies_) && contradictions_ == other.contradictions_ &&
           areEqual(doubtfulLabels_, other.doubtfulLabels_) && numUnjudged_ == other.numUnjudged_ &&
           outweighed_ == other.outweighed_ && trainingError_ == other.trainingError_;
}

// The parts of a report have no version of their own. These operators are for the vectors that hold them.

static tkArchive& operator||(tkArchive& archive, Category& category)
{
    return archive || category.label || category.numPatterns || category.numComplete;
}

static tkArchive& operator||(tkArchive& archive, Measurement& measurement)
{
    return archive || measurement.numInvalid || measurement.numNonFinite || measurement.deviation ||
           measurement.separation || measurement.constantIn;
}

static tkArchive& operator||(tkArchive& archive, ScarceSet& set)
{
    return archive || set.label || set.measurements || set.numPatterns;
}

static tkArchive& operator||(tkArchive& archive, NearDependency& dependency)
{
    archive || dependency.label;
    tkExchangeParallel(archive, L"A nearly dependent direction has not as many weights as measurements",
                       dependency.measurements, dependency.weights);
    return archive || dependency.deviation;
}

static tkArchive& operator||(tkArchive& archive, DoubtfulLabel& doubt)
{
    return archive || doubt.pattern || doubt.label || doubt.decided || doubt.score;
}

tkArchive& operator||(tkArchive& archive, tkTrainingReport& report)
{
    tkTrainingReport loaded; // a failed loading changes nothing
    tkTrainingReport& exchanged = archive.isLoading() ? loaded : report;
    archive.exchangeVersion();
    archive || exchanged.categories_ || exchanged.numUnlabelled_ || exchanged.measurements_ || exchanged.scarceSets_ ||
        exchanged.nearDependencies_ || exchanged.contradictions_ || exchanged.doubtfulLabels_ ||
        exchanged.numUnjudged_ || exchanged.outweighed_ || exchanged.trainingError_;
    if (archive.isLoading())
        report = std::move(loaded);
    return archive;
}
