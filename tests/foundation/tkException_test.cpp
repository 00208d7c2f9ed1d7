#include "foundation/tkException.h"

#include "archiveTestObjects.h"
#include "tkTest.h"

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>

static_assert(std::is_base_of_v<std::exception, tkException> && std::is_base_of_v<tkPersistent, tkException>);
static_assert(std::is_abstract_v<tkException> && std::is_abstract_v<tkExceptionWithString>);

namespace
{
/// Stores `object` by pointer and loads it again.
std::unique_ptr<tkPersistent> throughPointer(tkPersistent& object)
{
    return loadPointerFromBytes(storePointerToBytes(object));
}

template <class T>
bool isExactly(const tkPersistent& object)
{
    return typeid(object) == typeid(T);
}

/// A heap copy that tells when it goes.
template <class Exception>
class Watched : public Exception
{
public:
    Watched(const std::wstring& message, bool& gone) : Exception(message), gone_(&gone) {}
    ~Watched() override { *gone_ = true; }

private:
    bool* gone_;
};
} // namespace

TEST(tkException, messageAndWhatGiveTheText)
{
    const tkFailure failure(L"Gr\u00f6\u00dfe \u20ac");
    EXPECT_EQ(L"Gr\u00f6\u00dfe \u20ac", failure.message());
    EXPECT_STREQ("Gr\xc3\xb6\xc3\x9f"
                 "e \xe2\x82\xac",
                 failure.what());
    EXPECT_EQ(L"", tkFailure().message());
    EXPECT_STREQ("", tkFailure().what());
}

TEST(tkException, whatShowsAReplacementForWhatIsNoCharacter)
{
    EXPECT_STREQ("a\xef\xbf\xbd", tkFailure(L"a" + std::wstring(1, static_cast<wchar_t>(0xDC00))).what());
}

TEST(tkException, isCaughtAsStandardException)
{
    std::string what;
    try
    {
        throw tkFailure(L"text");
    }
    catch (const std::exception& thrown)
    {
        what = thrown.what();
    }
    EXPECT_EQ("text", what);
}

TEST(tkException, errorNumbersAreFixed)
{
    EXPECT_EQ(0x10001000, tkFailure().errorNumber());
    EXPECT_EQ(0x10001001, tkArchive::Errors().errorNumber());
    EXPECT_EQ(0x10001002, tkArchive::UnknownVersion().errorNumber());
}

TEST(tkException, copiesAndAssignmentTakeTheMessage)
{
    const tkFailure a(L"one");
    tkFailure b(a);
    EXPECT_EQ(L"one", b.message());
    b = tkFailure(L"two");
    EXPECT_EQ(L"two", b.message());
    EXPECT_STREQ("two", b.what());
}

TEST(tkException, suicideAndRethrowThrowsItsOwnClassAndFreesTheObject)
{
    bool gone = false;
    EXPECT_TK_THROW((new Watched<tkFailure>(L"f", gone))->suicideAndRethrow(), tkFailure, L"f");
    EXPECT_TRUE(gone);
    gone = false;
    EXPECT_TK_THROW((new Watched<tkArchive::Errors>(L"e", gone))->suicideAndRethrow(), tkArchive::Errors, L"e");
    EXPECT_TRUE(gone);
    EXPECT_TK_THROW((new tkArchive::UnknownVersion("w", 3))->suicideAndRethrow(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (w, 3)");
}

TEST(tkException, recordsHaveFixedBytes)
{
    // Versions of tkFailure, tkExceptionWithString, tkException, tkPersistent; the text.
    EXPECT_EQ("00 00 00 00 02 00 00 00 c3 a9", hex(storeToBytes(tkFailure(L"\u00e9"))));
    // The same behind the version of tkArchive::Errors.
    EXPECT_EQ("00 00 00 00 01 00 00 00 78", hex(storeToBytes(tkArchive::Errors(L"x"))));
    const std::string text = "A record has an unknown version (w, 3)";
    EXPECT_EQ(fromHex("00 00 00 00 00 26 00 00 00") + text + fromHex("01 00 00 00 'w 03 00 00 00"),
              storeToBytes(tkArchive::UnknownVersion("w", 3)));
}

TEST(tkException, comesBackThroughTheRegistryAsItsOwnClass)
{
    tkFailure failure(L"f");
    const auto failureAgain = throughPointer(failure);
    ASSERT_TRUE(isExactly<tkFailure>(*failureAgain));
    EXPECT_STREQ("f", static_cast<tkFailure&>(*failureAgain).what());

    tkArchive::Errors errors(L"e");
    const auto errorsAgain = throughPointer(errors);
    ASSERT_TRUE(isExactly<tkArchive::Errors>(*errorsAgain));
    EXPECT_EQ(L"e", static_cast<tkArchive::Errors&>(*errorsAgain).message());

    tkArchive::UnknownVersion unknown("w", -3);
    const auto unknownAgain = throughPointer(unknown);
    ASSERT_TRUE(isExactly<tkArchive::UnknownVersion>(*unknownAgain));
    EXPECT_EQ("w", static_cast<tkArchive::UnknownVersion&>(*unknownAgain).where());
    EXPECT_EQ(-3, static_cast<tkArchive::UnknownVersion&>(*unknownAgain).number());
    EXPECT_EQ(unknown.message(), static_cast<tkArchive::UnknownVersion&>(*unknownAgain).message());
}

TEST(tkException, loadsEarlierRecords)
{
    const auto failure = loadPointerFromBytes(goldenBytes("tkFailure.v0.bin"));
    ASSERT_TRUE(isExactly<tkFailure>(*failure));
    EXPECT_EQ(goldenBytes("tkFailure.v0.bin"), storePointerToBytes(*failure));
    const auto errors = loadPointerFromBytes(goldenBytes("tkArchive.Errors.v0.bin"));
    ASSERT_TRUE(isExactly<tkArchive::Errors>(*errors));
    EXPECT_EQ(goldenBytes("tkArchive.Errors.v0.bin"), storePointerToBytes(*errors));
    const auto unknown = loadPointerFromBytes(goldenBytes("tkArchive.UnknownVersion.v0.bin"));
    ASSERT_TRUE(isExactly<tkArchive::UnknownVersion>(*unknown));
    EXPECT_EQ("tkRange", static_cast<tkArchive::UnknownVersion&>(*unknown).where());
    EXPECT_EQ(goldenBytes("tkArchive.UnknownVersion.v0.bin"), storePointerToBytes(*unknown));
}

TEST(tkException, refusesAnotherVersionAtEachLevel)
{
    const auto levels = [](auto object, std::vector<std::wstring> names)
    {
        for (std::size_t level = 0; level < names.size(); ++level)
        {
            std::string bytes = storeToBytes(object);
            bytes[level] = 1;
            std::istringstream stream(bytes);
            tkArchive archive(stream);
            const std::wstring place = names[level].empty() ? L"" : L" (" + names[level] + L", 0)";
            EXPECT_TK_THROW(archive || object, tkArchive::UnknownVersion, L"A record has an unknown version" + place);
        }
    };
    levels(tkFailure(L"f"), {L"tkFailure", L"", L"", L""});
    levels(tkArchive::Errors(L"f"), {L"tkArchive::Errors", L"", L"", L""});
    levels(tkArchive::UnknownVersion("w", 1), {L"tkArchive::UnknownVersion", L"tkArchive::Errors", L"", L"", L""});
}
