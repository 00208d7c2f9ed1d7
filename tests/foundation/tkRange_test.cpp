#include "foundation/tkRange.h"

#include "tkTest.h"

#include <cmath>
#include <limits>
#include <vector>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();
} // namespace

TEST(tkRange, endsAreClosed)
{
    const tkRange range(-1.5, 10.0);
    EXPECT_EQ(-1.5, range.low());
    EXPECT_EQ(10.0, range.high());
    EXPECT_TRUE(range.isWithin(-1.5));
    EXPECT_TRUE(range.isWithin(0.0));
    EXPECT_TRUE(range.isWithin(10.0));
    EXPECT_FALSE(range.isWithin(std::nextafter(-1.5, -2.0)));
    EXPECT_FALSE(range.isWithin(std::nextafter(10.0, 11.0)));
    EXPECT_TRUE(tkRange(3.0, 3.0).isWithin(3.0));
    EXPECT_FALSE(tkRange(3.0, 3.0).isWithin(std::nextafter(3.0, 4.0)));
    EXPECT_TRUE(tkRange(0.0, 1.0).isWithin(-0.0));
}

TEST(tkRange, fullRangeAcceptsEveryValueAndIsTheDefault)
{
    for (const double value : {0.0, -1e308, 1e308, -infinity, infinity, notANumber, -notANumber})
    {
        EXPECT_TRUE(tkRange::FullRange().isWithin(value)) << value;
        EXPECT_TRUE(tkRange().isWithin(value)) << value;
    }
    EXPECT_TRUE(tkRange() == tkRange::FullRange());
    EXPECT_TRUE(tkRange(-infinity, infinity) == tkRange::FullRange());
}

TEST(tkRange, noOtherRangeAcceptsNaN)
{
    for (const tkRange& range :
         {tkRange(0.0, 1.0), tkRange(-infinity, 1.0), tkRange(0.0, infinity), tkRange(-infinity, 1.7e308),
          tkRange(infinity, -infinity), tkRange(notANumber, notANumber), tkRange(notANumber, infinity),
          tkRange(-infinity, notANumber)})
        EXPECT_FALSE(range.isWithin(notANumber)) << range.low() << " " << range.high();
}

TEST(tkRange, halfOpenRangesAcceptTheInfinityOfTheirSideOnly)
{
    EXPECT_TRUE(tkRange(-infinity, 1.0).isWithin(-infinity));
    EXPECT_FALSE(tkRange(-infinity, 1.0).isWithin(infinity));
    EXPECT_TRUE(tkRange(0.0, infinity).isWithin(infinity));
    EXPECT_FALSE(tkRange(0.0, infinity).isWithin(-infinity));
}

TEST(tkRange, crossedOrNaNEndsAcceptNothing)
{
    for (const tkRange& range :
         {tkRange(2.0, 1.0), tkRange(infinity, -infinity), tkRange(notANumber, 1.0), tkRange(1.0, notANumber)})
        for (const double value : {1.0, 1.5, 2.0, -infinity, infinity, notANumber})
            EXPECT_FALSE(range.isWithin(value)) << range.low() << " " << range.high() << " " << value;
}

TEST(tkRange, equalityComparesBothEnds)
{
    EXPECT_TRUE(tkRange(1.0, 2.0) == tkRange(1.0, 2.0));
    EXPECT_FALSE(tkRange(1.0, 2.0) != tkRange(1.0, 2.0));
    EXPECT_TRUE(tkRange(1.0, 2.0) != tkRange(1.0, 3.0));
    EXPECT_TRUE(tkRange(1.0, 2.0) != tkRange(0.0, 2.0));
    EXPECT_FALSE(tkRange(1.0, 2.0) == tkRange(2.0, 1.0));
    EXPECT_TRUE(tkRange(notANumber, 2.0) != tkRange(notANumber, 2.0));
}

TEST(tkRange, recordHasFixedBytesAndComesBackEqual)
{
    const std::string bytes("\0"
                            "\0\0\0\0\0\0\xf8\xbf"  // -1.5
                            "\0\0\0\0\0\0\x24\x40", // 10.0
                            17);
    EXPECT_EQ(bytes, storeToBytes(tkRange(-1.5, 10.0)));
    tkRange loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == tkRange(-1.5, 10.0));
    loadFromBytes(storeToBytes(tkRange::FullRange()), loaded);
    EXPECT_TRUE(loaded == tkRange::FullRange());
    EXPECT_TRUE(loaded.isWithin(notANumber));
    loadFromBytes(storeToBytes(tkRange(2.0, 1.0)), loaded);
    EXPECT_TRUE(loaded == tkRange(2.0, 1.0));
}

TEST(tkRange, loadsAnEarlierRecord)
{
    tkRange loaded;
    loadFromBytes(goldenBytes("tkRange.v0.bin"), loaded);
    EXPECT_TRUE(loaded == tkRange(-1.5, 10.0));
    EXPECT_EQ(goldenBytes("tkRange.v0.bin"), storeToBytes(loaded));
}

TEST(tkRange, refusesAnotherVersionBeforeReadingFurther)
{
    tkRange loaded(1.0, 2.0);
    std::istringstream stream(std::string("\1", 1));
    tkArchive archive(stream);
    EXPECT_TK_THROW(archive || loaded, tkArchive::UnknownVersion, L"A record has an unknown version (tkRange, 0)");
    EXPECT_TRUE(loaded == tkRange(1.0, 2.0));
}

TEST(tkRange, truncatedRecordLeavesItUnchanged)
{
    const std::string bytes = storeToBytes(tkRange(3.0, 4.0));
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        tkRange loaded(1.0, 2.0);
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_TRUE(loaded == tkRange(1.0, 2.0)) << length;
    }
}
