#include "clss/clastool/clastool.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"

const std::vector<const std::type_info*>& tk_persistentClasses()
{
    static const std::vector<const std::type_info*> classes = {
        &typeid(tkClassifierDefs::BadParams),
        &typeid(tkClassifierDefs::NotTrained),
        &typeid(tkClassifierDefs::BadIndex),
        &typeid(tkClassifierDefs::BadLabel),
        &typeid(tkClassifierDefs::BadMethod),
        &typeid(tkClassifierDefs::NotImplemented),
        &typeid(tkClassifierDefs::BadFeatures),
        &typeid(tkClassifierDefs::InsufficientTrainData),
        &typeid(tkFeaturePattern),
        &typeid(tkClassifierDataProviderMemory),
        &typeid(tkPatternDistanceMetricNorm),
        &typeid(tkClassifierTrainParamsKNN),
        &typeid(tk_ClassifierKNN),
        &typeid(tkRangePredicate),
        &typeid(tkValidityPredicate),
        &typeid(tkComparisonPredicate),
        &typeid(tkDecisionTreeNode),
        &typeid(tkDecisionTreeLeaf),
        &typeid(tk_ClassifierDecisionTree),
        &typeid(tkClassifierTrainParamsBayesian),
        &typeid(tk_ClassifierBayesian),
        &typeid(tk_CategoryModelBayesian),
        &typeid(tk_PDFMultivariateNormal),
        &typeid(tk_PDFBinomial),
        &typeid(tkCovariancePooling),
        &typeid(tk_ClassifierPooled),
        &typeid(tkIncompleteTraining),
        &typeid(tk_ClassifierIncomplete),
    };
    return classes;
}
