#include "tkTest.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace
{
namespace fs = std::filesystem;

/// The files of the library, a name for each pair of .h and .cpp, from the bottom up: a header may include only
/// headers that stand before it. A name may stand here before its file does, so that everything has its place.
const char theTree[] = R"(
foundation/tkExport
foundation/tkAssert
foundation/tkPrefetch
foundation/tkAddressTable
foundation/tkUtf8
foundation/tkRepBase
foundation/tkPersistent
foundation/tkException
foundation/tkPtrHandle
foundation/tkArchive
foundation/tkArchiveErrors
foundation/tkArchiveStream
foundation/tkArchiveState
foundation/tkArchiveOperators
foundation/tkArchiveFile
foundation/tkRange
foundation/tkPair
foundation/tkScratch
foundation/tkRandom
foundation/tkDiagObject
numerics/tkNMBestInstructions
numerics/tkNMElementaryTables
numerics/tkNMElementary
numerics/tkNMTail
numerics/tkRandomGaussian
numerics/tkNMMatrix
numerics/tkNMAligned
numerics/tkNMTriangle
numerics/tkNMExactQuotient
numerics/tkNMReferenceDeviation
numerics/tkNMSymmetricEigen
numerics/tkNMCovarianceFactor
numerics/tkNMStatistics
numerics/tkNMFactorisation
numerics/tkNMChangeNumber
numerics/tkNMNormal
numerics/tkNMDecision
numerics/tkNMNormDistance
numerics/tkNMNeighborList
numerics/tkNMNeighborSearch
numerics/kernels/tkNMInstructions
numerics/kernels/tkNMLanes
numerics/kernels/tkNMElementaryKernel
numerics/kernels/tkNMRiskKernel
numerics/kernels/tkNMWelfordStep
numerics/kernels/tkNMCrossProducts
numerics/kernels/tkNMMahalanobis
numerics/kernels/tkNMNormalTrainer
numerics/kernels/tkNMMarginalLanes
numerics/kernels/tkNMNormalBatch
numerics/kernels/tkNMByteDistances
numerics/kernels/tkNMNormPower
numerics/kernels/tkNMNeighborScan
numerics/kernels/tkNMNeighborFilter
clss/clastool/clastool/tkClassifierDefs
clss/clastool/clastool/tk_Messages
clss/clastool/clastool/tk_PersistentClasses
clss/clastool/clastool/tk_RecordPlaces
clss/clastool/clastool/tkFeaturePattern
clss/clastool/clastool/tk_NeighborIndex
clss/clastool/clastool/tkClassifierDataProvider
clss/clastool/clastool/tkClassifierCosts
clss/clastool/clastool/tkClassifierFrequencies
clss/clastool/clastool/tk_DecisionTerms
clss/clastool/clastool/tkClassifierResult
clss/clastool/clastool/tkClassifierTrainParams
clss/clastool/clastool/tk_Classifier
clss/clastool/clastool/tk_CategoryModel
clss/clastool/clastool/tkClassifierTool
clss/clastool/clastool/tkPatternDistanceMetric
clss/clastool/clastool/tkClassifierTrainParamsKNN
clss/clastool/clastool/tk_ClassifierKNN
clss/clastool/clastool/tkPredicateFunction
clss/clastool/clastool/tkDecisionTree
clss/clastool/clastool/tk_ClassifierDecisionTree
clss/clastool/clastool/tkClsFtSc
clss/clastool/clastool/tkClassifierFeatureScore
clss/clastool/clastool/tkClassifierRuleTable
clss/clastool/clastool/tk_DataGenerator
clss/clastool/bayes/tkClassifierDistributionTypes
clss/clastool/bayes/tkClassifierTrainParamsBayesian
clss/clastool/bayes/tk_ProbabilityDensityFunction
clss/clastool/bayes/tk_CategoryModelBayesian
clss/clastool/bayes/tk_BayesAccelerator
clss/clastool/bayes/tk_BayesTrainer
clss/clastool/bayes/tk_ClassifierBayesian
clss/model/tk_LabelledPatterns
clss/model/tkPatternScaler
clss/model/tkDecisionRule
clss/model/tkConfusionMatrix
clss/model/tk_LeaveOneOut
clss/model/tkJudgement
clss/model/tkAssessment
clss/model/tkCovariancePooling
clss/model/tk_CovariancePool
clss/model/tk_ClassifierPooled
clss/model/tkIncompleteTraining
clss/model/tk_IncompleteStatistics
clss/model/tk_ClassifierIncomplete
clss/model/tk_NoveltyEvidence
clss/model/tkNovelty
clss/model/tkTrainingReport
clss/clastool/clastool
)";

