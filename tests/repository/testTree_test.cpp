#include "tkTest.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>

// Whoever looks for the test of a header finds it under the header's own name, in the folder that mirrors the header's.

namespace
{
namespace fs = std::filesystem;

/// Headers without a test file of their own, and why.
const std::map<std::string, std::string> withoutTest = {
    {"clss/clastool/clastool.h", "includes the published headers: tests/packaging compiles it"},
    {"clss/clastool/clastool/tk_DecisionTerms.h", "what tkClassifierResult decides with: tkClassifierResult_test.cpp"},
    {"clss/clastool/clastool/tk_Messages.h", "texts: the tests of what throws them spell each one out"},
    {"foundation/tkArchiveState.h", "the inside of tkArchive: tkArchive_test.cpp"},
    {"foundation/tkExport.h", "macros: tests/repository/refusedOptions.cmake and tests/packaging"},
    {"foundation/tkPrefetch.h", "has no effect that a program could observe"},
    {"numerics/tkNMBestInstructions.h", "declares what tkNMInstructions_test.cpp tests"},
};

/// The folder of the tests for headers in `folder`.
std::string testFolderOf(const std::string& folder)
{
    const std::map<std::string, std::string> folders = {{"clss/clastool", "tests/clastool"},
                                                        {"clss/clastool/clastool", "tests/clastool"},
                                                        {"clss/clastool/bayes", "tests/bayes"},
                                                        {"clss/model", "tests/model"}};
    const auto found = folders.find(folder);
    return found != folders.end() ? found->second : "tests/" + folder;
}

std::set<std::string> headers()
{
    std::set<std::string> headers;
    const fs::path root = CLASTOOL_SOURCE_DIR;
    for (const char* const folder : {"foundation", "numerics", "clss"})
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root / folder))
            if (entry.path().extension() == ".h")
                headers.insert(entry.path().lexically_relative(root).generic_string());
    return headers;
}

bool hasTest(const fs::path& header)
{
    return fs::exists(fs::path(CLASTOOL_SOURCE_DIR) / testFolderOf(header.parent_path().generic_string()) /
                      (header.stem().string() + "_test.cpp"));
}
} // namespace

TEST(testTree, everyHeaderHasATestOfItsName)
{
    EXPECT_GT(headers().size(), 80u);
    for (const std::string& header : headers())
        EXPECT_TRUE(hasTest(header) || withoutTest.count(header) == 1) << header;
}

TEST(testTree, headersWithoutATestAreThereAndHaveNone)
{
    for (const auto& [header, reason] : withoutTest)
    {
        EXPECT_EQ(headers().count(header), 1u) << header;
        EXPECT_FALSE(hasTest(header)) << header;
        EXPECT_FALSE(reason.empty()) << header;
    }
}
