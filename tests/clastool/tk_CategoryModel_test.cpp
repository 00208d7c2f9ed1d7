#include "tkTest.h"

#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/clastool/clastool/tk_CategoryModel.h"
#include "foundation/tkPtrHandle.h"

namespace
{
/// The smallest model.
class PlainModel : public tk_CategoryModel
{
public:
    double matchScore(const tkFeaturePattern&, tkDiagObject*, unsigned long) const override { return 0.5; }
    void adapt(const tkFeaturePattern& pattern, tkDiagObject*, unsigned long) override
    {
        numMeasurements(pattern.numMeasurements());
    }
};
} // namespace

TEST(tk_CategoryModel, startsWithZerosAndStoresWhatItIsGivenUnchecked)
{
    PlainModel model;
    EXPECT_EQ(model.categoryLabel(), 0);
    EXPECT_EQ(model.numMeasurements(), 0);
    model.categoryLabel(-7);
    model.numMeasurements(-3);
    EXPECT_EQ(model.categoryLabel(), -7);
    EXPECT_EQ(model.numMeasurements(), -3);
}

TEST(tk_CategoryModel, equalityAndCopiesRegardBothFields)
{
    PlainModel model;
    model.categoryLabel(4);
    model.numMeasurements(2);

    const PlainModel copy(model);
    EXPECT_TRUE(copy == model);
    EXPECT_FALSE(copy != model);

    PlainModel assigned;
    EXPECT_TRUE(assigned != model);
    assigned = model;
    EXPECT_EQ(assigned.categoryLabel(), 4);
    EXPECT_EQ(assigned.numMeasurements(), 2);
    EXPECT_TRUE(assigned == model);

    assigned.categoryLabel(5);
    EXPECT_FALSE(assigned == model);
    assigned.categoryLabel(4);
    assigned.numMeasurements(3);
    EXPECT_FALSE(assigned == model);
}

TEST(tk_CategoryModel, copiesAreNotHeldByTheHandlesOfTheOriginal)
{
    const tkPtrHandle<PlainModel> held(new PlainModel);
    const PlainModel copy(*held);
    EXPECT_EQ(held->referenceCount(), 1);
    EXPECT_EQ(copy.referenceCount(), 0);
}

TEST(tk_CategoryModel, theOptionalArgumentsOfTheStepsDefaultToRecordingNothing)
{
    PlainModel model;
    tk_CategoryModel& base = model;
    base.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_EQ(base.numMeasurements(), 2);
    EXPECT_EQ(base.matchScore(tkFeaturePattern()), 0.5);
}

TEST(tk_CategoryModel, recordIsTheBaseRecordThenBothFields)
{
    PlainModel model;
    model.categoryLabel(258);
    model.numMeasurements(-2);
    const std::string bytes = storeToBytes(model);
    EXPECT_EQ(bytes, std::string("\0\0\x02\x01\0\0\xFE\xFF\xFF\xFF", 10));

    PlainModel loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == model);
}

TEST(tk_CategoryModel, refusesAnUnknownVersionAtEachLevel)
{
    const std::string bytes = storeToBytes(PlainModel());
    for (std::size_t level = 0; level < 2; ++level)
    {
        std::string damaged = bytes;
        damaged[level] = 1;
        PlainModel model;
        model.categoryLabel(9);
        EXPECT_THROW(loadFromBytes(damaged, model), tkArchive::UnknownVersion) << level;
        EXPECT_EQ(model.categoryLabel(), 9) << level;
    }
}
