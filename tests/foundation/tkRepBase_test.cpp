#include "foundation/tkRepBase.h"

#include "foundation/tkPtrHandle.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{
class Counted : public tkRepBase
{
public:
    explicit Counted(bool& gone) : gone_(&gone) {}
    ~Counted() override { *gone_ = true; }

private:
    bool* gone_;
};
} // namespace

TEST(tkRepBase, lastReferenceDeletesTheObject)
{
    bool gone = false;
    Counted* const object = new Counted(gone);
    EXPECT_EQ(0, object->referenceCount());
    object->addReference();
    object->addReference();
    EXPECT_EQ(2, object->referenceCount());
    object->removeReference();
    EXPECT_FALSE(gone);
    object->removeReference();
    EXPECT_TRUE(gone);
}

TEST(tkRepBase, copiesStartAtZeroAndAssignmentLeavesTheCountAlone)
{
    bool goneA = false;
    bool goneB = false;
    const tkPtrHandle<Counted> a(new Counted(goneA));
    const tkPtrHandle<Counted> a2(a);
    const tkPtrHandle<Counted> b(new Counted(goneB));
    const Counted copy(*a);
    EXPECT_EQ(0, copy.referenceCount());
    *b = *a;
    EXPECT_EQ(1, b->referenceCount());
    EXPECT_EQ(2, a->referenceCount());
}

TEST(tkRepBase, countSurvivesManyThreads)
{
    bool gone = false;
    {
        const tkPtrHandle<Counted> shared(new Counted(gone));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back(
                [shared]
                {
                    for (int i = 0; i < 20000; ++i)
                    {
                        tkPtrHandle<Counted> mine(shared);
                        tkPtrHandle_const<Counted> another(mine);
                        mine = tkPtrHandle<Counted>();
                    }
                });
        for (std::thread& thread : threads)
            thread.join();
        threads.clear();
        EXPECT_EQ(1, shared->referenceCount());
        EXPECT_FALSE(gone);
    }
    EXPECT_TRUE(gone);
}

TEST(tkRepBase, lastHandleMayGoOnAnyThread)
{
    for (int i = 0; i < 200; ++i)
    {
        bool gone = false;
        tkPtrHandle<Counted> first(new Counted(gone));
        tkPtrHandle<Counted> second(first);
        std::thread thread([&second] { second = tkPtrHandle<Counted>(); });
        first = tkPtrHandle<Counted>();
        thread.join();
        EXPECT_TRUE(gone);
    }
}
