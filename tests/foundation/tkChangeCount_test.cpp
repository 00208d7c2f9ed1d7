#include "foundation/tkChangeCount.h"

#include "foundation/tkPtrHandle.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace
{
tkPtrHandle<tkChangeCount> newCount()
{
    return tkPtrHandle<tkChangeCount>(new tkChangeCount);
}
} // namespace

TEST(tkChangeReport, takesPartInTheFirstCountItIsAskedToJoin)
{
    const tkPtrHandle<tkChangeCount> first = newCount();
    const tkPtrHandle<tkChangeCount> second = newCount();
    tkChangeReport report;
    EXPECT_EQ(nullptr, report.count());
    report.changed(); // nobody wants to know
    EXPECT_EQ(first.get(), report.join(first.get()));
    EXPECT_EQ(first.get(), report.join(second.get()));
    EXPECT_EQ(first.get(), report.count());
    report.changed();
    EXPECT_EQ(1u, first->number());
    EXPECT_EQ(0u, second->number());
}

TEST(tkChangeReport, keepsItsCountAliveAndLetsItGo)
{
    const tkPtrHandle<tkChangeCount> count = newCount();
    {
        tkChangeReport report;
        report.join(count.get());
        report.join(count.get());
        EXPECT_EQ(2, count->referenceCount());
    }
    EXPECT_EQ(1, count->referenceCount());
}

TEST(tkChangeReport, copiesTakePartInNothingAndAssignmentIsAChange)
{
    const tkPtrHandle<tkChangeCount> count = newCount();
    const tkPtrHandle<tkChangeCount> other = newCount();
    tkChangeReport report, source;
    report.join(count.get());
    source.join(other.get());
    const tkChangeReport copy(report);
    EXPECT_EQ(nullptr, copy.count());
    report = source;
    EXPECT_EQ(count.get(), report.count());
    EXPECT_EQ(1u, count->number());
    EXPECT_EQ(0u, other->number());
}

TEST(tkChangeReport, threadsThatAskAtOnceGetTheSameCount)
{
    for (int round = 0; round < 50; ++round)
    {
        const tkChangeReport report;
        std::vector<tkPtrHandle<tkChangeCount>> joined(4);
        std::vector<std::thread> threads;
        for (tkPtrHandle<tkChangeCount>& own : joined)
            threads.emplace_back(
                [&]
                {
                    const tkPtrHandle<tkChangeCount> mine = newCount();
                    own = tkPtrHandle<tkChangeCount>(report.join(mine.get()));
                });
        for (std::thread& thread : threads)
            thread.join();
        for (const tkPtrHandle<tkChangeCount>& own : joined)
            EXPECT_EQ(report.count(), own.get());
        EXPECT_EQ(5, report.count()->referenceCount());
    }
}
