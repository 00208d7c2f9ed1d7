#include "numerics/kernels/tkNMInstructions.h"

#include "instructionSets.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(tkNMInstructions, theBestIsWhatTheProcessorHas)
{
    const tkNMInstructions best = tkNMBestInstructions();
    EXPECT_GE(best, tkNMInstructions::Portable);
    EXPECT_EQ(best, tkNMBestInstructions());
#if TK_HAS_X86_TARGETS
    EXPECT_GE(best, tkNMInstructions::Sse2);
    EXPECT_EQ(best >= tkNMInstructions::Avx2, __builtin_cpu_supports("avx2") != 0);
    EXPECT_EQ(best == tkNMInstructions::Avx512, __builtin_cpu_supports("avx2") != 0 &&
                                                    __builtin_cpu_supports("avx512f") != 0 &&
                                                    __builtin_cpu_supports("avx512bw") != 0);
#elif TK_HAS_NEON
    EXPECT_EQ(best, tkNMInstructions::Neon);
#else
    EXPECT_EQ(best, tkNMInstructions::Portable);
#endif
}

TEST(tkNMInstructions, testsSeeTheDefinitionAndEverySetUpToTheBest)
{
    const std::vector<tkNMInstructions> sets = instructionSets();
    EXPECT_EQ(sets.front(), tkNMInstructions::Definition);
    EXPECT_EQ(sets.back(), tkNMBestInstructions());
    EXPECT_TRUE(std::is_sorted(sets.begin(), sets.end()));
}
