#include "clss/clastool/clastool/tkClassifierDefs.h"

#include "tests/golden/dataModel.h"
#include "tkTest.h"

#include <exception>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace
{
using Defs = tkClassifierDefs;

/// What is different between the error classes.
template <class Error>
struct Facts;
template <>
struct Facts<Defs::BadParams>
{
    static constexpr const char* name = "BadParams";
    static constexpr long number = 0x10004200;
};
template <>
struct Facts<Defs::NotTrained>
{
    static constexpr const char* name = "NotTrained";
    static constexpr long number = 0x10004201;
};
template <>
struct Facts<Defs::BadIndex>
{
    static constexpr const char* name = "BadIndex";
    static constexpr long number = 0x10004202;
};
template <>
struct Facts<Defs::BadLabel>
{
    static constexpr const char* name = "BadLabel";
    static constexpr long number = 0x10004203;
};
template <>
struct Facts<Defs::BadMethod>
{
    static constexpr const char* name = "BadMethod";
    static constexpr long number = 0x10004204;
};
template <>
struct Facts<Defs::NotImplemented>
{
    static constexpr const char* name = "NotImplemented";
    static constexpr long number = 0x10004205;
};
template <>
struct Facts<Defs::BadFeatures>
{
    static constexpr const char* name = "BadFeatures";
    static constexpr long number = 0x10004206;
};
template <>
struct Facts<Defs::InsufficientTrainData>
{
    static constexpr const char* name = "InsufficientTrainData";
    static constexpr long number = 0x10004207;
};

template <class Error>
std::string qualifiedName()
{
    return std::string("tkClassifierDefs::") + Facts<Error>::name;
}

std::string word(std::size_t value)
{
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<char>(value >> (8 * i) & 0xff);
    return bytes;
}

/// Where the record begins in an archive that holds a pointer to one error.
template <class Error>
std::size_t recordStart()
{
    return 4 + 4 + 4 + qualifiedName<Error>().size();
}

/// Tells whether its object is alive.
template <class Error>
class Watched : public Error
{
public:
    Watched(const std::wstring& message, int& alive) : Error(message), alive_(alive) { ++alive_; }
    ~Watched() override { --alive_; }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

private:
    int& alive_;
};

template <class Error>
class tkClassifierDefsErrors : public ::testing::Test
{
};
using AllErrors = ::testing::Types<Defs::BadParams, Defs::NotTrained, Defs::BadIndex, Defs::BadLabel, Defs::BadMethod,
                                   Defs::NotImplemented, Defs::BadFeatures, Defs::InsufficientTrainData>;
} // namespace

static_assert(std::is_abstract_v<Defs::Errors>);
static_assert(!std::is_base_of_v<Defs::Errors, tkArchive::Errors>);

TYPED_TEST_SUITE(tkClassifierDefsErrors, AllErrors, );

TYPED_TEST(tkClassifierDefsErrors, defaultIsAnEmptyMessageAndTheClassesNumber)
{
    const TypeParam error;
    EXPECT_EQ(L"", error.message());
    EXPECT_STREQ("", error.what());
    EXPECT_EQ(Facts<TypeParam>::number, error.errorNumber());
    EXPECT_EQ(Facts<TypeParam>::number, static_cast<const tkException&>(error).errorNumber());
}

TYPED_TEST(tkClassifierDefsErrors, copyAndAssignmentCarryTheMessage)
{
    const TypeParam error(golden::errorMessage);
    const TypeParam copy(error);
    TypeParam assigned(L"another");
    assigned = error;
    for (const TypeParam* e : {&error, &copy, &std::as_const(assigned)})
    {
        EXPECT_EQ(golden::errorMessage, e->message());
        EXPECT_STREQ("Costs \xE2\x89\xA5 0 \xC3\xBC"
                     "ber \xF0\x9F\x98\x80",
                     e->what());
    }
}

TYPED_TEST(tkClassifierDefsErrors, isCaughtAsEachOfItsBases)
{
    EXPECT_THROW(throw TypeParam(L"x"), TypeParam);
    EXPECT_THROW(throw TypeParam(L"x"), Defs::Errors);
    EXPECT_THROW(throw TypeParam(L"x"), tkExceptionWithString);
    EXPECT_THROW(throw TypeParam(L"x"), tkException);
    EXPECT_THROW(throw TypeParam(L"x"), tkPersistent);
    EXPECT_THROW(throw TypeParam(L"x"), std::exception);
}

