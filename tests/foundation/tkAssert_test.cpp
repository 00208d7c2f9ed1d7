#include "foundation/tkAssert.h"

#include "foundation/tkException.h"
#include "tkTest.h"

#include <string>
#include <type_traits>

namespace
{
std::string seen;

void remember(const char* expression, const char* file, int line)
{
    seen = std::string(expression) + " " + file + " " + std::to_string(line);
}

void throwAnother(const char*, const char*, int)
{
    throw 42;
}

/// Installs a handler for one test.
class Handler
{
public:
    explicit Handler(tkAssertionHandler handler) : before_(tkSetAssertionHandler(handler)) { seen.clear(); }
    ~Handler() { tkSetAssertionHandler(before_); }

private:
    tkAssertionHandler before_;
};
} // namespace

static_assert(std::is_base_of_v<std::logic_error, tkAssertionFailure>);
static_assert(!std::is_base_of_v<tkException, tkAssertionFailure>, "handlers of errors must not swallow bugs");

TEST(tkAssert, throwsWithExpressionFileAndLineInEveryBuildType)
{
    std::string what;
    const int line = __LINE__ + 3;
    try
    {
        TK_ASSERT(1 + 1 == 3);
    }
    catch (const tkAssertionFailure& failure)
    {
        what = failure.what();
    }
    EXPECT_EQ("Assertion failed: 1 + 1 == 3 (" + std::string(__FILE__) + ":" + std::to_string(line) + ")", what);
}

TEST(tkAssert, evaluatesTheConditionOnceAndPassesWhereItHolds)
{
    int evaluated = 0;
    TK_ASSERT(++evaluated);
    EXPECT_EQ(1, evaluated);
}

TEST(tkAssert, callsTheHandlerBeforeItThrows)
{
    const Handler handler(&remember);
    EXPECT_THROW(tkAssertionFailed("x", "y.cpp", 7), tkAssertionFailure);
    EXPECT_EQ("x y.cpp 7", seen);
}

TEST(tkAssert, passesOnWhatTheHandlerThrows)
{
    const Handler handler(&throwAnother);
    EXPECT_THROW(TK_ASSERT(false), int);
}

TEST(tkAssert, installingGivesTheHandlerBefore)
{
    EXPECT_EQ(nullptr, tkSetAssertionHandler(&remember));
    EXPECT_EQ(&remember, tkSetAssertionHandler(nullptr));
    seen.clear();
    EXPECT_THROW(TK_ASSERT(false), tkAssertionFailure);
    EXPECT_EQ("", seen);
}

TEST(tkAssert, aConditionThatIsOnlyVerifiedIsReportedAndNothingIsThrown)
{
    const Handler handler(remember);
    EXPECT_TRUE(TK_VERIFY(1 + 1 == 2));
    EXPECT_EQ("", seen);
    const int line = __LINE__ + 1;
    EXPECT_FALSE(TK_VERIFY(1 + 1 == 3));
    EXPECT_EQ("1 + 1 == 3 " + std::string(__FILE__) + " " + std::to_string(line), seen);
}

TEST(tkAssert, whatTheHandlerThrowsPassesOutOfAVerification)
{
    const Handler handler(throwAnother);
    EXPECT_THROW(static_cast<void>(TK_VERIFY(1 + 1 == 3)), int);
}

TEST(tkAssert, verifiesWithoutAHandler)
{
    const Handler handler(nullptr);
    EXPECT_FALSE(TK_VERIFY(1 + 1 == 3));
}
