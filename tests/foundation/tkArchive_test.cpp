#include "foundation/tkArchive.h"

#include "archiveTestObjects.h"
#include "foundation/tkAssert.h"
#include "tkTest.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <streambuf>
#include <thread>
#include <type_traits>

namespace
{
using NodeHandle = tkPtrHandle<ArchiveNode>;

template <class T>
T loadedFrom(const std::string& bytes)
{
    T value{};
    loadFromBytes(bytes, value);
    return value;
}

/// Loads a handle to a node from hexadecimal bytes.
NodeHandle nodeFrom(const std::string& text)
{
    return loadedFrom<NodeHandle>(fromHex(text));
}

NodeHandle makeNode(long number)
{
    return NodeHandle(new ArchiveNode(number));
}

/// A chain of `length` nodes, each the only child of the one before.
NodeHandle makeChain(long length)
{
    NodeHandle first;
    for (long i = length; i-- > 0;)
    {
        const NodeHandle node = makeNode(i);
        if (first)
            node->children.push_back(first);
        first = node;
    }
    return first;
}

std::string storeWithLimit(const NodeHandle& node, long limit)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.nestingLimit(limit);
    NodeHandle stored(node);
    archive || stored;
    return stream.str();
}

/// A graph with sharing, texts and several types, for damage.
std::string richBytes()
{
    const NodeHandle shared = makeNode(7);
    shared->text = L"shared \u20ac";
    const NodeHandle root = makeNode(-1);
    for (long i = 0; i < 12; ++i)
    {
        const NodeHandle child = makeNode(i);
        child->text = std::wstring(static_cast<std::size_t>(i), L'\u00e9');
        child->children = {shared, NodeHandle(), makeNode(100 + i), shared};
        root->children.push_back(child);
    }
    return storeToBytes(root);
}

/// Writes what a function says, level by level.
class Scripted : public tkPersistent
{
public:
    using Script = std::function<void(tkArchive&)>;
    explicit Scripted(Script script) : script_(std::move(script)) {}

protected:
    void dispatchSerialize(tkArchive& archive) override { script_(archive); }

private:
    Script script_;
};

/// Runs `script` within one outermost exchange of a new archive and gives the bytes.
std::string storeWithin(const Scripted::Script& script)
{
    Scripted object(script);
    return storeToBytes(object);
}

void loadWithin(const std::string& bytes, const Scripted::Script& script)
{
    Scripted object(script);
    loadFromBytes(bytes, object);
}

class Unregistered : public ArchiveNode
{
};

/// A stream that fails by an exception, as file streams do that were opened on a directory.
class ThrowingBuffer : public std::streambuf
{
protected:
    int_type underflow() override { throw std::ios_base::failure("cannot be read"); }
    int_type overflow(int_type) override { throw std::ios_base::failure("cannot be written"); }
};

/// A stream that takes some bytes only.
class FullBuffer : public std::streambuf
{
public:
    explicit FullBuffer(int room) : room_(room) {}

protected:
    int_type overflow(int_type byte) override { return room_-- > 0 ? traits_type::not_eof(byte) : traits_type::eof(); }

private:
    int room_;
};
} // namespace

static_assert(!std::is_copy_constructible_v<tkArchive> && !std::is_copy_assignable_v<tkArchive>);
static_assert(!std::is_convertible_v<std::ostream&, tkArchive>, "no archive arises by accident");
static_assert(!std::is_constructible_v<tkArchive, std::stringstream&>, "a stream of both directions must say which");
static_assert(std::is_base_of_v<tkArchive::Errors, tkArchive::UnknownVersion>);
static_assert(std::is_base_of_v<tkException, tkArchive::Errors>);

TEST(tkArchive, knowsItsDirection)
{
    std::ostringstream out;
    const tkArchive storing(out);
    EXPECT_TRUE(storing.isStoring());
    EXPECT_FALSE(storing.isLoading());
    std::istringstream in;
    const tkArchive loading(in);
    EXPECT_TRUE(loading.isLoading());
    EXPECT_FALSE(loading.isStoring());
}

// The bytes of the primitives, spelled out.

TEST(tkArchive, longsAreFourBytesLeastFirst)
{
    const std::pair<long, const char*> records[] = {{0, "00 00 00 00"},           {1, "01 00 00 00"},
                                                    {-1, "ff ff ff ff"},          {0x12345678, "78 56 34 12"},
                                                    {2147483647L, "ff ff ff 7f"}, {-2147483647L - 1, "00 00 00 80"}};
    for (const auto& [value, bytes] : records)
    {
        EXPECT_EQ(bytes, hex(storeToBytes(value)));
        EXPECT_EQ(value, loadedFrom<long>(fromHex(bytes)));
    }
}

TEST(tkArchive, unsignedLongsAreFourBytesLeastFirst)
{
    EXPECT_EQ("78 56 34 12", hex(storeToBytes(0x12345678UL)));
    EXPECT_EQ("ff ff ff ff", hex(storeToBytes(0xFFFFFFFFUL)));
    EXPECT_EQ(0xFFFFFFFFUL, loadedFrom<unsigned long>(fromHex("ff ff ff ff")));
    EXPECT_EQ(0x80000000UL, loadedFrom<unsigned long>(fromHex("00 00 00 80")));
}

#if LONG_MAX > 2147483647 // otherwise there are no such numbers
TEST(tkArchive, numbersOutOfThirtyTwoBitsAreRefusedWhenStoring)
{
    const long large = 2147483648L;
    const unsigned long veryLarge = 4294967296UL;
    const auto refused = [](auto value, const std::wstring& text)
    {
        std::ostringstream stream;
        tkArchive archive(stream);
        const std::wstring message = L"The number " + text + L" does not fit into 32 bits (writing, at byte 0)";
        EXPECT_TK_THROW(archive || value, tkArchive::Errors, message);
        EXPECT_EQ("", stream.str());
    };
    refused(large, L"2147483648");
    refused(-large - 1, L"-2147483649");
    refused(veryLarge, L"4294967296");

    const auto refusedWithin = [](auto value, const std::wstring& text)
    {
        std::ostringstream stream;
        tkArchive archive(stream);
        Scripted object(
            [&](tkArchive& a)
            {
                long allowed[] = {2147483647, -2147483647 - 1};
                unsigned long allowedUnsigned = 4294967295;
                a || allowed[0] || allowed[1] || allowedUnsigned || value;
            });
        const std::wstring message = L"The number " + text + L" does not fit into 32 bits (writing, at byte 12)";
        EXPECT_TK_THROW(archive || object, tkArchive::Errors, message);
        EXPECT_EQ("ff ff ff 7f 00 00 00 80 ff ff ff ff", hex(stream.str()));
    };
    refusedWithin(large, L"2147483648");
    refusedWithin(-large - 1, L"-2147483649");
    refusedWithin(veryLarge, L"4294967296");
}
#endif

