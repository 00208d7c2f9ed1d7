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
