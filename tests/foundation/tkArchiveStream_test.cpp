#include "foundation/tkArchiveStream.h"

#include "foundation/tkArchive.h"
#include "tkTest.h"

#include <ios>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace
{
using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

void put(tkArchiveStream& stream, const std::string& text)
{
    Bytes bytes = bytesOf(text);
    stream.exchange(bytes.data(), bytes.size());
}

std::string get(tkArchiveStream& stream, std::size_t count)
{
    Bytes bytes(count);
    stream.exchange(bytes.data(), count);
    return std::string(bytes.begin(), bytes.end());
}

/// Takes so many bytes, or gives them, and then does what it is told.
class Limited : public std::streambuf
{
public:
    Limited(std::streamsize room, void (*then)()) : room_(room), then_(then) {}

    std::string taken;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        const std::streamsize now = std::min(count, room_ - static_cast<std::streamsize>(taken.size()));
        taken.append(bytes, static_cast<std::size_t>(now));
        if (now < count && then_)
            then_();
        return now;
    }
    std::streamsize xsgetn(char* bytes, std::streamsize count) override
    {
        const std::streamsize now = std::min(count, room_);
        std::fill_n(bytes, now, 'x');
        room_ -= now;
        if (now < count && then_)
            then_();
        return now;
    }

private:
    std::streamsize room_;
    void (*then_)();
};

const wchar_t failedBefore[] = L"An earlier exchange with this archive failed";
} // namespace

TEST(tkArchiveStream, passesBytesOnAtOnceUnlessItBuffers)
{
    std::ostringstream target;
    tkArchiveStream stream(target);
    put(stream, "abc");
    EXPECT_EQ("abc", target.str());
    EXPECT_EQ(3u, stream.position());
    stream.startBuffering();
    put(stream, "de");
    EXPECT_EQ("abc", target.str());
    EXPECT_EQ(5u, stream.position());
    stream.flush();
    EXPECT_EQ("abcde", target.str());
    put(stream, "f");
    EXPECT_EQ("abcdef", target.str());
    EXPECT_EQ(6u, stream.position());
}

TEST(tkArchiveStream, bufferedBytesKeepTheirOrderWhateverTheirNumber)
{
    std::ostringstream target;
    tkArchiveStream stream(target);
    stream.startBuffering();
    std::string expected;
    for (const std::size_t count : {1u, 65535u, 0u, 1u, 65536u, 7u, 200000u, 65535u, 2u})
    {
        const std::string bytes(count, static_cast<char>('a' + expected.size() % 26));
        put(stream, bytes);
        expected += bytes;
        EXPECT_EQ(expected.size(), stream.position());
    }
    stream.flush();
    EXPECT_EQ(expected, target.str());
}

TEST(tkArchiveStream, loadsWhatItIsAskedForAndNoByteMore)
{
    std::istringstream source("abcdef");
    tkArchiveStream stream(source);
    EXPECT_EQ("ab", get(stream, 2));
    stream.startBuffering(); // for storing alone
    EXPECT_EQ("c", get(stream, 1));
    EXPECT_EQ("", get(stream, 0));
    EXPECT_EQ(3u, stream.position());
    EXPECT_EQ('d', source.get());
}

TEST(tkArchiveStream, theEndOfTheDataIsAnError)
{
    std::istringstream source("abc");
    tkArchiveStream stream(source);
    EXPECT_EQ("a", get(stream, 1));
    EXPECT_TK_THROW(get(stream, 3), tkArchive::Errors, L"The data end early (reading, at byte 1)");
    EXPECT_TK_THROW(get(stream, 0), tkArchive::Errors, std::wstring(failedBefore) + L" (reading, at byte 1)");
    EXPECT_EQ(1u, stream.position());
}

TEST(tkArchiveStream, truthValuesAreZeroOrOne)
{
    std::istringstream source(std::string("\0\1\1\0\2\1", 6));
    tkArchiveStream stream(source);
    unsigned char flags[4] = {9, 9, 9, 9};
    stream.exchangeBools(flags, 4);
    EXPECT_EQ(Bytes({0, 1, 1, 0}), Bytes(flags, flags + 4));
    EXPECT_TK_THROW(stream.exchangeBools(flags, 2), tkArchive::Errors,
                    L"A truth value is neither 0 nor 1 (reading, at byte 5)");

    std::istringstream tooShort(std::string("\1\0", 2));
    tkArchiveStream other(tooShort);
    EXPECT_TK_THROW(other.exchangeBools(flags, 3), tkArchive::Errors, L"The data end early (reading, at byte 2)");

    std::ostringstream target;
    tkArchiveStream storing(target);
    unsigned char stored[] = {1, 0, 1};
    storing.exchangeBools(stored, 3);
    EXPECT_EQ(std::string("\1\0\1", 3), target.str());
}

