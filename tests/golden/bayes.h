#ifndef TESTS_GOLDEN_BAYES_H
#define TESTS_GOLDEN_BAYES_H

#include "clss/clastool/bayes/tkClassifierTrainParamsBayesian.h"
#include "clss/clastool/bayes/tk_ClassifierBayesian.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"

#include <vector>

/// The Bayesian objects whose records are stored in this folder: generate.cpp writes them, the tests expect them.
namespace golden
{
inline tkClassifierDistributionTypes distributionTypes()
{
    tkClassifierDistributionTypes types(tkClassifierDistributionTypes::eNormal);
    types.distributionTypeOverride(4, 2, tkClassifierDistributionTypes::eBinomial);
    types.setDependent(4, {1, 0});
    types.setDependent(9, {0, 2});
    return types;
}

inline tkClassifierTrainParamsBayesian trainParamsBayesian()
{
    return tkClassifierTrainParamsBayesian(distributionTypes(), tkClassifierFrequencies(0.5), tkClassifierCosts(3.0),
                                           tkFeaturePattern({0.0, 0.0, 4.0}, {0, 1}));
}

/// Means and sums that are not doubles, so that the record holds compensations.
inline tk_PDFMultivariateNormal normalDensity()
{
    tk_PDFMultivariateNormal density;
    density.updateWithData({tkFeaturePattern({1.0, 0.1}), tkFeaturePattern({2.0, 0.3}), tkFeaturePattern({2.0, 0.9})});
    return density;
}

inline tk_PDFBinomial binomialDensity()
{
    tk_PDFBinomial density(tkFeaturePattern({4.0}));
    density.updateWithData({tkFeaturePattern({0.0}), tkFeaturePattern({2.0}), tkFeaturePattern({3.0})});
    return density;
}

inline tk_CategoryModelBayesian categoryModel()
{
    tk_CategoryModelBayesian model(4, {{1, 0}, {2}},
                                   {tkClassifierDistributionTypes::eNormal, tkClassifierDistributionTypes::eBinomial},
                                   tkFeaturePattern({0.0, 0.0, 4.0}));
    for (const std::vector<double>& row : std::vector<std::vector<double>>{{1, 5, 0}, {2, 4, 2}, {4, 4, 3}})
        model.adapt(tkFeaturePattern(row));
    return model;
}

inline tk_ClassifierBayesian classifierBayesian()
{
    tkClassifierDataProviderMemory data;
    const std::vector<std::vector<double>> rows = {{1, 5, 0}, {2, 4, 2}, {4, 4, 3}, {3, 1, 7}, {2, 1, 8}};
    for (std::size_t i = 0; i < rows.size(); ++i)
        data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(rows[i])), i < 3 ? 4 : 9);
    tk_ClassifierBayesian classifier;
    classifier.train(data, trainParamsBayesian());
    return classifier;
}
} // namespace golden

#endif
