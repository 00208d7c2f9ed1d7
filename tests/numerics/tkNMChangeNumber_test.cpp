#include "numerics/tkNMChangeNumber.h"

#include "foundation/tkPtrHandle.h"

#include <gtest/gtest.h>

TEST(tkNMChangeNumber, growsForAllWhoHoldIt)
{
    const tkPtrHandle<tkNMChangeNumber> number(new tkNMChangeNumber);
    const tkPtrHandle<tkNMChangeNumber> other(number);
    const std::uint64_t noted = other->value();
    EXPECT_EQ(number->value(), noted);
    number->grow();
    EXPECT_NE(other->value(), noted);
}

TEST(tkNMChangeNumber, noValueComesTwice)
{
    tkNMChangeNumber number;
    EXPECT_EQ(number.value(), tkNMChangeNumber().value());
    for (int i = 0; i < 1000; ++i)
    {
        const std::uint64_t before = number.value();
        number.grow();
        ASSERT_GT(number.value(), before);
    }
}

TEST(tkNMChangeNumber, whatWasDerivedBeforeAChangeIsStaleForGood)
{
    const tkPtrHandle<tkNMChangeNumber> first(new tkNMChangeNumber);
    const tkPtrHandle<tkNMChangeNumber> second(new tkNMChangeNumber);
    const std::uint64_t noted = first->value();
    second->grow(); // another owner's change
    EXPECT_EQ(first->value(), noted);
    first->grow();
    first->grow();
    EXPECT_NE(first->value(), noted);
}