TEST(tkArchiveStream, aStreamThatTakesNoMoreIsAnError)
{
    Limited room(4, nullptr);
    std::ostream target(&room);
    tkArchiveStream stream(target);
    put(stream, "abc");
    EXPECT_TK_THROW(put(stream, "def"), tkArchive::Errors, L"The stream cannot be written (writing, at byte 4)");
    EXPECT_EQ("abcd", room.taken);
    EXPECT_TK_THROW(put(stream, "g"), tkArchive::Errors, std::wstring(failedBefore) + L" (writing, at byte 4)");
    EXPECT_TK_THROW(stream.requireNotFailed(), tkArchive::Errors,
                    std::wstring(failedBefore) + L" (writing, at byte 4)");
    EXPECT_EQ("abcd", room.taken);
}

TEST(tkArchiveStream, whatAFlushCannotPassOnIsAnErrorAndWhatIsAbandonedIsNot)
{
    for (const bool isAbandoned : {false, true})
    {
        Limited room(2, nullptr);
        std::ostream target(&room);
        tkArchiveStream stream(target);
        stream.startBuffering();
        put(stream, "abc");
        if (isAbandoned)
        {
            EXPECT_NO_THROW(stream.abandon());
        }
        else
            EXPECT_TK_THROW(stream.flush(), tkArchive::Errors, L"The stream cannot be written (writing, at byte 2)");
        EXPECT_EQ("ab", room.taken);
        EXPECT_THROW(put(stream, "d"), tkArchive::Errors);
    }
}

TEST(tkArchiveStream, aStreamInAFailedStateIsAnError)
{
    std::ostringstream target;
    target.setstate(std::ios_base::failbit);
    tkArchiveStream storing(target);
    EXPECT_TK_THROW(put(storing, "a"), tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");
    std::istringstream source("abc");
    source.setstate(std::ios_base::failbit);
    tkArchiveStream loading(source);
    EXPECT_TK_THROW(get(loading, 1), tkArchive::Errors, L"The stream cannot be read (reading, at byte 0)");
}

TEST(tkArchiveStream, failuresOfTheStreamAreErrorsAndOtherExceptionsPass)
{
    const auto fail = [] { throw std::ios_base::failure("no"); };
    const auto other = [] { throw std::runtime_error("no"); };
    Limited failing(1, fail);
    std::ostream target(&failing);
    tkArchiveStream storing(target);
    EXPECT_TK_THROW(put(storing, "ab"), tkArchive::Errors, L"The stream cannot be written (writing, at byte 0)");
    Limited source(1, fail);
    std::istream input(&source);
    tkArchiveStream loading(input);
    EXPECT_TK_THROW(get(loading, 2), tkArchive::Errors, L"The stream cannot be read (reading, at byte 0)");

    Limited throwing(1, other);
    std::ostream otherTarget(&throwing);
    tkArchiveStream otherStoring(otherTarget);
    EXPECT_THROW(put(otherStoring, "ab"), std::runtime_error);
    EXPECT_THROW(put(otherStoring, "a"), tkArchive::Errors); // has failed
    Limited throwingSource(1, other);
    std::istream otherInput(&throwingSource);
    tkArchiveStream otherLoading(otherInput);
    EXPECT_THROW(get(otherLoading, 2), std::runtime_error);
    EXPECT_THROW(get(otherLoading, 1), tkArchive::Errors);
}

TEST(tkArchiveStream, afterAFailureOnlyWhatIsInTheBufferIsPassedOn)
{
    std::ostringstream target;
    tkArchiveStream stream(target);
    stream.startBuffering();
    put(stream, "abc");
    stream.setFailed();
    EXPECT_THROW(put(stream, "d"), tkArchive::Errors);
    EXPECT_EQ("", target.str());
    EXPECT_NO_THROW(stream.abandon());
    EXPECT_EQ("abc", target.str());
    stream.startBuffering(); // no more
    EXPECT_THROW(put(stream, "e"), tkArchive::Errors);
    EXPECT_EQ("abc", target.str());
}

TEST(tkArchiveStream, failuresNameTheirReasonDirectionAndByte)
{
    std::ostringstream target;
    tkArchiveStream stream(target);
    put(stream, "ab");
    EXPECT_TK_THROW(stream.fail(L"Something is wrong"), tkArchive::Errors, L"Something is wrong (writing, at byte 2)");
    EXPECT_THROW(put(stream, "c"), tkArchive::Errors);
}
