#include "tkTest.h"

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace
{
/// The bytes that a line of an explained record begins with: pairs of hexadecimal digits, one or two spaces between
/// them. What follows after more spaces is explanation.
std::string bytesOfLine(const std::string& line)
{
    static const std::regex pattern("^[0-9a-f]{2}(?: {1,2}[0-9a-f]{2})*(?= {3}|$)");
    std::smatch digits;
    std::string bytes;
    if (std::regex_search(line, digits, pattern))
    {
        std::istringstream stream(digits.str());
        for (int byte = 0; stream >> std::hex >> byte;)
            bytes += static_cast<char>(byte);
    }
    return bytes;
}
} // namespace

TEST(records, bytesExplainedInTheDocumentAreThoseOfTheFiles)
{
    std::ifstream document(CLASTOOL_SOURCE_DIR "/docs/records.md");
    ASSERT_TRUE(document.is_open());
    static const std::regex named("^`([A-Za-z0-9_.]+\\.bin)`.*");
    std::set<std::string> seen;
    std::string file;
    bool isBlock = false;
    std::string bytes;
    for (std::string line; std::getline(document, line);)
    {
        std::smatch name;
        if (line.rfind("```", 0) == 0)
        {
            isBlock = !isBlock;
            if (!isBlock && !file.empty())
            {
                EXPECT_EQ(goldenBytes(file), bytes) << file;
                seen.insert(file);
                file.clear();
            }
            bytes.clear();
        }
        else if (isBlock)
            bytes += bytesOfLine(line);
        else if (std::regex_match(line, name, named))
            file = name[1];
    }
    EXPECT_EQ(1u, seen.count("tkFeaturePattern.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierDefs.BadLabel.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierDataProviderMemory.bin"));
}
