#include "tkTest.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace
{
namespace fs = std::filesystem;

/// The tests in a source text that start threads and whose names do not say so, one line each.
std::string unnamedIn(std::istream& source)
{
    std::string unnamed;
    std::string test;
    for (std::string line; std::getline(source, line);)
    {
        if (line.rfind("TEST", 0) == 0)
            test = line;
        else if (line == "}")
            test.clear();
        const bool startsThread = line.find("std::thread ") != std::string::npos ||
                                  line.find("std::vector<std::thread>") != std::string::npos;
        if (startsThread && !test.empty() && test.find("hread") == std::string::npos)
            unnamed += test + "\n";
    }
    return unnamed;
}
} // namespace

TEST(threadTests, haveNamesByWhichThreadSanitizerGetsThem)
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

TEST(threadTests, withoutSuchANameAreFound)
{
    std::istringstream named("TEST(A, runsInThreads)\n{\n    std::thread one(work);\n}\n");
    EXPECT_EQ("", unnamedIn(named));
    std::istringstream unnamed("TEST(A, runs)\n{\n    std::vector<std::thread> all;\n}\nstd::thread* helper();\n");
    EXPECT_EQ("TEST(A, runs)\n", unnamedIn(unnamed));
}
