#include "foundation/tkAssert.h"
#include "foundation/tkPtrHandle.h"
#include "tkTest.h"

#include <thread>

// A handle deletes its object when it is the last to hold it. Given the address of a variable it did so too, and the
// program was aborted within the memory management, far from the mistake. Where the system tells the ends of a thread's
// stack, an assertion fails at the mistake now.

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VARIABLES_ARE_ON_THE_HEAP
#endif
#endif
#if !defined(VARIABLES_ARE_ON_THE_HEAP)
namespace
{
class Object : public tkRepBase
{
};

struct Owner
{
    Object member;
};

void expectStackIsRefused()
{
    Object variable;
    EXPECT_THROW(tkPtrHandle<Object>{&variable}, tkAssertionFailure);
    EXPECT_THROW(tkPtrHandle_const<Object>{&variable}, tkAssertionFailure);
    Owner owner;
    EXPECT_THROW(tkPtrHandle<tkRepBase>{&owner.member}, tkAssertionFailure);
    EXPECT_EQ(0, variable.referenceCount());
    EXPECT_EQ(0, owner.member.referenceCount());

    const tkPtrHandle<Object> fine(new Object);
    const tkPtrHandle<Object> again(fine.get());
    EXPECT_EQ(2, fine->referenceCount());
}
} // namespace

TEST(stackObjectGivenToAHandle, isAnAssertion)
{
    expectStackIsRefused();
}

TEST(stackObjectGivenToAHandle, isAnAssertionInEveryThread)
{
    std::thread thread(&expectStackIsRefused);
    thread.join();
}

TEST(stackObjectGivenToAHandle, variableThatSomebodyHoldsMayBeSharedByThoseWhoGiveItBack)
{
    Object variable;
    variable.addReference();
    {
        const tkPtrHandle<Object> handle(&variable);
        EXPECT_EQ(2, variable.referenceCount());
    }
    EXPECT_TRUE(variable.dropReference());
}
#endif
#endif