/// Where a file stands in the tree: the line of its folder's first file, and its own; both -1 if it is not there.
struct Place
{
    int folder;
    int file;
};

Place placeOf(const fs::path& file)
{
    const std::string folder = file.parent_path().generic_string();
    const std::string name = folder + "/" + file.stem().string();
    Place place{-1, -1};
    std::istringstream tree(theTree);
    std::string line;
    for (int number = 0; std::getline(tree, line); ++number)
    {
        if (place.folder < 0 && fs::path(line).parent_path().generic_string() == folder)
            place.folder = number;
        if (line == name)
            return {place.folder, number};
    }
    return {-1, -1};
}

bool inTree(const fs::path& file)
{
    return placeOf(file).file >= 0;
}

struct Include
{
    bool quoted; // else in angle brackets
    std::string target;
};

std::vector<Include> includesOf(const std::string& source)
{
    static const std::regex pattern("(?:^|\n)[ \t]*#[ \t]*include[ \t]*([<\"])([^>\"\n]*)[>\"]");
    std::vector<Include> includes;
    for (std::sregex_iterator match(source.begin(), source.end(), pattern), end; match != end; ++match)
        includes.push_back({(*match)[1] == "\"", (*match)[2]});
    return includes;
}

bool isImplementation(const fs::path& file)
{
    return file.stem().string().rfind("tk_", 0) == 0;
}

bool isKernel(const fs::path& file)
{
    return file.parent_path().generic_string() == "numerics/kernels";
}

std::string textOf(const fs::path& file)
{
    std::ifstream stream(fs::path(CLASTOOL_SOURCE_DIR) / file, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << file;
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

/// Whether only .cpp files and private headers include a header, so that it is not installed.
bool isPrivate(const fs::path& header)
{
    std::istringstream lines(textOf("cmake/private_headers.txt"));
    for (std::string line; std::getline(lines, line);)
        if (line == header.generic_string())
            return true;
    return isKernel(header);
}

/// All files in the folders of the library but the settings of tools, with their paths from the root.
std::vector<fs::path> libraryFiles()
{
    const fs::path root(CLASTOOL_SOURCE_DIR);
    std::vector<fs::path> files;
    for (const char* top : {"foundation", "numerics", "clss"})
    {
        if (!fs::exists(root / top))
            continue;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / top))
        {
            if (entry.is_regular_file() && entry.path().filename().string().front() != '.')
                files.push_back(fs::relative(entry.path(), root));
        }
    }
    return files;
}

/// What is wrong with one include line of `file`; empty if nothing is.
std::string faultOf(const fs::path& file, const Include& include)
{
    const fs::path target(include.target);
    const bool isHeader = file.extension() == ".h";
    if (!include.quoted)
    {
        // The names of the language's standard headers have neither ending nor folder. Headers of a platform are
        // for .cpp files; a header of this library in angle brackets would escape the other tests.
        const bool isStandard = include.target.find_first_of("./") == std::string::npos;
        return isStandard || (!isHeader && !inTree(target)) ? "" : "includes <" + include.target + ">";
    }
    const Place from = placeOf(file);
    const Place to = placeOf(target);
    if (target.extension() != ".h" || !inTree(target))
        return "includes \"" + include.target + "\", which is no header of the tree";
    if (isHeader && isPrivate(target) && !isPrivate(file))
        return "includes \"" + include.target + "\", which only .cpp files and private headers may do";
    const bool isDispatch = isKernel(target) && file.parent_path().generic_string() == "numerics";
    if (isHeader ? to.file >= from.file : to.folder > from.folder && !isDispatch)
        return "includes \"" + include.target + "\", which stands below it";
    if (isHeader && file.stem().string().rfind("tk", 0) == 0 && !isImplementation(file) && isImplementation(target))
        return "is published and includes the implementation's \"" + include.target + "\"";
    return "";
}

/// Faults of a whole source text, one line each.
std::string faultsOf(const fs::path& file, const std::string& source)
{
    std::string faults;
    if (!inTree(file))
        faults += file.generic_string() + " has no place in the list of this test\n";
    for (const Include& include : includesOf(source))
    {
        const std::string fault = faultOf(file, include);
        if (!fault.empty())
            faults += file.generic_string() + " " + fault + "\n";
    }
    return faults;
}
} // namespace

