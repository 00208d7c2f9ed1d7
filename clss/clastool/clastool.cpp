#include "clss/clastool/clastool.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"

const std::vector<const tkPersistent::Registration*>& tk_persistentClasses()
{
    static const std::vector<const tkPersistent::Registration*> classes = {
        &tkPersistent::registrationOf<tkClassifierDefs::BadParams>(),
        &tkPersistent::registrationOf<tkClassifierDefs::NotTrained>(),
        &tkPersistent::registrationOf<tkClassifierDefs::BadIndex>(),
        &tkPersistent::registrationOf<tkClassifierDefs::BadLabel>(),
        &tkPersistent::registrationOf<tkClassifierDefs::BadMethod>(),
        &tkPersistent::registrationOf<tkClassifierDefs::NotImplemented>(),
        &tkPersistent::registrationOf<tkClassifierDefs::BadFeatures>(),
        &tkPersistent::registrationOf<tkClassifierDefs::InsufficientTrainData>(),
        &tkPersistent::registrationOf<tkFeaturePattern>(),
        &tkPersistent::registrationOf<tkClassifierDataProviderMemory>(),
        &tkPersistent::registrationOf<tkPatternDistanceMetricNorm>(),
        &tkPersistent::registrationOf<tkClassifierTrainParamsKNN>(),
        &tkPersistent::registrationOf<tk_ClassifierKNN>(),
        &tkPersistent::registrationOf<tkRangePredicate>(),
        &tkPersistent::registrationOf<tkValidityPredicate>(),
        &tkPersistent::registrationOf<tkComparisonPredicate>(),
        &tkPersistent::registrationOf<tkDecisionTreeNode>(),
        &tkPersistent::registrationOf<tkDecisionTreeLeaf>(),
        &tkPersistent::registrationOf<tk_ClassifierDecisionTree>(),
        &tkPersistent::registrationOf<tkClassifierTrainParamsBayesian>(),
        &tkPersistent::registrationOf<tk_ClassifierBayesian>(),
        &tkPersistent::registrationOf<tk_CategoryModelBayesian>(),
        &tkPersistent::registrationOf<tk_PDFMultivariateNormal>(),
        &tkPersistent::registrationOf<tk_PDFBinomial>(),
        &tkPersistent::registrationOf<tkCovariancePooling>(),
        &tkPersistent::registrationOf<tk_ClassifierPooled>(),
        &tkPersistent::registrationOf<tkIncompleteTraining>(),
        &tkPersistent::registrationOf<tk_ClassifierIncomplete>(),
    };
    return classes;
}
