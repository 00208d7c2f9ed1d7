#include "tkTest.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

// ctest labels tests by their names: "thread" puts them under ThreadSanitizer, and "file" has root run them again, whom
// permissions do not stop.

namespace
{
namespace fs = std::filesystem;

/// The tests in a source text that start threads, or have a folder of their own, and whose names do not say so, one
/// line each. A fixture's folder counts for all of its tests: such a fixture has "File" in its own name.
std::string unnamedIn(std::istream& source)
{
    std::string unnamed;
    std::string test;
    for (std::string line; std::getline(source, line);)
    {
        const bool startsTest = line.rfind("TEST", 0) == 0;
        if (startsTest || line.rfind("class ", 0) == 0)
            test = line;
        else if (line == "}" || line == "};")
            test.clear();
        const bool startsThread = line.find("std::thread ") != std::string::npos ||
                                  line.find("std::vector<std::thread>") != std::string::npos;
        const bool hasFolder = line.find("tkFolder ") != std::string::npos && line.rfind("class tkFolder", 0) != 0;
        if (!test.empty() && ((startsThread && test.find("hread") == std::string::npos) ||
                              (hasFolder && test.find("ile") == std::string::npos)))
            unnamed += test + "\n";
    }
    return unnamed;
}
} // namespace

TEST(labels, ofTestsWithThreadsOrFilesFollowFromTheirNames)
{
    int count = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(CLASTOOL_SOURCE_DIR "/tests"))
    {
        if (entry.path().extension() != ".cpp")
            continue;
        std::ifstream source(entry.path());
        EXPECT_EQ("", unnamedIn(source)) << entry.path();
        ++count;
    }
    EXPECT_LT(10, count);
}

TEST(labels, missingFromNamesOfThreadAndFileTestsAreFound)
{
    std::istringstream named("TEST(A, runsInThreads)\n{\n    std::thread one(work);\n}\n"
                             "TEST(A, filesComeBack)\n{\n    const tkFolder folder;\n}\n");
    EXPECT_EQ("", unnamedIn(named));
    std::istringstream unnamed("TEST(A, runs)\n{\n    std::vector<std::thread> all;\n}\nstd::thread* helper();\n"
                               "TEST(A, saves)\n{\n    const tkFolder folder;\n}\n"
                               "class Saved : public ::testing::Test\n{\n    tkFolder folder_;\n};\n");
    EXPECT_EQ("TEST(A, runs)\nTEST(A, saves)\nclass Saved : public ::testing::Test\n", unnamedIn(unnamed));
}
