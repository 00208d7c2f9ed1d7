#ifndef TESTS_GOLDEN_NEARESTNEIGHBORS_H
#define TESTS_GOLDEN_NEARESTNEIGHBORS_H

#include "tests/golden/dataModel.h"

#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_ClassifierKNN.h"

/// What the stored metrics, parameters, classifiers and tools of nearest neighbours in this folder hold.
namespace golden
{
inline tkPatternDistanceMetricNorm metric()
{
    return tkPatternDistanceMetricNorm(2.5);
}

inline tkClassifierTrainParamsKNN paramsKNN()
{
    return tkClassifierTrainParamsKNN(258, metric(), costs());
}

/// Three patterns of two labels, the first and the last one object.
inline tkClassifierDataProviderMemory trainingData()
{
    const tkPtrHandle_const<tkFeaturePattern> shared(new tkFeaturePattern({1.0, 2.0}));
    tkClassifierDataProviderMemory data;
    data.setName(L"M\u00fcnzen");
    data.setDescription(L"coins");
    data.data({shared, tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({3.0, 4.0})), shared}, {7, 0, 7});
    return data;
}

/// With two patterns that only incremental training accepts.
inline tk_ClassifierKNN classifierKNN()
{
    tk_ClassifierKNN classifier;
    classifier.train(trainingData(), paramsKNN());
    classifier.trainIncremental(tkFeaturePattern({5.0, 6.0}, {1}), 3);
    classifier.trainIncremental(tkFeaturePattern({-0.0, 1e300}), -1);
    return classifier;
}

inline tkClassifierTool toolKNN()
{
    tkClassifierTool tool;
    tool.train(trainingData(), tkClassifierTrainParamsKNN(2, tkPatternDistanceMetricNorm(1.0), tkClassifierCosts()));
    return tool;
}
} // namespace golden

#endif
