#include "tkTest.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <utility>
#include <vector>

namespace
{
namespace fs = std::filesystem;

/// The files of the library, a name for each pair of .h and .cpp, from the bottom up: a header may include only
/// headers that stand before it. A name may stand here before its file does, so that everything has its place.
struct Folder
{
    std::string path;
    std::vector<std::string> files;
};

const std::vector<Folder> theTree = {
    {"foundation",
     {
         "tkExport",
         "tkAssert",
         "tkUtf8",
         "tkRepBase",
         "tkPtrHandle",
         "tkPersistent",
         "tkException",
         "tkArchive",
         "tkArchiveOperators",
         "tkArchiveFile",
         "tkRange",
         "tkPair",
         "tkRandom",
         "tkDiagObject",
     }},
    {"numerics",
     {
         "tkNMMatrix",
         "tkNMNormal",
         "tkNMNeighborSearch",
     }},
    {"clss/clastool/clastool",
     {
         "tkClassifierDefs",
         "tk_Messages",
         "tk_PersistentClasses",
         "tkFeaturePattern",
         "tkClassifierDataProvider",
         "tkClassifierCosts",
         "tkClassifierFrequencies",
         "tkClassifierResult",
         "tkClassifierTrainParams",
         "tk_Classifier",
         "tk_CategoryModel",
         "tkClassifierTool",
         "tkPatternDistanceMetric",
         "tkClassifierTrainParamsKNN",
         "tk_ClassifierKNN",
         "tkPredicateFunction",
         "tkDecisionTree",
         "tk_ClassifierDecisionTree",
         "tkClassifierFeatureScore",
         "tkClassifierRuleTable",
         "tk_DataGenerator",
     }},
    {"clss/clastool/bayes",
     {
         "tkClassifierDistributionTypes",
         "tkClassifierTrainParamsBayesian",
         "tk_ProbabilityDensityFunction",
         "tk_CategoryModelBayesian",
         "tk_ClassifierBayesian",
     }},
    {"clss/clastool",
     {
         "clastool",
     }},
};

/// Place of a file in the tree, first by folder; {-1, -1} for a file that is not in it.
using Place = std::pair<int, int>;

Place placeOf(const fs::path& file)
{
    for (std::size_t folder = 0; folder < theTree.size(); ++folder)
    {
        const std::vector<std::string>& files = theTree[folder].files;
        const auto found = std::find(files.begin(), files.end(), file.stem().string());
        if (theTree[folder].path == file.parent_path().generic_string() && found != files.end())
            return {static_cast<int>(folder), static_cast<int>(found - files.begin())};
    }
    return {-1, -1};
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

bool isImplementation(const fs::path& file) { return file.stem().string().rfind("tk_", 0) == 0; }

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
        const bool isOwn = placeOf(target) != Place(-1, -1);
        return isStandard || (!isHeader && !isOwn) ? "" : "includes <" + include.target + ">";
    }
    const Place from = placeOf(file);
    const Place to = placeOf(target);
    if (target.extension() != ".h" || to == Place(-1, -1))
        return "includes \"" + include.target + "\", which is no header of the tree";
    if (isHeader ? to >= from : to.first > from.first)
        return "includes \"" + include.target + "\", which stands below it";
    if (isHeader && file.stem().string().rfind("tk", 0) == 0 && !isImplementation(file) && isImplementation(target))
        return "is published and includes the implementation's \"" + include.target + "\"";
    return "";
}

/// Faults of a whole source text, one line each.
std::string faultsOf(const fs::path& file, const std::string& source)
{
    std::string faults;
    if (placeOf(file) == Place(-1, -1))
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
    const fs::path root(CLASTOOL_SOURCE_DIR);
    int filesSeen = 0;
    for (const char* top : {"foundation", "numerics", "clss"})
    {
        if (!fs::exists(root / top))
            continue;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / top))
        {
            if (!entry.is_regular_file())
                continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            const std::string source((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
            EXPECT_EQ("", faultsOf(fs::relative(entry.path(), root), source));
            ++filesSeen;
        }
    }
    EXPECT_GT(filesSeen, 0);
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
