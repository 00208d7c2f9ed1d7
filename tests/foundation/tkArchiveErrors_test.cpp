#include "foundation/tkArchiveErrors.h"

#include "tkTest.h"

#include <string>
#include <type_traits>
#include <utility>

static_assert(std::is_base_of_v<tkExceptionWithString, tkArchive::Errors>);
static_assert(std::is_nothrow_move_assignable_v<tkArchive::UnknownVersion>);

TEST(tkArchiveErrors, haveTheirMessageAndNumber)
{
    EXPECT_EQ(L"", tkArchive::Errors().message());
    const tkArchive::Errors errors(L"cause");
    EXPECT_EQ(L"cause", errors.message());
    EXPECT_STREQ("cause", errors.what());
    EXPECT_EQ(0x10001001, errors.errorNumber());
    EXPECT_EQ(0x10001002, tkArchive::UnknownVersion().errorNumber());
}

TEST(tkArchiveErrors, unknownVersionNamesThePlaceInItsMessage)
{
    const tkArchive::UnknownVersion unknown("folder/source", -7);
    EXPECT_EQ("folder/source", unknown.where());
    EXPECT_EQ(-7, unknown.number());
    EXPECT_EQ(L"A record has an unknown version (folder/source, -7)", unknown.message());
}

TEST(tkArchiveErrors, placesThatAreNoUnicodeAreShownReadably)
{
    const tkArchive::UnknownVersion unknown("a\xff", 1);
    EXPECT_EQ("a\xff", unknown.where());
    EXPECT_EQ(std::wstring::npos, unknown.message().find(L'\xff'));
    EXPECT_EQ(0u, unknown.message().find(L"A record has an unknown version (a"));
}

TEST(tkArchiveErrors, anUnknownVersionIsCaughtAsAnErrorOfTheArchive)
{
    try
    {
        tkArchive::requireVersion0(1, "X", 3);
        FAIL() << "accepted version 1";
    }
    catch (const tkArchive::Errors& error)
    {
        EXPECT_EQ(L"A record has an unknown version (X, 3)", error.message());
        EXPECT_EQ(0x10001002, error.errorNumber());
    }
}

TEST(tkArchiveErrors, copiesAndMovesHaveEveryField)
{
    tkArchive::UnknownVersion original("a place whose name is too long for a string without memory", 5);
    const tkArchive::UnknownVersion copy(original);
    tkArchive::UnknownVersion moved(std::move(original));
    tkArchive::UnknownVersion assigned;
    assigned = copy;
    for (const tkArchive::UnknownVersion* object : {&copy, &std::as_const(moved), &std::as_const(assigned)})
    {
        EXPECT_EQ("a place whose name is too long for a string without memory", object->where());
        EXPECT_EQ(5, object->number());
        EXPECT_NE(std::wstring::npos, object->message().find(L"without memory, 5"));
    }
}

TEST(tkArchiveErrors, unknownVersionWithoutPlaceHasAnEmptyOne)
{
    const tkArchive::UnknownVersion unnamed;
    EXPECT_EQ("", unnamed.where());
    EXPECT_EQ(0, unnamed.number());
    EXPECT_EQ(L"A record has an unknown version", unnamed.message());
}

TEST(tkArchiveErrors, loadingReplacesEveryField)
{
    tkArchive::UnknownVersion object("somewhere", 5);
    loadFromBytes(storeToBytes(tkArchive::UnknownVersion()), object);
    EXPECT_EQ("", object.where());
    EXPECT_EQ(0, object.number());
    EXPECT_EQ(L"A record has an unknown version", object.message());
}