TEST(includeOrder, libraryIncludesPointUpwardsOnly)
{
    const std::vector<fs::path> files = libraryFiles();
    EXPECT_FALSE(files.empty());
    for (const fs::path& file : files)
        EXPECT_EQ("", faultsOf(file, textOf(file)));
}

TEST(includeOrder, umbrellaReachesEveryHeaderButThePrivateOnes)
{
    std::set<std::string> reached;
    std::vector<std::string> unread = {"clss/clastool/clastool.h"};
    while (!unread.empty())
    {
        const std::string header = unread.back();
        unread.pop_back();
        if (!reached.insert(header).second)
            continue;
        for (const Include& include : includesOf(textOf(header)))
        {
            if (include.quoted)
                unread.push_back(include.target);
        }
    }
    for (const fs::path& file : libraryFiles())
    {
        if (file.extension() != ".h")
            continue;
        EXPECT_EQ(!isPrivate(file), reached.count(file.generic_string()) == 1) << file;
    }
}

TEST(includeOrder, findsAnIncludeOfAHeaderBelow)
{
    EXPECT_NE("", faultsOf("foundation/tkAssert.h", "#pragma once\n  #  include \"foundation/tkArchive.h\"\n"));
    EXPECT_NE("", faultsOf("foundation/tkAssert.h", "#include \"foundation/tkAssert.h\""));
    EXPECT_NE("", faultsOf("foundation/tkRange.cpp", "#include \"numerics/tkNMMatrix.h\""));
    EXPECT_NE("", faultsOf("clss/clastool/bayes/tk_ClassifierBayesian.cpp", "#include \"clss/clastool/clastool.h\""));
    EXPECT_EQ("", faultsOf("foundation/tkAssert.h", "#include \"foundation/tkExport.h\"\n#include <vector>\n"));
    EXPECT_EQ("", faultsOf("foundation/tkAssert.cpp", "#include \"foundation/tkArchive.h\""));
}

TEST(includeOrder, findsAPublishedHeaderThatIncludesTheImplementation)
{
    const std::string implementation = "#include \"clss/clastool/clastool/tk_Classifier.h\"";
    EXPECT_NE("", faultsOf("clss/clastool/clastool/tkClassifierTool.h", implementation));
    EXPECT_EQ("", faultsOf("clss/clastool/clastool/tkClassifierTool.cpp", implementation));
    EXPECT_EQ("", faultsOf("clss/clastool/clastool/tk_ClassifierKNN.h", implementation));
    EXPECT_EQ("", faultsOf("clss/clastool/clastool.h", implementation));
}

TEST(includeOrder, findsAHeaderThatIncludesAKernel)
{
    const std::string kernel = "#include \"numerics/kernels/tkNMInstructions.h\"";
    EXPECT_NE("", faultsOf("numerics/tkNMDecision.h", kernel));
    EXPECT_NE("", faultsOf("clss/clastool/clastool/tk_ClassifierKNN.h", kernel));
    EXPECT_NE("", faultsOf("foundation/tkArchive.cpp", kernel));
    EXPECT_EQ("", faultsOf("numerics/tkNMDecision.cpp", kernel));
    EXPECT_EQ("", faultsOf("clss/clastool/clastool/tk_ClassifierKNN.cpp", kernel));
    EXPECT_EQ("", faultsOf("numerics/kernels/tkNMLanes.h", kernel));
    EXPECT_EQ("", faultsOf("clss/clastool/bayes/tk_BayesTrainer.h", kernel));
    EXPECT_NE("", faultsOf("numerics/tkNMMatrix.h", "#include \"numerics/tkNMBestInstructions.h\""));
    EXPECT_EQ("", faultsOf("numerics/kernels/tkNMLanes.h", "#include \"numerics/tkNMMatrix.h\""));
}

TEST(includeOrder, findsFilesAndIncludesOutsideTheTree)
{
    EXPECT_NE("", faultsOf("foundation/tkNew.h", ""));
    EXPECT_NE("", faultsOf("foundation/tkClassifierTool.h", ""));
    EXPECT_NE("", faultsOf("foundation/tkArchive.h", "#include \"tkAssert.h\""));
    EXPECT_NE("", faultsOf("foundation/tkArchive.h", "#include \"foundation/tkAssert.cpp\""));
    EXPECT_NE("", faultsOf("foundation/tkArchive.cpp", "#include <foundation/tkAssert.h>"));
    EXPECT_NE("", faultsOf("foundation/tkArchiveFile.h", "#include <unistd.h>"));
    EXPECT_EQ("", faultsOf("foundation/tkArchiveFile.cpp", "#include <sys/types.h>\n#include <unistd.h>\n"));
}