TEST(tkArchive, doublesAreTheirEightBytesLeastFirst)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> records[] = {{1.0, "00 00 00 00 00 00 f0 3f"},
                                                      {-0.0, "00 00 00 00 00 00 00 80"},
                                                      {0.1, "9a 99 99 99 99 99 b9 3f"},
                                                      {infinity, "00 00 00 00 00 00 f0 7f"},
                                                      {5e-324, "01 00 00 00 00 00 00 00"}};
    for (const auto& [value, bytes] : records)
    {
        EXPECT_EQ(bytes, hex(storeToBytes(value)));
        const double loaded = loadedFrom<double>(fromHex(bytes));
        EXPECT_EQ(0, std::memcmp(&value, &loaded, sizeof value));
    }
    const std::string someNaN = fromHex("05 00 00 00 00 00 f8 ff");
    EXPECT_TRUE(std::isnan(loadedFrom<double>(someNaN)));
    EXPECT_EQ(someNaN, storeToBytes(loadedFrom<double>(someNaN)));
}

TEST(tkArchive, boolsAreOneByteOfTwoValues)
{
    EXPECT_EQ("00", hex(storeToBytes(false)));
    EXPECT_EQ("01", hex(storeToBytes(true)));
    EXPECT_TRUE(loadedFrom<bool>(fromHex("01")));
    bool value = true;
    for (const char* bytes : {"02", "80", "ff"})
        EXPECT_TK_THROW(loadFromBytes(fromHex(bytes), value), tkArchive::Errors,
                        L"A truth value is neither 0 nor 1 (reading, at byte 1)");
    EXPECT_TRUE(value);
}

TEST(tkArchive, bytesAreThemselves)
{
    unsigned char byte = 0xAB;
    EXPECT_EQ("ab", hex(storeToBytes(byte)));
    EXPECT_EQ(0xCD, loadedFrom<unsigned char>(fromHex("cd")));
}

TEST(tkArchive, textsAreUtf8BehindTheNumberOfItsBytes)
{
    EXPECT_EQ("00 00 00 00", hex(storeToBytes(std::wstring())));
    EXPECT_EQ("06 00 00 00 41 c3 a9 e2 82 ac", hex(storeToBytes(std::wstring(L"A\u00e9\u20ac"))));
    EXPECT_EQ("03 00 00 00 61 00 62", hex(storeToBytes(std::wstring(L"a\0b", 3))));
    EXPECT_EQ(std::wstring(L"a\0b", 3), loadedFrom<std::wstring>(fromHex("03 00 00 00 61 00 62")));
    const std::wstring face = L"\U0001F600"; // one unit or two
    EXPECT_EQ("04 00 00 00 f0 9f 98 80", hex(storeToBytes(face)));
    EXPECT_EQ(face, loadedFrom<std::wstring>(fromHex("04 00 00 00 f0 9f 98 80")));
    const std::wstring longText(10000, L'\u20ac');
    EXPECT_EQ(longText, loadedFrom<std::wstring>(storeToBytes(longText)));
    std::wstring previous = L"previous";
    loadFromBytes(fromHex("00 00 00 00"), previous);
    EXPECT_EQ(L"", previous);
}

TEST(tkArchive, textsThatAreNoUnicodeAreRefusedInBothDirections)
{
    for (const unsigned long c : {0xD800UL, 0xDC00UL, 0x110000UL})
    {
        if (sizeof(wchar_t) == 2 && c > 0xFFFF)
            continue;
        const std::wstring text(1, static_cast<wchar_t>(c));
        EXPECT_TK_THROW(storeToBytes(text), tkArchive::Errors,
                        L"A text holds what is no character of Unicode (writing, at byte 0)");
    }
    std::wstring text = L"before";
    for (const char* bytes : {"01 00 00 00 80", "02 00 00 00 c0 80", "03 00 00 00 ed a0 80", "02 00 00 00 c3 28"})
        EXPECT_THROW(loadFromBytes(fromHex(bytes), text), tkArchive::Errors) << bytes;
    EXPECT_TK_THROW(loadFromBytes(fromHex("01 00 00 00 80"), text), tkArchive::Errors,
                    L"A text is not valid UTF-8 (reading, at byte 5)");
    EXPECT_EQ(L"before", text);
}

TEST(tkArchive, oneWayOperatorsStoreAndLoadAndAssertTheDirection)
{
    std::ostringstream out;
    tkArchive storing(out);
    storing << 258UL;
    EXPECT_EQ("02 01 00 00", hex(out.str()));
    unsigned long value = 0;
    EXPECT_THROW(storing >> value, tkAssertionFailure);
    std::istringstream in(out.str());
    tkArchive loading(in);
    EXPECT_THROW(loading << 1UL, tkAssertionFailure);
    loading >> value;
    EXPECT_EQ(258UL, value);
}

TEST(tkArchive, rawBytesAndDoublesAreExchangedInRows)
{
    double values[3] = {1.0, -2.0, 0.0};
    unsigned char bytes[2] = {7, 8};
    std::ostringstream out;
    {
        tkArchive archive(out);
        archive.exchangeDoubles(values, 3);
        archive.exchangeBytes(bytes, 2);
        archive.exchangeDoubles(nullptr, 0);
        EXPECT_EQ(26u, archive.position());
    }
    EXPECT_EQ("00 00 00 00 00 00 f0 3f 00 00 00 00 00 00 00 c0 00 00 00 00 00 00 00 00 07 08", hex(out.str()));
    std::istringstream in(out.str());
    tkArchive archive(in);
    double loaded[3] = {};
    unsigned char loadedBytes[2] = {};
    archive.exchangeDoubles(loaded, 3);
    archive.exchangeBytes(loadedBytes, 2);
    EXPECT_EQ(-2.0, loaded[1]);
    EXPECT_EQ(8, loadedBytes[1]);
}

