#include "tests/golden/bayes.h"
#include "tests/golden/dataModel.h"
#include "tests/golden/model.h"
#include "tests/golden/nearestNeighbors.h"
#include "tests/golden/ruleTable.h"
#include "tests/golden/trees.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRange.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace
{
template <class Error>
std::string errorBytes()
{
    Error error(golden::errorMessage);
    return storePointerToBytes(error);
}

/// A pointer to a copy of `object`, so that the record begins with the name of its class.
template <class T>
std::string handleBytes(const T& object)
{
    return storeToBytes(tkPtrHandle<T>(new T(object)));
}

/// The files of the folder, each with the bytes that this library stores today. Types are added here, never changed:
/// the file of a type tells what was written when the type was new.
std::vector<std::pair<std::string, std::string>> archives()
{
    tkArchive::UnknownVersion unknownVersion("tkRange", 3);
    tkBadPointer badPointer;
    return {
        {"tkRange.v0.bin", storeToBytes(tkRange(-1.5, 10.0))},
        {"tkFailure.v0.bin", errorBytes<tkFailure>()},
        {"tkBadPointer.v0.bin", storePointerToBytes(badPointer)},
        {"tkArchive.Errors.v0.bin", errorBytes<tkArchive::Errors>()},
        {"tkArchive.UnknownVersion.v0.bin", storePointerToBytes(unknownVersion)},
        {"tkClassifierDefs.BadParams.v0.bin", errorBytes<tkClassifierDefs::BadParams>()},
        {"tkClassifierDefs.NotTrained.v0.bin", errorBytes<tkClassifierDefs::NotTrained>()},
        {"tkClassifierDefs.BadIndex.v0.bin", errorBytes<tkClassifierDefs::BadIndex>()},
        {"tkClassifierDefs.BadLabel.v0.bin", errorBytes<tkClassifierDefs::BadLabel>()},
        {"tkClassifierDefs.BadMethod.v0.bin", errorBytes<tkClassifierDefs::BadMethod>()},
        {"tkClassifierDefs.NotImplemented.v0.bin", errorBytes<tkClassifierDefs::NotImplemented>()},
        {"tkClassifierDefs.BadFeatures.v0.bin", errorBytes<tkClassifierDefs::BadFeatures>()},
        {"tkClassifierDefs.InsufficientTrainData.v0.bin", errorBytes<tkClassifierDefs::InsufficientTrainData>()},
        {"tkFeaturePattern.v0.bin", handleBytes(golden::featurePattern())},
        {"tkClassifierDataProviderMemory.v0.bin", handleBytes(golden::dataProvider())},
        {"tkClassifierCosts.v0.bin", storeToBytes(golden::costs())},
        {"tkClassifierFrequencies.v0.bin", storeToBytes(golden::frequencies())},
        {"tkClassifierCategoryResult.v0.bin", storeToBytes(golden::categoryResult())},
        {"tkClassifierResult.v0.bin", storeToBytes(golden::result())},
        {"tkClassifierFeatureScoreIgnore.v0.bin", storeToBytes(golden::ignore())},
        {"tkClassifierFeatureScoreOneSided.v0.bin", storeToBytes(golden::oneSided())},
        {"tkClassifierFeatureScoreTwoSided.v0.bin", storeToBytes(golden::twoSided())},
        {"tkClassifierFeatureVector.v0.bin", storeToBytes(golden::featureVector())},
        {"tkClassifierRule.v0.bin", storeToBytes(golden::rule())},
        {"tkClassifierRuleTable.v0.bin", storeToBytes(golden::ruleTable())},
        {"tkClassifierDistributionTypes.v0.bin", storeToBytes(golden::distributionTypes())},
        {"tkClassifierTrainParamsBayesian.v0.bin", handleBytes(golden::trainParamsBayesian())},
        {"tk_PDFMultivariateNormal.v0.bin", handleBytes(golden::normalDensity())},
        {"tk_PDFBinomial.v0.bin", handleBytes(golden::binomialDensity())},
        {"tk_CategoryModelBayesian.v0.bin", handleBytes(golden::categoryModel())},
        {"tk_ClassifierBayesian.v0.bin", handleBytes(golden::classifierBayesian())},
        {"tkPatternDistanceMetricNorm.v0.bin", handleBytes(golden::metric())},
        {"tkClassifierTrainParamsKNN.v0.bin", handleBytes(golden::paramsKNN())},
        {"tk_ClassifierKNN.v0.bin", handleBytes(golden::classifierKNN())},
        {"tkClassifierTool.KNN.v0.bin", storeToBytes(golden::toolKNN())},
        {"tkClassifierTool.empty.v0.bin", storeToBytes(tkClassifierTool())},
        {"tkRangePredicate.v0.bin", handleBytes(golden::rangePredicate())},
        {"tkValidityPredicate.v0.bin", handleBytes(golden::validityPredicate())},
        {"tkComparisonPredicate.v0.bin", handleBytes(golden::comparisonPredicate())},
        {"tkDecisionTreeLeaf.v0.bin", handleBytes(golden::leaf())},
        {"tkDecisionTreeNode.v0.bin", handleBytes(golden::node())},
        {"tkDecisionTreeNode.shared.v0.bin", handleBytes(golden::sharingNode())},
        {"tk_ClassifierDecisionTree.v0.bin", handleBytes(golden::treeClassifier())},
        {"tkClassifierTool.tree.v0.bin", storeToBytes(golden::treeTool())},
        {"tkPatternScaler.v0.bin", storeToBytes(golden::scaler())},
        {"tkDecisionRule.v0.bin", storeToBytes(golden::decisionRule())},
        {"tkAssessment.v0.bin", storeToBytes(golden::assessment())},
        {"tkConfusionMatrix.v0.bin", storeToBytes(golden::confusionMatrix())},
        {"tkCovariancePooling.v0.bin", handleBytes(golden::covariancePooling())},
        {"tkClassifierTool.pooled.v0.bin", storeToBytes(golden::pooledTool())},
        {"tkIncompleteTraining.v0.bin", handleBytes(golden::incompleteTraining())},
        {"tkClassifierTool.incomplete.v0.bin", storeToBytes(golden::incompleteTool())},
        {"tkTrainingReport.v0.bin", storeToBytes(golden::trainingReport())},
        {"tkNovelty.v0.bin", storeToBytes(golden::novelty())},
        {"tkNovelty.KNN.v0.bin", storeToBytes(golden::noveltyOfNeighbors())},
    };
}
} // namespace

/// Stores the records that a folder does not have yet. Those that are there are left alone: they were written by an
/// earlier library, and what they prove is that this one still reads them.
int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: golden_generate FOLDER\n";
        return 2;
    }
    for (const auto& [name, bytes] : archives())
    {
        const std::filesystem::path path = std::filesystem::path(argv[1]) / name;
        if (std::filesystem::exists(path))
        {
            std::cout << "kept    " << name << "\n";
            continue;
        }
        std::ofstream file(path, std::ios::binary);
        file << bytes << std::flush;
        if (!file)
        {
            std::cerr << "cannot write " << path << "\n";
            return 1;
        }
        std::cout << "written " << name << "\n";
    }
    return 0;
}
