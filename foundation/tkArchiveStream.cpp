#include "foundation/tkArchiveStream.h"

#include <algorithm>
#include <functional>
#include <istream>
#include <numeric>
#include <ostream>
#include <utility>

tkArchiveStream::tkArchiveStream(std::ostream& stream) : out_(&stream), buffer_(new unsigned char[bufferSize_]) {}

tkArchiveStream::tkArchiveStream(std::istream& stream) : in_(&stream) {}

void tkArchiveStream::exchange(unsigned char* bytes, std::size_t count)
{
    if (count < room_ - used_)
    {
        std::copy_n(bytes, count, &buffer_[used_]);
        used_ += count;
        return;
    }
    requireNotFailed();
    if (in_)
    {
        const std::size_t got = read_(bytes, count);
        if (got < count)
            fail(L"The data end early");
        passed_ += got;
        return;
    }
    const std::size_t room = room_;
    flush();
    room_ = room;
    if (count < room_)
        exchange(bytes, count);
    else
        write_(bytes, count);
}

void tkArchiveStream::exchangeBools(unsigned char* flags, std::size_t count)
{
    if (out_)
        return exchange(flags, count);
    requireNotFailed();
    const std::size_t got = read_(flags, count);
    if (std::accumulate(flags, flags + got, 0U, std::bit_or<>()) > 1)
    {
        const auto isDamaged = [](unsigned char flag) { return flag > 1; };
        passed_ += static_cast<std::size_t>(std::find_if(flags, flags + got, isDamaged) - flags) + 1;
        fail(L"A truth value is neither 0 nor 1");
    }
    passed_ += got;
    if (got < count)
        fail(L"The data end early");
}

void tkArchiveStream::flush()
{
    room_ = 0;
    const std::size_t count = std::exchange(used_, 0);
    if (count > 0)
        write_(buffer_.get(), count);
}

void tkArchiveStream::abandon() noexcept
{
    try
    {
        flush();
    }
    catch (...) // the error that caused this one is thrown already
    {
    }
}

void tkArchiveStream::requireNotFailed()
{
    if (failed_)
        fail(L"An earlier exchange with this archive failed");
}

void tkArchiveStream::setFailed()
{
    failed_ = true;
    room_ = used_; // closed; what it holds still goes to the stream
}

void tkArchiveStream::fail(const std::wstring& what)
{
    setFailed();
    throw tkArchive::Errors(what + (in_ ? L" (reading, at byte " : L" (writing, at byte ") +
                            std::to_wstring(position()) + L")");
}

std::size_t tkArchiveStream::read_(unsigned char* bytes, std::size_t count)
{
    try
    {
        if (in_->fail()) // NOLINT(clang-analyzer-core.CallAndMessage): either in_ or out_ is there
            fail(L"The stream cannot be read");
        const auto wanted = static_cast<std::streamsize>(count);
        const std::streamsize got = in_->rdbuf()->sgetn(reinterpret_cast<char*>(bytes), wanted);
        return static_cast<std::size_t>(std::clamp<std::streamsize>(got, 0, wanted));
    }
    catch (const std::ios_base::failure&)
    {
        fail(L"The stream cannot be read");
    }
    catch (...) // the stream may throw whatever it likes
    {
        setFailed();
        throw;
    }
}

void tkArchiveStream::write_(const unsigned char* bytes, std::size_t count)
{
    const auto wanted = static_cast<std::streamsize>(count);
    try
    {
        if (out_->fail()) // NOLINT(clang-analyzer-core.CallAndMessage): either in_ or out_ is there
            fail(L"The stream cannot be written");
        const std::streamsize put = out_->rdbuf()->sputn(reinterpret_cast<const char*>(bytes), wanted);
        passed_ += static_cast<std::size_t>(std::clamp<std::streamsize>(put, 0, wanted));
        if (put != wanted)
            fail(L"The stream cannot be written");
    }
    catch (const std::ios_base::failure&)
    {
        fail(L"The stream cannot be written");
    }
    catch (...)
    {
        setFailed();
        throw;
    }
}
