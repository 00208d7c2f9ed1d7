#include "tkTest.h"

#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace
{
/// The bytes that a line of an explained record begins with: pairs of hexadecimal digits, one or two spaces between
/// them. What follows after more spaces is explanation.
std::string bytesOfLine(const std::string& line)
{
    std::istringstream stream(line.substr(0, line.find("   ")));
    std::string bytes;
    for (int byte = 0; stream >> std::hex >> byte;)
        bytes += static_cast<char>(byte);
    return bytes;
}

/// The file that a line of text begins with in backticks, empty if none.
std::string fileOfLine(const std::string& line)
{
    const std::size_t end = line.find(".bin`");
    return line.rfind("`", 0) == 0 && end != std::string::npos ? line.substr(1, end + 3) : "";
}
} // namespace

TEST(records, bytesExplainedInTheDocumentAreThoseOfTheFiles)
{
    std::ifstream document(CLASTOOL_SOURCE_DIR "/docs/records.md");
    ASSERT_TRUE(document.is_open());
    std::set<std::string> seen;
    std::string file;
    bool isBlock = false;
    std::string bytes;
    for (std::string line; std::getline(document, line);)
    {
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
        else if (!fileOfLine(line).empty())
            file = fileOfLine(line);
    }
    EXPECT_EQ(1u, seen.count("tkFeaturePattern.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierDefs.BadLabel.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierDataProviderMemory.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierTool.KNN.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierRuleTable.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierFeatureVector.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkDecisionTreeNode.shared.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierDistributionTypes.v0.bin"));
    EXPECT_EQ(1u, seen.count("tk_PDFMultivariateNormal.v0.bin"));
    EXPECT_EQ(1u, seen.count("tk_PDFBinomial.v0.bin"));
    EXPECT_EQ(1u, seen.count("tk_ClassifierBayesian.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkPatternScaler.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkDecisionRule.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkAssessment.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkConfusionMatrix.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkCovariancePooling.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierTool.pooled.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkIncompleteTraining.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkClassifierTool.incomplete.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkTrainingReport.v0.bin"));
    EXPECT_EQ(1u, seen.count("tkNovelty.v0.bin"));
}
