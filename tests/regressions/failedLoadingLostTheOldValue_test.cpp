#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "foundation/tkArchiveFile.h"
#include "tkAllocations.h"
#include "tkFolder.h"
#include "tkTest.h"

// tkArchiveFile::load promises that the object keeps its value if anything throws. It loaded a new object and moved it
// into the caller's; but a tool that is moved is copied, by a clone for which memory may run out. The copy had another
// fault: a tool takes over a trained classifier only, so that a stored tool with an untrained one came back empty. The
// two objects are swapped now, which cannot fail, and a class whose swap could does not compile.

namespace
{
tkClassifierTool trainedTool(double x)
{
    tkClassifierDataProviderMemory data;
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({x})), 0);
    data.addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({x + 1.0})), 1);
    tkClassifierTool tool;
    tool.train(data, tkClassifierTrainParamsKNN());
    return tool;
}
} // namespace

TEST(failedLoadingLostTheOldValue, toolKeepsItsClassifierWhereverLoadingAFileRunsOutOfMemory)
{
    const tkFolder folder;
    const std::filesystem::path path = folder.path / "tool";
    const tkClassifierTool stored = trainedTool(5.0);
    tkArchiveFile::save(path, stored);
    const tkClassifierTool before = trainedTool(1.0);
    tkClassifierTool tool(before);
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                tkArchiveFile::load(path, tool);
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        if (failed)
        {
            ASSERT_TRUE(tool == before) << "after " << allowed << " allocations";
        }
    }
    EXPECT_TRUE(tool == stored);
}

TEST(failedLoadingLostTheOldValue, fileOfAToolWithAnUntrainedClassifierHoldsItAgain)
{
    const tkFolder folder;
    const std::filesystem::path path = folder.path / "tool";
    tkClassifierTool untrained = trainedTool(1.0);
    untrained.untrain();
    tkArchiveFile::save(path, untrained);
    tkClassifierTool loaded;
    tkArchiveFile::load(path, loaded);
    // An empty tool would not know of a classification method; both refuse to run, the classifier by itself.
    EXPECT_EQ(storeToBytes(untrained), storeToBytes(loaded));
    EXPECT_NE(storeToBytes(tkClassifierTool()), storeToBytes(loaded));
    EXPECT_FALSE(loaded.isTrained());
}