TEST(tkArchive, truthValuesInARowAreCheckedInTheirOrder)
{
    unsigned char stored[3] = {1, 0, 1};
    std::ostringstream out;
    tkArchive storing(out);
    storing.exchangeBools(stored, 3);
    EXPECT_EQ("01 00 01", hex(out.str()));

    const auto refusal = [](const char* bytes, std::size_t count)
    {
        std::istringstream in(fromHex(bytes));
        tkArchive archive(in);
        std::vector<unsigned char> flags(count);
        std::wstring text;
        try
        {
            archive.exchangeBools(flags.data(), count);
        }
        catch (const tkArchive::Errors& thrown)
        {
            text = thrown.message();
            EXPECT_THROW(archive.exchangeBools(flags.data(), 0), tkArchive::Errors);
        }
        return text;
    };
    EXPECT_EQ(L"", refusal("01 00 01", 3));
    EXPECT_EQ(L"", refusal("02", 0));
    EXPECT_EQ(L"A truth value is neither 0 nor 1 (reading, at byte 2)", refusal("01 02 01 ff", 4));
    EXPECT_EQ(L"A truth value is neither 0 nor 1 (reading, at byte 1)", refusal("80", 1));
    EXPECT_EQ(L"The data end early (reading, at byte 2)", refusal("01 01", 3));
    EXPECT_EQ(L"A truth value is neither 0 nor 1 (reading, at byte 2)", refusal("01 03", 3));
}

TEST(tkArchive, versionByteOtherThanZeroNamesThePlace)
{
    std::ostringstream out;
    tkArchive storing(out);
    storing.exchangeVersion();
    EXPECT_EQ("00", hex(out.str()));
    for (const int version : {1, 2, 255})
    {
        std::istringstream in(std::string(1, static_cast<char>(version)));
        tkArchive archive(in);
        EXPECT_TK_THROW(archive.exchangeVersion("clss/x", 346), tkArchive::UnknownVersion,
                        L"A record has an unknown version (clss/x, 346)");
        long more = 0;
        EXPECT_TK_THROW(archive || more, tkArchive::Errors,
                        L"An earlier exchange with this archive failed (reading, at byte 1)");
    }
    tkArchive::requireVersion0(0, "x", 1);
    EXPECT_TK_THROW(tkArchive::requireVersion0(1), tkArchive::UnknownVersion, L"A record has an unknown version");
}

TEST(tkArchive, newestVersionIsWrittenAndOlderOnesAreRead)
{
    std::ostringstream out;
    tkArchive storing(out);
    EXPECT_EQ(2, storing.exchangeVersion("clss/x", 346, 2));
    EXPECT_EQ("02", hex(out.str()));
    std::istringstream in(fromHex("00 01 02 03"));
    tkArchive loading(in);
    EXPECT_EQ(0, loading.exchangeVersion("clss/x", 346, 2));
    EXPECT_EQ(1, loading.exchangeVersion("clss/x", 346, 2));
    EXPECT_EQ(2, loading.exchangeVersion("clss/x", 346, 2));
    EXPECT_TK_THROW(loading.exchangeVersion("clss/x", 346, 2), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/x, 346)");
}

TEST(tkArchive, takesNoByteBeyondWhatIsAskedFor)
{
    std::istringstream in(fromHex("01 00 00 00 'rest"));
    long value = 0;
    {
        tkArchive archive(in);
        archive || value;
    }
    std::string rest;
    in >> rest;
    EXPECT_EQ("rest", rest);
}

TEST(tkArchive, storingWritesToNoObjectThatAnotherThreadStores)
{
    // In memory that may not be written, and read by two threads at once, storing must only read.
    static const bool flag = true;
    static const long number = 5;
    static const std::vector<bool> flags(100, true);
    const std::string expected = storeToBytes(flags);
    std::string other;
    std::thread thread([&] { other = storeToBytes(flags); });
    EXPECT_EQ("01", hex(storeToBytes(flag)));
    EXPECT_EQ("05 00 00 00", hex(storeToBytes(number)));
    EXPECT_EQ(expected, storeToBytes(flags));
    thread.join();
    EXPECT_EQ(expected, other);
}

TEST(tkArchive, loadingDoesNotReadTheOldValue)
{
    alignas(long) unsigned char room[sizeof(long)];
    std::memset(room, 0x40, sizeof room); // no value of bool
    loadFromBytes(fromHex("01"), *reinterpret_cast<bool*>(room));
    EXPECT_EQ(1, room[0]);
}

// Streams that fail.

TEST(tkArchive, everyTruncationOfALargerArchiveIsAnError)
{
    const std::string bytes = richBytes();
    ASSERT_GT(bytes.size(), 800u);
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        NodeHandle node;
        std::istringstream stream(bytes.substr(0, length));
        tkArchive archive(stream);
        EXPECT_THROW(archive || node, tkArchive::Errors) << length;
    }
    EXPECT_EQ(0, ArchiveNode::alive());
}

TEST(tkArchive, flippedBitsAreErrorsOrOtherObjectsButNothingWorse)
{
    const std::string bytes = richBytes();
    std::string damaged = bytes;
    int refused = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (int bit = 0; bit < 8; ++bit)
        {
            damaged[i] = static_cast<char>(bytes[i] ^ (1 << bit));
            try
            {
                NodeHandle node;
                std::istringstream stream(damaged);
                tkArchive archive(stream);
                archive || node;
            }
            catch (const tkArchive::Errors&)
            {
                ++refused;
            }
            damaged[i] = bytes[i];
        }
    EXPECT_GT(refused, 1000);
    EXPECT_EQ(0, ArchiveNode::alive());
}

TEST(tkArchive, endOfDataNamesTheByte)
{
    long value = 9;
    EXPECT_TK_THROW(loadFromBytes(fromHex("01 02 03"), value), tkArchive::Errors,
                    L"The data end early (reading, at byte 0)");
    EXPECT_EQ(9, value);
}

