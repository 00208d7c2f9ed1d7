#ifndef TESTS_BAYES_BAYESTESTDATA_H
#define TESTS_BAYES_BAYESTESTDATA_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"

#include <cmath>
#include <numeric>
#include <random>
#include <vector>

/// Data and classifiers that the tests of Bayesian classification share.
namespace bayesTest
{
using Types = tkClassifierDistributionTypes;
using Params = tkClassifierTrainParamsBayesian;
using Rows = std::vector<std::vector<double>>;
using Sets = std::vector<std::vector<long>>;
using Density = tkPtrHandle<tk_ProbabilityDensityFunction>;
using Densities = std::vector<Density>;

inline tkClassifierDataProviderMemory provider(const Rows& rows, const std::vector<long>& labels)
{
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    for (const std::vector<double>& row : rows)
        patterns.emplace_back(new tkFeaturePattern(row));
    tkClassifierDataProviderMemory data;
    data.data(patterns, labels);
    return data;
}

/// Three overlapping categories of dependent measurements.
inline void randomData(std::size_t count, std::size_t dimension, unsigned seed, Rows& rows, std::vector<long>& labels)
{
    std::mt19937_64 generator(seed);
    std::normal_distribution<double> deviate;
    for (std::size_t i = 0; i < count; ++i)
    {
        const long label = static_cast<long>(i % 3);
        const double common = deviate(generator);
        std::vector<double> row(dimension);
        for (std::size_t j = 0; j < dimension; ++j)
            row[j] = common * (label == 1 ? 1.0 : 0.2) + deviate(generator) + 0.3 * static_cast<double>(label);
        rows.push_back(row);
        labels.push_back(label * 10);
    }
}

inline Types joint(std::size_t dimension)
{
    Types types(Types::eNormal);
    std::vector<long> all;
    for (std::size_t j = 0; j < dimension; ++j)
        all.push_back(static_cast<long>(j));
    for (const long label : {0, 10, 20})
        types.setDependent(label, all);
    return types;
}

inline const tk_CategoryModelBayesian& model(const tk_ClassifierBayesian& classifier, std::size_t i)
{
    return dynamic_cast<const tk_CategoryModelBayesian&>(*classifier.categoryModels()[i]);
}

inline tkClassifierResult run(const tk_Classifier& classifier, const std::vector<double>& row)
{
    tkClassifierResult result;
    classifier.run(tkFeaturePattern(row), result);
    return result;
}

inline bool haveSameBits(double a, double b)
{
    return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b);
}

/// 27 categories of 20 measurements, by label: 0 to 10, sets of neighbours and single ones; 11 to 18, all apart; 19 and
/// 20, all in one set; 21, the same with others; 22 and 23, not neighbours; 24 to 26 with a binomial one, if asked for.
inline tk_ClassifierBayesian manyCategories(unsigned seed, bool withBinomials)
{
    Rows rows;
    std::vector<long> labels;
    randomData(600, 20, seed, rows, labels);
    for (std::size_t i = 0; i < labels.size(); ++i)
    {
        labels[i] = static_cast<long>(i % 27);
        rows[i][7] = 1.0 + std::fabs(rows[i][7]);
    }
    Types types(Types::eNormal);
    std::vector<long> all(20);
    std::iota(all.begin(), all.end(), 0L);
    for (long label = 0; label <= 10; ++label)
    {
        types.setDependent(label, {0, 1, 2, 3, 4});
        types.setDependent(label, {6, 7, 8, 9, 10, 11, 12, 13, 14});
    }
    for (const long label : {19L, 20L})
        types.setDependent(label, all);
    types.setDependent(21, std::vector<long>(all.begin(), all.end() - 1));
    for (const long label : {22L, 23L})
        types.setDependent(label, {9, 3});
    for (const long label : {24L, 25L, 26L})
        if (withBinomials)
            types.distributionTypeOverride(label, 7, Types::eBinomial);
    tk_ClassifierBayesian classifier;
    classifier.train(provider(rows, labels), Params(types, tkClassifierFrequencies(1.0), tkClassifierCosts(1.0),
                                                    tkFeaturePattern(std::vector<double>(20, 100.0))));
    return classifier;
}

inline tk_CategoryModelBayesian& changeable(tk_ClassifierBayesian& classifier, std::size_t i)
{
    return dynamic_cast<tk_CategoryModelBayesian&>(*classifier.categoryModels()[i]);
}
} // namespace bayesTest

#endif
