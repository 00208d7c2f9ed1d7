#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tk_Classifier.h"
#include "foundation/tkArchiveOperators.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <sstream>

// An archive in which one classifier stands twice, as a handle and in a tool or in two tools, gave two owners of one
// object: destroying or untraining a tool untrains its classifier, and with it the other's. So did the archive, which
// keeps what it has loaded: a tool that went before the next one was loaded left that untrained. A tool that is loaded
// takes a clone now, as it does when it is copied.

namespace
{
/// A stored tool, and then the number of its classifier once more, as a second tool's record.
std::string twoToolsOfOneClassifier()
{
    tkClassifierDataProviderMemory data;
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({1.0})), 0);
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({2.0})), 1);
    tkClassifierTool tool;
    tool.train(data, tkClassifierTrainParamsKNN());
    std::ostringstream stream;
    tkArchive archive(stream);
    archive || tool || tool;
    return stream.str();
}
} // namespace

TEST(loadedToolsSharedAClassifier, oneToolGoesAndTheOtherStaysTrained)
{
    std::istringstream stream(twoToolsOfOneClassifier());
    tkArchive archive(stream);
    tkClassifierTool first;
    {
        tkClassifierTool second;
        archive || first || second;
        EXPECT_TRUE(first.isTrained());
        EXPECT_TRUE(second.isTrained());
        EXPECT_TRUE(first == second);
    }
    EXPECT_TRUE(first.isTrained());
    tkClassifierResult result;
    first.run(tkFeaturePattern({1.25}), result);
    EXPECT_EQ(0, result.categoryResults()[0].categoryLabel());
}

TEST(loadedToolsSharedAClassifier, toolThatGoesFirstLeavesTheNextOneTrained)
{
    std::istringstream stream(twoToolsOfOneClassifier());
    tkArchive archive(stream);
    {
        tkClassifierTool first;
        archive || first;
        EXPECT_TRUE(first.isTrained());
    }
    tkClassifierTool second;
    archive || second;
    EXPECT_TRUE(second.isTrained());
}

TEST(loadedToolsSharedAClassifier, vectorsOfToolsComeBackTrained)
{
    tkClassifierDataProviderMemory data;
    data.addData(std::vector<double>{1.0}, 0);
    tkClassifierTool tool;
    tool.train(data, tkClassifierTrainParamsKNN());
    std::vector<tkClassifierTool> tools(5, tool);
    std::ostringstream out;
    tkArchive storing(out);
    storing || tool || tools || tools;

    std::istringstream in(out.str());
    tkArchive loading(in);
    std::vector<tkClassifierTool> first;
    std::vector<tkClassifierTool> second;
    loading || tool || first || second;
    for (const std::vector<tkClassifierTool>& loaded : {first, second})
        for (const tkClassifierTool& each : loaded)
            EXPECT_TRUE(each.isTrained());
}

TEST(loadedToolsSharedAClassifier, handleAndToolAreIndependent)
{
    std::istringstream stream(twoToolsOfOneClassifier());
    tkArchive archive(stream);
    // A tool's record is a version byte and the record of a handle.
    tkPtrHandle<tk_Classifier> handle;
    archive.exchangeVersion();
    archive || handle;
    tkClassifierTool tool;
    archive || tool;
    tool.untrain();
    EXPECT_TRUE(handle->isTrained());
}

TEST(loadedToolsSharedAClassifier, cloneThatFailsLeavesTheToolEmptyAndFailsTheArchive)
{
    const std::string bytes = twoToolsOfOneClassifier();
    bool failedInTheClone = false;
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        std::istringstream stream(bytes + std::string(4, '\0'));
        tkArchive archive(stream);
        tkClassifierTool first;
        archive || first;
        tkClassifierTool second(first);
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                archive || second;
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        if (failed)
        {
            failedInTheClone = failedInTheClone || archive.position() == bytes.size();
            EXPECT_FALSE(second.isTrained());
            EXPECT_TRUE(first.isTrained());
            long more = 0;
            EXPECT_THROW(archive || more, tkArchive::Errors);
        }
    }
    EXPECT_TRUE(failedInTheClone);
}