TEST(tkArchive, streamsThatFailAreErrors)
{
    long value = 1;
    FullBuffer full(4);
    std::ostream out(&full);
    tkArchive storing(out);
    storing || value;
    EXPECT_TK_THROW(storing || value, tkArchive::Errors, L"The stream cannot be written (writing, at byte 4)");

    std::ofstream closed;
    closed.setstate(std::ios::failbit);
    tkArchive storingClosed(closed);
    EXPECT_TK_THROW(storingClosed || value, tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");

    std::ostream nowhere(nullptr);
    tkArchive storingNowhere(nowhere);
    EXPECT_TK_THROW(storingNowhere || value, tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");

    std::istream fromNowhere(nullptr);
    tkArchive loadingNowhere(fromNowhere);
    EXPECT_TK_THROW(loadingNowhere || value, tkArchive::Errors, L"The stream cannot be read (reading, at byte 0)");

    ThrowingBuffer throwing;
    std::ostream throwingOut(&throwing);
    tkArchive storingThrowing(throwingOut);
    EXPECT_TK_THROW(storingThrowing || value, tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");
    std::istream throwingIn(&throwing);
    tkArchive loadingThrowing(throwingIn);
    EXPECT_TK_THROW(loadingThrowing || value, tkArchive::Errors, L"The stream cannot be read (reading, at byte 0)");
}

TEST(tkArchive, anExchangeGivesTheStreamTheBytesOfItsPartsInOrder)
{
    // The parts gathered before the stream gets them, and each given to it at once: lengths around those at which
    // what is gathered goes out.
    std::vector<std::size_t> lengths = {0, 1, 1000, 20000, 40000, 160000};
    for (std::size_t i = 0; i < 20; ++i)
    {
        lengths.push_back(6540 + i);
        lengths.push_back(7268 + i);
        lengths.push_back(65512 + i);
    }
    for (const std::size_t length : lengths)
    {
        const auto script = [length](tkArchive& archive)
        {
            unsigned char byte = 7;
            long number = -2;
            std::wstring text(length, L'x');
            std::vector<double> values(length, 0.5);
            bool flag = true;
            archive || byte || number || text || byte || values || number || flag || text || byte;
            archive.exchangeDoubles(nullptr, 0);
        };
        std::ostringstream separate;
        tkArchive separateArchive(separate);
        script(separateArchive);
        std::ostringstream gathered;
        tkArchive archive(gathered);
        Scripted object(script);
        archive || object;
        EXPECT_EQ(separate.str(), gathered.str()) << length; // before the archive goes
        EXPECT_EQ(gathered.str().size(), archive.position());
        archive || object;
        EXPECT_EQ(separate.str() + separate.str(), gathered.str()) << length;
    }
}

TEST(tkArchive, aStreamThatFillsUpWithinAnExchangeFailsItAndTakesWhatItCan)
{
    ArchivePlain plain(5);
    for (int room = 0; room < 6; ++room)
    {
        FullBuffer full(room);
        std::ostream out(&full);
        tkArchive archive(out);
        EXPECT_THROW(archive || plain, tkArchive::Errors) << room;
        EXPECT_EQ(static_cast<unsigned long long>(room), archive.position());
        EXPECT_THROW(archive || plain, tkArchive::Errors) << room;
    }
    FullBuffer full(6);
    std::ostream out(&full);
    tkArchive archive(out);
    archive || plain;
    EXPECT_TK_THROW(archive || plain, tkArchive::Errors, L"The stream cannot be written (writing, at byte 6)");

    std::ostream nowhere(nullptr);
    tkArchive storingNowhere(nowhere);
    EXPECT_TK_THROW(storingNowhere || plain, tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");
    ThrowingBuffer throwing;
    std::ostream throwingOut(&throwing);
    tkArchive storingThrowing(throwingOut);
    EXPECT_TK_THROW(storingThrowing || plain, tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");
}

TEST(tkArchive, whatAStreamThrowsPassesAndFailsTheArchive)
{
    class Odd : public std::streambuf
    {
        int_type overflow(int_type) override { throw 5; }
        int_type underflow() override { throw 6; }
    };
    Odd odd;
    ArchivePlain plain(5);
    long number = 1;
    std::ostream out(&odd);
    tkArchive within(out);
    EXPECT_THROW(within || plain, int);
    EXPECT_THROW(within || plain, tkArchive::Errors);
    tkArchive alone(out);
    EXPECT_THROW(alone || number, int);
    EXPECT_THROW(alone || number, tkArchive::Errors);
    std::istream in(&odd);
    tkArchive loading(in);
    EXPECT_THROW(loading || number, int);
    EXPECT_THROW(loading || number, tkArchive::Errors);
}

TEST(tkArchive, aFailedExchangeLeavesWhatWasStoredBeforeInTheStream)
{
    ArchivePlain plain(5);
    std::ostringstream out;
    tkArchive archive(out);
    Scripted object(
        [&plain](tkArchive& a)
        {
            a || plain;
            throw 1;
        });
    EXPECT_THROW(archive || object, int);
    EXPECT_EQ("00 00 05 00 00 00", hex(out.str()));
    EXPECT_EQ(6u, archive.position());
}

TEST(tkArchive, anExceptionThatAnObjectSwallowsStillFailsTheStoringArchive)
{
    std::ostringstream out;
    tkArchive archive(out);
    Scripted inner([](tkArchive&) { throw 1; });
    Scripted object(
        [&inner](tkArchive& a)
        {
            long number = 3;
            a || number;
            EXPECT_THROW(a || inner, int);
            EXPECT_THROW(a || number, tkArchive::Errors);
        });
    archive || object;
    EXPECT_EQ("03 00 00 00", hex(out.str()));
    EXPECT_TK_THROW(archive || object, tkArchive::Errors,
                    L"An earlier exchange with this archive failed (writing, at byte 4)");
}

TEST(tkArchive, afterAFailureEveryFurtherExchangeFails)
{
    std::istringstream in(fromHex("02 00 00 00 00 00 00 00 00 00 00 00"));
    tkArchive archive(in);
    bool flag = false;
    EXPECT_THROW(archive || flag, tkArchive::Errors);
    long number = 0;
    ArchiveNode node;
    NodeHandle handle;
    const std::wstring text = L"An earlier exchange with this archive failed (reading, at byte 1)";
    EXPECT_TK_THROW(archive || number, tkArchive::Errors, text);
    EXPECT_TK_THROW(archive || node, tkArchive::Errors, text);
    EXPECT_TK_THROW(archive || handle, tkArchive::Errors, text);
    EXPECT_TK_THROW(archive.exchangeBytes(nullptr, 0), tkArchive::Errors, text);
}

TEST(tkArchive, anExceptionOfTheObjectFailsTheArchiveToo)
{
    std::ostringstream out;
    tkArchive archive(out);
    Scripted object([](tkArchive&) { throw std::bad_alloc(); });
    EXPECT_THROW(archive || object, std::bad_alloc);
    long number = 0;
    EXPECT_THROW(archive || number, tkArchive::Errors);
}

TEST(tkArchive, anErrorThatTheObjectSwallowsStillFailsTheArchive)
{
    std::istringstream in(fromHex("02 01"));
    tkArchive archive(in);
    Scripted object(
        [](tkArchive& a)
        {
            bool flag = false;
            EXPECT_THROW(a || flag, tkArchive::Errors);
        });
    archive || object;
    bool flag = false;
    EXPECT_THROW(archive || flag, tkArchive::Errors);
}

TEST(tkArchive, anExchangeMayRunWhileAnExceptionPasses)
{
    // An archive that is used by a destructor during unwinding has not failed by that.
    struct StoresAtTheEnd
    {
        std::ostringstream& stream;
        ~StoresAtTheEnd()
        {
            tkArchive archive(stream);
            ArchivePlain plain(5);
            long number = 6;
            archive || plain || number;
        }
    };
    std::ostringstream stream;
    try
    {
        const StoresAtTheEnd last{stream};
        throw 1;
    }
    catch (int)
    {
    }
    EXPECT_EQ("00 00 05 00 00 00 06 00 00 00", hex(stream.str()));
}

// Objects and their identity.

TEST(tkArchive, objectsByPointerHaveFixedBytes)
{
    const NodeHandle child = makeNode(2);
    const NodeHandle root = makeNode(1);
    root->children = {child, NodeHandle(), child};
    const std::string bytes = fromHex("01 00 00 00"                    // object 1
                                      " 01 00 00 00"                   // of type 1
                                      " 0b 00 00 00 'ArchiveNode"      // which is new
                                      " 00 00"                         // versions: ArchiveNode, tkPersistent
                                      " 01 00 00 00 00 00 00 00"       // number, empty text
                                      " 00 03 00 00 00"                // vector of three handles
                                      " 02 00 00 00 01 00 00 00"       // object 2 of type 1
                                      " 00 00 02 00 00 00 00 00 00 00" // its versions, number, text
                                      " 00 00 00 00 00"                // no children
                                      " 00 00 00 00"                   // null
                                      " 02 00 00 00");                 // object 2 again
    EXPECT_EQ(hex(bytes), hex(storeToBytes(root)));
    const NodeHandle loaded = loadedFrom<NodeHandle>(bytes);
    ASSERT_EQ(3u, loaded->children.size());
    EXPECT_EQ(1, loaded->number);
    EXPECT_EQ(2, loaded->children[0]->number);
    EXPECT_TRUE(loaded->children[1].isNull());
    EXPECT_TRUE(loaded->children[0] == loaded->children[2]);
    EXPECT_EQ(2, loaded->children[0]->referenceCount());
}

TEST(tkArchive, sharingHoldsAcrossTheExchangesOfOneArchive)
{
    NodeHandle shared = makeNode(3);
    std::stringstream stream;
    {
        tkArchive archive(static_cast<std::ostream&>(stream));
        archive || shared || shared;
        archive || shared->children;
        shared->children.push_back(shared); // a cycle, but the object is not written again
        archive || shared->children;
        shared->children.clear();
    }
    tkArchive archive(static_cast<std::istream&>(stream));
    NodeHandle a;
    NodeHandle b;
    std::vector<NodeHandle> c;
    std::vector<NodeHandle> d;
    archive || a || b || c || d;
    EXPECT_TRUE(a == b);
    ASSERT_EQ(1u, d.size());
    EXPECT_TRUE(a == d[0]);
    EXPECT_EQ(3, a->number);
}

TEST(tkArchive, storedObjectsAreKnownInWhateverOrderOfTheirAddressesTheyCome)
{
    // Counted objects and, where every third one stands, one that nobody counts and that is known within the exchange
    // only; all in the order of their addresses.
    constexpr std::size_t count = 120;
    std::vector<NodeHandle> nodes;
    std::vector<std::unique_ptr<ArchivePlain>> plains;
    std::vector<tkPersistent*> ascending;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (i % 3 != 2)
            ascending.push_back(nodes.emplace_back(new ArchiveNode(7)).get());
        else
            ascending.push_back(plains.emplace_back(new ArchivePlain(7)).get());
    }
    std::sort(ascending.begin(), ascending.end(), std::less<>());

    const std::vector<tkPersistent*> descending(ascending.rbegin(), ascending.rend());
    std::vector<tkPersistent*> counted;
    std::vector<tkPersistent*> fromBothEnds;
    std::vector<tkPersistent*> shuffled;
    std::mt19937 random(5);
    for (std::size_t i = 0; i < count; ++i)
    {
        if (dynamic_cast<ArchiveNode*>(ascending[i]))
            counted.push_back(ascending[i]);
        fromBothEnds.push_back(i % 2 == 0 ? ascending[i / 2] : descending[i / 2]);
        shuffled.push_back(ascending[random() % count]);
    }
    std::vector<tkPersistent*> reversedInPlaces = counted;
    for (std::size_t i = 0; i + 4 < counted.size(); i += 7)
        std::reverse(&reversedInPlaces[i], &reversedInPlaces[i + 4]);

    const std::string node = std::string("\0\0\7\0\0\0", 6) + std::string(4 + 5, '\0'); // no text, no children
    const std::string plain("\0\0\7\0\0\0", 6);
    const auto word = [](std::size_t value) {
        return std::string{static_cast<char>(value), static_cast<char>(value >> 8), 0, 0};
    };
    for (const auto& first : {counted, ascending, descending, fromBothEnds, shuffled, reversedInPlaces})
        for (const auto& second : {counted, ascending, descending, fromBothEnds, shuffled, reversedInPlaces})
        {
            // The numbers and types as a map gives them.
            std::string expected;
            std::map<tkPersistent*, std::size_t> numbers;
            std::map<bool, std::size_t> types;
            std::size_t objects = 0;
            std::ostringstream stored;
            tkArchive archive(stored);
            for (const auto& order : {first, second, first})
            {
                for (tkPersistent* object : order)
                {
                    std::size_t& number = numbers[object];
                    const bool isNew = number == 0;
                    number = isNew ? ++objects : number;
                    expected += word(number);
                    if (!isNew)
                        continue;
                    const bool isNode = dynamic_cast<ArchiveNode*>(object) != nullptr;
                    const auto [type, isNewType] = types.emplace(isNode, types.size() + 1);
                    expected += word(type->second);
                    const std::string name = isNode ? "ArchiveNode" : "ArchivePlain";
                    expected += (isNewType ? word(name.size()) + name : "") + (isNode ? node : plain);
                }
                for (const std::unique_ptr<ArchivePlain>& uncounted : plains)
                    numbers.erase(uncounted.get());
                Scripted exchange(
                    [&order](tkArchive& a)
                    {
                        tkPersistent* none = nullptr;
                        for (tkPersistent* object : order)
                            tkPersistent::serializePointer(a, object, none);
                    });
                archive || exchange;
            }
            ASSERT_EQ(hex(expected), hex(stored.str()));
        }
}

TEST(tkArchive, storedObjectsAreKeptSoThatAnAddressIsNeverTakenForAnOldObject)
{
    std::stringstream stream;
    constexpr long count = 500;
    {
        tkArchive archive(static_cast<std::ostream&>(stream));
        for (long i = 0; i < count; ++i)
        {
            NodeHandle temporary = makeNode(i);
            archive || temporary;
        }
        EXPECT_EQ(count, ArchiveNode::alive());
    }
    EXPECT_EQ(0, ArchiveNode::alive());
    tkArchive archive(static_cast<std::istream&>(stream));
    for (long i = 0; i < count; ++i)
    {
        NodeHandle loaded;
        archive || loaded;
        ASSERT_EQ(i, loaded->number);
    }
}

TEST(tkArchive, objectsOnTheStackAreNotTakenHoldOf)
{
    std::stringstream stream;
    {
        tkArchive archive(static_cast<std::ostream&>(stream));
        for (long i = 0; i < 3; ++i)
        {
            ArchiveNode onStack(i);
            tkPersistent* none = nullptr;
            tkPersistent::serializePointer(archive, &onStack, none);
            EXPECT_EQ(0, onStack.referenceCount());
        }
    }
    tkArchive archive(static_cast<std::istream&>(stream));
    for (long i = 0; i < 3; ++i)
    {
        NodeHandle loaded;
        archive || loaded;
        EXPECT_EQ(i, loaded->number);
    }
}

TEST(tkArchive, dyingObjectsAreForgottenWithinAnExchange)
{
    // One address, many objects, one outermost exchange; a number for each.
    alignas(ArchivePlain) unsigned char room[sizeof(ArchivePlain)];
    const auto script = [&room](tkArchive& archive)
    {
        for (long i = 0; i < 3; ++i)
        {
            ArchivePlain* const plain = new (room) ArchivePlain(i);
            tkPersistent* none = nullptr;
            tkPersistent::serializePointer(archive, plain, none);
            plain->~ArchivePlain();
        }
    };
    const std::string bytes = storeWithin(script);
    loadWithin(bytes,
               [](tkArchive& archive)
               {
                   for (long i = 0; i < 3; ++i)
                   {
                       tkPersistent* loaded = nullptr;
                       tkPersistent::serializePointer(archive, nullptr, loaded);
                       const std::unique_ptr<tkPersistent> owned(loaded);
                       EXPECT_EQ(i, dynamic_cast<ArchivePlain&>(*loaded).number);
                   }
               });
    EXPECT_EQ(0, ArchivePlain::alive());
}

TEST(tkArchive, dyingTemporariesAreNotTakenForVisited)
{
    std::optional<ArchivePlain> temporary;
    const auto script = [&temporary](tkArchive& archive)
    {
        for (long i = 0; i < 3; ++i)
        {
            temporary.emplace(i);
            archive || *temporary;
        }
    };
    const std::string bytes = storeWithin(script);
    EXPECT_EQ("00 00 00 00 00 00 00 00 01 00 00 00 00 00 02 00 00 00", hex(bytes));
    loadWithin(bytes,
               [&temporary](tkArchive& archive)
               {
                   for (long i = 0; i < 3; ++i)
                   {
                       temporary.emplace(-1);
                       archive || *temporary;
                       EXPECT_EQ(i, temporary->number);
                   }
               });
}

TEST(tkArchive, dyingTemporariesAreForgottenByEveryArchiveOfTheThread)
{
    std::optional<ArchivePlain> temporary(1);
    const std::string bytes = storeWithin(
        [&temporary](tkArchive& outer)
        {
            outer || *temporary;
            storeWithin([&temporary](tkArchive&) { temporary.emplace(2); });
            outer || *temporary;
        });
    EXPECT_EQ("00 00 01 00 00 00 00 00 02 00 00 00", hex(bytes));
}

TEST(tkArchive, vectorGrowthDoesNotTakeElementsForVisited)
{
    std::vector<ArchivePlain> many;
    for (long i = 0; i < 1000; ++i)
        many.emplace_back(i);
    const std::string bytes = storeWithin([&many](tkArchive& archive) { archive || many; });
    EXPECT_EQ(5 + 6 * many.size(), bytes.size());
    std::vector<ArchivePlain> loaded;
    loadWithin(bytes, [&loaded](tkArchive& archive) { archive || loaded; });
    ASSERT_EQ(many.size(), loaded.size());
    for (long i = 0; i < 1000; ++i)
        ASSERT_EQ(i, loaded[static_cast<std::size_t>(i)].number);
}

TEST(tkArchive, membersReachedTwiceAreWrittenOnce)
{
    ArchivePlain member(4);
    const std::string bytes = storeWithin([&member](tkArchive& archive) { archive || member || member; });
    EXPECT_EQ("00 00 04 00 00 00", hex(bytes));
    ArchivePlain loaded;
    loadWithin(bytes, [&loaded](tkArchive& archive) { archive || loaded || loaded; });
    EXPECT_EQ(4, loaded.number);
}

TEST(tkArchive, anObjectReachedByPointerFirstIsNotWrittenAgainInPlace)
{
    const NodeHandle node = makeNode(4);
    const std::string bytes = storeWithin(
        [&node](tkArchive& archive)
        {
            NodeHandle handle(node);
            archive || handle || *handle;
        });
    EXPECT_EQ(storeToBytes(node), bytes);
    loadWithin(bytes,
               [](tkArchive& archive)
               {
                   NodeHandle handle;
                   archive || handle || *handle;
                   EXPECT_EQ(4, handle->number);
               });
}

TEST(tkArchive, consecutiveOutermostExchangesWriteAnObjectInPlaceAgain)
{
    ArchivePlain plain(4);
    std::ostringstream out;
    tkArchive archive(out);
    archive || plain || plain;
    EXPECT_EQ("00 00 04 00 00 00 00 00 04 00 00 00", hex(out.str()));
}

TEST(tkArchive, uncountedObjectsAreSharedWithinOneExchangeAndForgottenAfterIt)
{
    ArchivePlain plain(8);
    tkPersistent* none = nullptr;
    const auto twice = [&](tkArchive& archive)
    {
        tkPersistent::serializePointer(archive, &plain, none);
        tkPersistent::serializePointer(archive, &plain, none);
    };
    std::stringstream stream;
    {
        tkArchive archive(static_cast<std::ostream&>(stream));
        Scripted object(twice);
        archive || object || object;
    }
    tkArchive archive(static_cast<std::istream&>(stream));
    tkPersistent* previous = nullptr;
    Scripted object(
        [&](tkArchive& a)
        {
            tkPersistent* first = nullptr;
            tkPersistent* second = nullptr;
            tkPersistent::serializePointer(a, nullptr, first);
            tkPersistent::serializePointer(a, nullptr, second);
            EXPECT_EQ(first, second);
            EXPECT_NE(previous, first);
            EXPECT_EQ(8, dynamic_cast<ArchivePlain&>(*first).number);
            delete previous;
            previous = first;
        });
    archive || object || object;
    delete previous;
    EXPECT_EQ(1, ArchivePlain::alive());
}

TEST(tkArchive, aLoadedUncountedObjectThatHasGoneIsNullWhenMetAgain)
{
    ArchivePlain plain(8);
    tkPersistent* none = nullptr;
    const std::string bytes = storeWithin(
        [&](tkArchive& archive)
        {
            tkPersistent::serializePointer(archive, &plain, none);
            tkPersistent::serializePointer(archive, &plain, none);
        });
    loadWithin(bytes,
               [](tkArchive& archive)
               {
                   tkPersistent* loaded = nullptr;
                   tkPersistent::serializePointer(archive, nullptr, loaded);
                   ASSERT_EQ(8, dynamic_cast<ArchivePlain&>(*loaded).number);
                   delete loaded;
                   tkPersistent::serializePointer(archive, nullptr, loaded);
                   ASSERT_EQ(nullptr, loaded);
               });
}

TEST(tkArchive, anUncountedObjectOfAnEarlierExchangeIsNoLongerKnown)
{
    ArchivePlain plain(8);
    std::string bytes = storeToBytes(plain);
    bytes = fromHex("01 00 00 00 01 00 00 00 0c 00 00 00 'ArchivePlain") + bytes;
    std::istringstream in(bytes + fromHex("01 00 00 00"));
    tkArchive archive(in);
    tkPersistent* loaded = nullptr;
    tkPersistent::serializePointer(archive, nullptr, loaded);
    const std::unique_ptr<tkPersistent> owned(loaded);
    EXPECT_TK_THROW(tkPersistent::serializePointer(archive, nullptr, loaded), tkArchive::Errors,
                    L"Object 1 is no longer known (reading, at byte 34)");
}

TEST(tkArchive, loadedObjectsAreKeptWhileTheArchiveLives)
{
    const NodeHandle node = makeNode(1);
    std::istringstream in(storeToBytes(node) + fromHex("01 00 00 00"));
    std::optional<tkArchive> archive(std::in_place, in);
    NodeHandle loaded;
    *archive || loaded;
    loaded = NodeHandle();
    EXPECT_EQ(2, ArchiveNode::alive());
    *archive || loaded;
    EXPECT_EQ(1, loaded->number);
    archive.reset();
    EXPECT_EQ(1, loaded->referenceCount());
}

TEST(tkArchive, twoArchivesMayBeUsedWithinEachOther)
{
    ArchivePlain plain(1);
    std::ostringstream innerStream;
    std::ostringstream outerStream;
    tkArchive inner(innerStream);
    tkArchive outer(outerStream);
    Scripted object(
        [&](tkArchive&)
        {
            outer || plain;
            Scripted innerObject(
                [&](tkArchive&)
                {
                    inner || plain; // marked in the outer archive only
                    outer || plain; // marked there
                    inner || plain;
                });
            inner || innerObject;
            outer || plain;
        });
    outer || object;
    EXPECT_EQ("00 00 01 00 00 00", hex(outerStream.str()));
    EXPECT_EQ("00 00 01 00 00 00", hex(innerStream.str()));
}

TEST(tkArchive, archivesInTwoThreadsDoNotMeet)
{
    const NodeHandle shared = makeChain(50);
    const std::string expected = storeToBytes(shared);
    const auto work = [&]
    {
        for (int i = 0; i < 50; ++i)
        {
            EXPECT_EQ(expected, storeToBytes(shared));
            std::istringstream in(expected);
            tkArchive archive(in);
            ArchivePlain plain(3);
            EXPECT_EQ("00 00 03 00 00 00", hex(storeToBytes(plain)));
        }
    };
    std::thread thread(work);
    work();
    thread.join();
}

// What must not be stored, and must not be believed.

TEST(tkArchive, cyclesAreRefusedWhenStoring)
{
    const NodeHandle a = makeNode(1);
    const NodeHandle b = makeNode(2);
    a->children.push_back(b);
    b->children.push_back(a);
    EXPECT_TK_THROW(storeToBytes(a), tkArchive::Errors, L"Object 1 holds itself (writing, at byte 61)");
    a->children.clear();
}

TEST(tkArchive, cyclesAreRefusedWhenLoading)
{
    const std::string head = "01 00 00 00 01 00 00 00 0b 00 00 00 'ArchiveNode 00 00 01 00 00 00 00 00 00 00";
    EXPECT_TK_THROW(nodeFrom(head + " 00 01 00 00 00 01 00 00 00"), tkArchive::Errors,
                    L"Object 1 holds itself (reading, at byte 42)");
    EXPECT_EQ(0, ArchiveNode::alive());
}

TEST(tkArchive, anObjectThatHoldsItselfInPlaceRunsIntoTheNestingLimit)
{
    Scripted* self = nullptr;
    Scripted object([&self](tkArchive& archive) { archive || *self; });
    self = &object;
    EXPECT_TK_THROW(storeToBytes(object), tkArchive::Errors, L"More than 256 objects are nested (writing, at byte 0)");
}

TEST(tkArchive, numbersOfUnknownObjectsAndTypesAreRefused)
{
    EXPECT_TK_THROW(nodeFrom("02 00 00 00"), tkArchive::Errors, L"Object 2 is not known (reading, at byte 4)");
    EXPECT_TK_THROW(nodeFrom("ff ff ff ff"), tkArchive::Errors, L"Object 4294967295 is not known (reading, at byte 4)");
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 00 00 00 00"), tkArchive::Errors,
                    L"Type 0 is not known (reading, at byte 8)");
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 02 00 00 00"), tkArchive::Errors,
                    L"Type 2 is not known (reading, at byte 8)");
    // A forward reference from within an object.
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 01 00 00 00 0b 00 00 00 'ArchiveNode 00 00 01 00 00 00 00 00 00 00"
                             " 00 01 00 00 00 03 00 00 00"),
                    tkArchive::Errors, L"Object 3 is not known (reading, at byte 42)");
}

