#include "tests/bayes/bayesTestData.h"
#include "tkTest.h"

#include <sstream>

// The number of measurements of a category model can be set. One that is not the size of its sets was stored, and the
// archive could then not be loaded. Storing now refuses it as loading does.

using namespace bayesTest;

TEST(modelWithAnotherNumberOfMeasurements, isRefusedWhenItIsStored)
{
    tk_ClassifierBayesian classifier = manyCategories(2, false);
    tk_CategoryModelBayesian& changed = changeable(classifier, 5);
    const auto store = [](auto& object)
    {
        std::ostringstream stream;
        tkArchive archive(stream);
        archive || object;
    };
    for (const long number : {-1L, 0L, 19L, 21L})
    {
        changed.numMeasurements(number);
        EXPECT_TK_THROW(store(changed), tkArchive::Errors,
                        L"A stored category model has another number of measurements than its dependency sets "
                        L"(writing, at byte 1)");
        EXPECT_TK_THROW(store(classifier), tkArchive::Errors,
                        L"A stored category model has another number of measurements than its dependency sets "
                        L"(writing, at byte 14969)");
    }
    changed.numMeasurements(20);
    tk_ClassifierBayesian loaded;
    loadFromBytes(storeToBytes(classifier), loaded);
    EXPECT_TRUE(loaded == classifier);
}
