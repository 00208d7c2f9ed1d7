#include "tkTest.h"

#include <gtest/gtest-spi.h>

#include <stdexcept>

namespace
{
class DerivedFailure : public tkFailure
{
public:
    using tkFailure::tkFailure;
};

void fail(const std::wstring& text)
{
    throw tkFailure(text);
}
} // namespace

TEST(EXPECT_TK_THROW, acceptsTheClassAndTheTextItNames)
{
    EXPECT_TK_THROW(fail(L"a text"), tkFailure, L"a text");
    EXPECT_TK_THROW(fail(L""), tkFailure, L"");
}

TEST(EXPECT_TK_THROW, refusesAnotherTextAndShowsIt)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(fail(L"a text"), tkFailure, L"a text."),
                            "threw tkFailure with L\"a text\"");
}

TEST(EXPECT_TK_THROW, refusesDerivedAndBaseClasses)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(throw DerivedFailure(L"a text"), tkFailure, L"a text"), "DerivedFailure");
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(fail(L"a text"), tkException, L"a text"), "threw tkFailure");
}

TEST(EXPECT_TK_THROW, refusesWhatIsNoExceptionOfTheFoundation)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(throw std::logic_error("foreign"), tkFailure, L"foreign"),
                            "std::logic_error with \"foreign\"");
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(throw 1, tkFailure, L""), "threw something that is not an exception");
}

TEST(EXPECT_TK_THROW, refusesAStatementThatThrowsNothing)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_TK_THROW(static_cast<void>(0), tkFailure, L""), "threw nothing");
}

TEST(loadFromBytes, givesBackWhatStoreToBytesStored)
{
    double loaded = 0.0;
    loadFromBytes(storeToBytes(0.1), loaded);
    EXPECT_EQ(0.1, loaded);
}

TEST(loadFromBytes, failsIfBytesAreLeftOver)
{
    EXPECT_NONFATAL_FAILURE(
        {
            double loaded = 0.0;
            loadFromBytes(storeToBytes(0.1) + "x", loaded);
        },
        "bytes are left over");
}

TEST(goldenBytes, failsForAFileThatIsNotThere)
{
    EXPECT_NONFATAL_FAILURE(EXPECT_EQ("", goldenBytes("no such file")), "cannot read no such file");
}