TEST(tkArchive, unknownAndAbstractTypesAreRefused)
{
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 01 00 00 00 06 00 00 00 'Nobody"), tkArchive::Errors,
                    L"The class Nobody is not known or has no objects (reading, at byte 18)");
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 01 00 00 00 0c 00 00 00 'tkPersistent"), tkArchive::Errors,
                    L"The class tkPersistent is not known or has no objects (reading, at byte 24)");
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 01 00 00 00 00 00 00 00"), tkArchive::Errors,
                    L"The class  is not known or has no objects (reading, at byte 12)");
    EXPECT_TK_THROW(nodeFrom("01 00 00 00 01 00 00 00 02 00 00 00 'A ff"), tkArchive::Errors,
                    L"The class A\xfffd is not known or has no objects (reading, at byte 14)");
}

TEST(tkArchive, unregisteredClassesAreRefusedWhenStoring)
{
    const NodeHandle node(new Unregistered);
    EXPECT_TK_THROW(storeToBytes(node), tkArchive::Errors,
                    L"The class (anonymous namespace)::Unregistered is not registered (writing, at byte 0)");
}

TEST(tkArchive, anObjectOfTheWrongTypeGivesNullAndIsFreed)
{
    ArchivePlain plain(1);
    const std::string record = fromHex("01 00 00 00 01 00 00 00 0c 00 00 00 'ArchivePlain") + storeToBytes(plain);
    std::istringstream in(record + fromHex("05 00 00 00"));
    tkArchive archive(in);
    NodeHandle node = makeNode(1);
    long behind = 0;
    archive || node || behind;
    EXPECT_TRUE(node.isNull());
    EXPECT_EQ(5, behind);
    EXPECT_EQ(1, ArchivePlain::alive());
    EXPECT_EQ(0, ArchiveNode::alive());

    // Met again in the same exchange it is null as well.
    loadWithin(record + fromHex("01 00 00 00"),
               [](tkArchive& a)
               {
                   NodeHandle first = makeNode(1);
                   NodeHandle second = makeNode(2);
                   a || first || second;
                   EXPECT_TRUE(first.isNull());
                   EXPECT_TRUE(second.isNull());
               });
    EXPECT_EQ(1, ArchivePlain::alive());
}

