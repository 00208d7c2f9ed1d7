#include "tests/golden/bayes.h"
#include "tests/golden/dataModel.h"
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
    return {
        {"tkRange.bin", storeToBytes(tkRange(-1.5, 10.0))},
        {"tkFailure.bin", errorBytes<tkFailure>()},
        {"tkArchive.Errors.bin", errorBytes<tkArchive::Errors>()},
        {"tkArchive.UnknownVersion.bin", storePointerToBytes(unknownVersion)},
        {"tkClassifierDefs.BadParams.bin", errorBytes<tkClassifierDefs::BadParams>()},
        {"tkClassifierDefs.NotTrained.bin", errorBytes<tkClassifierDefs::NotTrained>()},
        {"tkClassifierDefs.BadIndex.bin", errorBytes<tkClassifierDefs::BadIndex>()},
        {"tkClassifierDefs.BadLabel.bin", errorBytes<tkClassifierDefs::BadLabel>()},
        {"tkClassifierDefs.BadMethod.bin", errorBytes<tkClassifierDefs::BadMethod>()},
        {"tkClassifierDefs.NotImplemented.bin", errorBytes<tkClassifierDefs::NotImplemented>()},
        {"tkClassifierDefs.BadFeatures.bin", errorBytes<tkClassifierDefs::BadFeatures>()},
        {"tkClassifierDefs.InsufficientTrainData.bin", errorBytes<tkClassifierDefs::InsufficientTrainData>()},
        {"tkFeaturePattern.bin", handleBytes(golden::featurePattern())},
        {"tkClassifierDataProviderMemory.bin", handleBytes(golden::dataProvider())},
        {"tkClassifierCosts.bin", storeToBytes(golden::costs())},
        {"tkClassifierFrequencies.bin", storeToBytes(golden::frequencies())},
        {"tkClassifierCategoryResult.bin", storeToBytes(golden::categoryResult())},
        {"tkClassifierResult.bin", storeToBytes(golden::result())},
        {"tkClassifierFeatureScoreIgnore.bin", storeToBytes(golden::ignore())},
        {"tkClassifierFeatureScoreOneSided.bin", storeToBytes(golden::oneSided())},
        {"tkClassifierFeatureScoreTwoSided.bin", storeToBytes(golden::twoSided())},
        {"tkClassifierFeatureVector.bin", storeToBytes(golden::featureVector())},
        {"tkClassifierRule.bin", storeToBytes(golden::rule())},
        {"tkClassifierRuleTable.bin", storeToBytes(golden::ruleTable())},
        {"tkClassifierDistributionTypes.bin", storeToBytes(golden::distributionTypes())},
        {"tkClassifierTrainParamsBayesian.bin", handleBytes(golden::trainParamsBayesian())},
        {"tk_PDFMultivariateNormal.bin", handleBytes(golden::normalDensity())},
        {"tk_PDFBinomial.bin", handleBytes(golden::binomialDensity())},
        {"tk_CategoryModelBayesian.bin", handleBytes(golden::categoryModel())},
        {"tk_ClassifierBayesian.bin", handleBytes(golden::classifierBayesian())},
        {"tkPatternDistanceMetricNorm.bin", handleBytes(golden::metric())},
        {"tkClassifierTrainParamsKNN.bin", handleBytes(golden::paramsKNN())},
        {"tk_ClassifierKNN.bin", handleBytes(golden::classifierKNN())},
        {"tkClassifierTool.KNN.bin", storeToBytes(golden::toolKNN())},
        {"tkClassifierTool.empty.bin", storeToBytes(tkClassifierTool())},
        {"tkRangePredicate.bin", handleBytes(golden::rangePredicate())},
        {"tkValidityPredicate.bin", handleBytes(golden::validityPredicate())},
        {"tkComparisonPredicate.bin", handleBytes(golden::comparisonPredicate())},
        {"tkDecisionTreeLeaf.bin", handleBytes(golden::leaf())},
        {"tkDecisionTreeNode.bin", handleBytes(golden::node())},
        {"tkDecisionTreeNode.shared.bin", handleBytes(golden::sharingNode())},
        {"tk_ClassifierDecisionTree.bin", handleBytes(golden::treeClassifier())},
        {"tkClassifierTool.tree.bin", storeToBytes(golden::treeTool())},
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
