#include "foundation/tkDiagObject.h"

#include <gtest/gtest.h>

namespace
{
/// Records into another object and drops one flag.
class Redirecting : public tkDiagObject
{
public:
    explicit Redirecting(tkDiagObject* destination) : destination_(destination) {}

protected:
    tkDiagObject* recordingDestination_(unsigned long& flags) override
    {
        flags &= ~1UL;
        return destination_;
    }

private:
    tkDiagObject* destination_;
};
} // namespace

TEST(tkDiagObject, noObjectIsNoDestination)
{
    unsigned long flags = 5;
    EXPECT_EQ(nullptr, tkDiagObject::getRecordingDestination(nullptr, flags));
    EXPECT_EQ(5u, flags);
}

TEST(tkDiagObject, recordsIntoItselfUnlessItSaysOtherwise)
{
    tkDiagObject plain;
    unsigned long flags = 5;
    EXPECT_EQ(&plain, tkDiagObject::getRecordingDestination(&plain, flags));
    EXPECT_EQ(5u, flags);
    Redirecting redirecting(&plain);
    EXPECT_EQ(&plain, tkDiagObject::getRecordingDestination(&redirecting, flags));
    EXPECT_EQ(4u, flags);
    Redirecting silent(nullptr);
    EXPECT_EQ(nullptr, tkDiagObject::getRecordingDestination(&silent, flags));
}