TEST(tkArchive, anOwnedObjectIsNotFreedByAHandleThatMeetsItAgain)
{
    ArchivePlain plain(1);
    const std::string record = fromHex("01 00 00 00 01 00 00 00 0c 00 00 00 'ArchivePlain") + storeToBytes(plain);
    loadWithin(record + fromHex("01 00 00 00"),
               [](tkArchive& archive)
               {
                   tkPersistent* loaded = nullptr;
                   tkPersistent::serializePointer(archive, nullptr, loaded);
                   const std::unique_ptr<tkPersistent> owned(loaded);
                   NodeHandle handle;
                   archive || handle;
                   EXPECT_TRUE(handle.isNull());
                   EXPECT_EQ(2, ArchivePlain::alive());
                   EXPECT_EQ(1, dynamic_cast<ArchivePlain&>(*owned).number);
               });
}

TEST(tkArchive, discardingACountedObjectLeavesItToTheArchive)
{
    const NodeHandle node = makeNode(1);
    std::istringstream in(storeToBytes(node));
    {
        tkArchive archive(in);
        tkPersistent* loaded = nullptr;
        tkPersistent::serializePointer(archive, nullptr, loaded);
        archive.discardLoaded(loaded);
        archive.discardLoaded(nullptr);
        EXPECT_EQ(2, ArchiveNode::alive());
    }
    EXPECT_EQ(1, ArchiveNode::alive());
}