TYPED_TEST(tkClassifierDefsErrors, suicideAndRethrowThrowsACopyOfItsClassAndDeletesTheObject)
{
    int alive = 0;
    Defs::Errors* const error = new Watched<TypeParam>(golden::errorMessage, alive);
    ASSERT_EQ(1, alive);
    EXPECT_TK_THROW(error->suicideAndRethrow(), TypeParam, golden::errorMessage);
    EXPECT_EQ(0, alive);

    tkException* const plain = new TypeParam(L"plain");
    EXPECT_TK_THROW(plain->suicideAndRethrow(), TypeParam, L"plain");
}

TYPED_TEST(tkClassifierDefsErrors, recordIsTheVersionsOfAllLevelsAndTheMessage)
{
    TypeParam error(L"\u00fc!");
    const std::string record = std::string(5, '\0') + word(3) + "\xC3\xBC!";
    EXPECT_EQ(record, storeToBytes(error));
    const std::string name = qualifiedName<TypeParam>();
    EXPECT_EQ(word(1) + word(1) + word(name.size()) + name + record, storePointerToBytes(error));

    TypeParam loaded(L"old");
    loadFromBytes(record, loaded);
    EXPECT_EQ(L"\u00fc!", loaded.message());
    EXPECT_STREQ("\xC3\xBC!", loaded.what());
}

TYPED_TEST(tkClassifierDefsErrors, goldenArchiveGivesTheClassAndMessageAndTheSameBytes)
{
    const std::string bytes = goldenBytes(qualifiedName<TypeParam>().replace(16, 2, ".") + ".v0.bin");
    const std::unique_ptr<tkPersistent> loaded = loadPointerFromBytes(bytes);
    ASSERT_NE(nullptr, loaded);
    const tkPersistent& object = *loaded;
    ASSERT_TRUE(typeid(object) == typeid(TypeParam));
    const auto& error = dynamic_cast<const TypeParam&>(object);
    EXPECT_EQ(golden::errorMessage, error.message());
    EXPECT_EQ(Facts<TypeParam>::number, error.errorNumber());
    EXPECT_EQ(bytes, storePointerToBytes(*loaded));
    TypeParam again(golden::errorMessage);
    EXPECT_EQ(bytes, storePointerToBytes(again));
}

TYPED_TEST(tkClassifierDefsErrors, otherVersionsAreRefusedAtEachLevelByName)
{
    const std::string good = storeToBytes(TypeParam(L"new"));
    const std::string names[] = {qualifiedName<TypeParam>(), "tkClassifierDefs::Errors", "", "", ""};
    for (std::size_t level = 0; level < 5; ++level)
        for (const char version : {'\1', '\xff'})
        {
            std::string bytes = good;
            bytes[level] = version;
            TypeParam loaded(L"old");
            try
            {
                loadFromBytes(bytes, loaded);
                ADD_FAILURE() << "no exception at level " << level;
            }
            catch (const tkArchive::UnknownVersion& unknown)
            {
                EXPECT_EQ(names[level], unknown.where());
                EXPECT_EQ(0, unknown.number());
            }
            EXPECT_EQ(L"old", loaded.message());
        }
}

TYPED_TEST(tkClassifierDefsErrors, versionIsTestedBeforeAnythingElseIsRead)
{
    for (const std::string& bytes : {literalBytes("\1"), literalBytes("\0\1")})
    {
        TypeParam loaded(L"old");
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TYPED_TEST(tkClassifierDefsErrors, truncatedRecordsAreRefused)
{
    TypeParam error(golden::errorMessage);
    const std::string bytes = storePointerToBytes(error);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(loadPointerFromBytes(bytes.substr(0, length)), tkArchive::Errors) << length;
    const std::string record = bytes.substr(recordStart<TypeParam>());
    for (std::size_t length = 0; length < record.size(); ++length)
    {
        TypeParam loaded(L"old");
        EXPECT_THROW(loadFromBytes(record.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_EQ(L"old", loaded.message()) << length;
    }
}

TEST(tkClassifierDefs, abstractRootCannotBeLoaded)
{
    const std::string name = "tkClassifierDefs::Errors";
    EXPECT_THROW(loadPointerFromBytes(word(1) + word(1) + word(name.size()) + name + std::string(8, '\0')),
                 tkArchive::Errors);
}
