#include "scriptedMethod.h"
#include "tkTest.h"

#include "foundation/tkArchiveOperators.h"

namespace
{
/// Gives access to the base's equality, which is protected.
class OpenParams : public ScriptedParams
{
public:
    bool baseEqual(const tkClassifierTrainParams& other) const { return tkClassifierTrainParams::isEqual_(other); }
};
} // namespace

TEST(tkClassifierTrainParams, throwsIfNotReadyUnlessToldOtherwise)
{
    ScriptedParams params;
    EXPECT_TRUE(params.throwIfNotReady());
    params.throwIfNotReady(false);
    EXPECT_FALSE(params.throwIfNotReady());
    params.throwIfNotReady(true);
    EXPECT_TRUE(params.throwIfNotReady());
}

TEST(tkClassifierTrainParams, throwIfNotReadyIsCopiedByCopiesClonesAndAssignment)
{
    ScriptedParams params;
    params.throwIfNotReady(false);
    EXPECT_FALSE(ScriptedParams(params).throwIfNotReady());
    EXPECT_FALSE(params.clone()->throwIfNotReady());
    ScriptedParams assigned;
    assigned = params;
    EXPECT_FALSE(assigned.throwIfNotReady());
}

TEST(tkClassifierTrainParams, theBaseFindsAllParametersEqual)
{
    OpenParams params;
    ScriptedParams other;
    other.throwIfNotReady(false);
    EXPECT_TRUE(params.baseEqual(other));
}

TEST(tkClassifierTrainParams, recordHoldsNoFieldOfItsOwn)
{
    ScriptedParams params;
    params.throwIfNotReady(false);
    EXPECT_EQ(storeToBytes(params), std::string(2, '\0'));
}

TEST(tkClassifierTrainParams, throwIfNotReadyIsNotStored)
{
    const tkPtrHandle<tkClassifierTrainParams> stored(new ScriptedParams);
    stored->throwIfNotReady(false);
    const std::string bytes = storeToBytes(stored);

    tkPtrHandle<tkClassifierTrainParams> created;
    loadFromBytes(bytes, created);
    EXPECT_TRUE(created->throwIfNotReady());

    ScriptedParams unchanged;
    unchanged.throwIfNotReady(false);
    loadFromBytes(storeToBytes(ScriptedParams()), unchanged);
    EXPECT_FALSE(unchanged.throwIfNotReady());
}

TEST(tkClassifierTrainParams, refusesAnUnknownVersionAtEachLevel)
{
    for (std::size_t level = 0; level < 2; ++level)
    {
        std::string damaged(2, '\0');
        damaged[level] = 1;
        ScriptedParams params;
        EXPECT_THROW(loadFromBytes(damaged, params), tkArchive::UnknownVersion) << level;
    }
}