// Nesting.

TEST(tkArchive, nestingLimitIsTheSameInBothDirections)
{
    {
        std::ostringstream out;
        EXPECT_EQ(256, tkArchive(out).nestingLimit());
        EXPECT_EQ(256, tkArchive::defaultNestingLimit);
    }
    const NodeHandle fits = makeChain(20);
    const NodeHandle tooDeep = makeChain(21);
    const std::string fitting = storeWithLimit(fits, 20);
    EXPECT_THROW(storeWithLimit(tooDeep, 20), tkArchive::Errors);
    const std::string deep = storeWithLimit(tooDeep, 21);
    const auto load = [](const std::string& bytes)
    {
        std::istringstream in(bytes);
        tkArchive archive(in);
        archive.nestingLimit(20);
        NodeHandle node;
        archive || node;
    };
    load(fitting);
    EXPECT_THROW(load(deep), tkArchive::Errors);
}

TEST(tkArchive, deepestAllowedNestingWorksAndOneMoreDoesNot)
{
    const NodeHandle chain = makeChain(256);
    const NodeHandle loaded = loadedFrom<NodeHandle>(storeToBytes(chain));
    long length = 0;
    for (NodeHandle node = loaded; node; ++length)
        node = node->children.empty() ? NodeHandle() : node->children[0];
    EXPECT_EQ(256, length);
    const NodeHandle longer = makeNode(0);
    longer->children.push_back(chain);
    EXPECT_TK_THROW(storeToBytes(longer), tkArchive::Errors,
                    L"More than 256 objects are nested (writing, at byte 5911)");
}

