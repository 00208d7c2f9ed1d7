#include "tkFolder.h"
#include "tkTest.h"

#include "clss/clastool/clastool.h"

#include <type_traits>

// Loading from a file swaps the loaded object with the caller's, which must not fail. The parameters of nearest
// neighbours could only be copied, so that they could not be loaded from a file at all.

namespace
{
template <class... Classes>
constexpr bool canBeLoadedFromFiles = (std::is_nothrow_swappable_v<Classes> && ...);
} // namespace

static_assert(canBeLoadedFromFiles<tkFeaturePattern, tkClassifierDataProviderMemory, tkClassifierCosts,
                                   tkClassifierFrequencies, tkClassifierResult, tkClassifierCategoryResult,
                                   tkClassifierTool, tkClassifierDistributionTypes, tkClassifierTrainParamsBayesian,
                                   tkClassifierTrainParamsKNN, tkPatternDistanceMetricNorm, tkRangePredicate,
                                   tkValidityPredicate, tkComparisonPredicate, tkDecisionTreeNode, tkDecisionTreeLeaf,
                                   tkClassifierRule, tkClassifierRuleTable, tkClassifierFeatureVector>);

TEST(parametersCouldNotBeLoadedFromAFile, parametersOfNearestNeighborsComeBack)
{
    tkClassifierTrainParamsKNN stored(5, tkPatternDistanceMetricNorm(3.0), tkClassifierCosts(2.0));
    tkClassifierTrainParamsKNN loaded;
    loaded.throwIfNotReady(false);
    using std::swap;
    swap(stored, loaded);
    EXPECT_EQ(loaded.k(), 5);
    EXPECT_TRUE(loaded.throwIfNotReady());
    EXPECT_EQ(stored.k(), 1);
    EXPECT_FALSE(stored.throwIfNotReady());

    const tkFolder folder;
    tkArchiveFile::save(folder.path / "parameters.tk", loaded);
    tkClassifierTrainParamsKNN again;
    tkArchiveFile::load(folder.path / "parameters.tk", again);
    EXPECT_TRUE(again == loaded);
}