TEST(tkArchive, nestingCountsSharedObjectsWithAllThatTheyHold)
{
    // Each object holds the one before, which was written before: no record is nested, the objects are.
    const auto store = [](long length)
    {
        std::ostringstream out;
        tkArchive archive(out);
        archive.nestingLimit(30);
        NodeHandle last;
        for (long i = 0; i < length; ++i)
        {
            NodeHandle node = makeNode(i);
            if (last)
                node->children.push_back(last);
            archive || node;
            last = node;
        }
        return out.str();
    };
    store(30);
    EXPECT_THROW(store(31), tkArchive::Errors);
    // Through a branch that was reached at less depth first.
    const NodeHandle branch = makeChain(5);
    const NodeHandle root = makeNode(0);
    const NodeHandle side = makeChain(3);
    side->children[0]->children[0]->children.push_back(branch);
    root->children = {branch, side};
    const std::string bytes = storeWithLimit(root, 9);
    EXPECT_THROW(storeWithLimit(root, 8), tkArchive::Errors);
    std::istringstream in(bytes);
    tkArchive archive(in);
    archive.nestingLimit(8);
    NodeHandle loaded;
    EXPECT_THROW(archive || loaded, tkArchive::Errors);
}

TEST(tkArchive, hostileChainThroughReferencesDoesNotOverflowTheStack)
{
    // A vector of objects that each hold the one before by its number: destroying them would take one stack
    // frame for each.
    constexpr unsigned long count = 200000;
    std::ostringstream out;
    tkArchive writer(out);
    writer.exchangeVersion();
    writer << count;
    for (unsigned long i = 1; i <= count; ++i)
    {
        writer << i << 1UL;
        if (i == 1)
        {
            std::wstring name = L"ArchiveNode";
            writer || name;
        }
        writer.exchangeVersion();
        writer.exchangeVersion();
        writer << 0UL << 0UL;
        writer.exchangeVersion();
        writer << (i > 1 ? 1UL : 0UL);
        if (i > 1)
            writer << i - 1;
    }
    std::istringstream in(out.str());
    {
        tkArchive archive(in);
        std::vector<NodeHandle> loaded;
        EXPECT_THROW(archive || loaded, tkArchive::Errors);
    }
    EXPECT_EQ(0, ArchiveNode::alive());
}

TEST(tkArchive, noObjectFitsIntoALimitBelowOne)
{
    const NodeHandle node = makeNode(1);
    for (const long limit : {0L, -1L, std::numeric_limits<long>::min()})
        EXPECT_THROW(storeWithLimit(node, limit), tkArchive::Errors);
}
