#ifndef FOUNDATION_TKARCHIVESTREAM_H
#define FOUNDATION_TKARCHIVESTREAM_H

#include "foundation/tkArchiveErrors.h"

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>

/// The bytes of an archive on their way to or from its stream.
///
/// Bytes that are stored are buffered while an outermost exchange runs: a stream's own functions take longer than a
/// number does, and a file's stream passes more than 1 KiB on to the system at once. What is loaded is not buffered:
/// the stream must lose no byte beyond what was asked for. All functions but position() and setFailed() throw
/// tkArchive::Errors if an earlier one has failed or the stream does.
class TK_EXPORT tkArchiveStream
{
public:
    explicit tkArchiveStream(std::ostream& stream);
    explicit tkArchiveStream(std::istream& stream);

    /// Bytes that were exchanged.
    unsigned long long position() const { return passed_ + used_; }

    /// Stores or loads all of the bytes.
    void exchange(unsigned char* bytes, std::size_t count);
    /// The same for bytes that must be 0 or 1.
    void exchangeBools(unsigned char* flags, std::size_t count);

    /// Buffers from here on what is stored.
    void startBuffering() { room_ = out_ && !failed_ ? bufferSize_ : 0; }
    /// Gives the stream what is in the buffer, and buffers nothing any more.
    void flush();
    /// The same without an error: what the stream does not take is lost.
    void abandon() noexcept;

    /// Throws tkArchive::Errors if an earlier exchange has failed.
    void requireNotFailed();
    /// Makes every further exchange fail. What is in the buffer still goes to the stream.
    void setFailed();
    /// Throws tkArchive::Errors(`what`) with direction and byte, after setFailed().
    [[noreturn]] void fail(const std::wstring& what);

private:
    static constexpr std::size_t bufferSize_ = 65536;

    std::size_t read_(unsigned char* bytes, std::size_t count);
    void write_(const unsigned char* bytes, std::size_t count);

    std::ostream* const out_ = nullptr;
    std::istream* const in_ = nullptr;
    unsigned long long passed_ = 0; // bytes that the stream took or gave
    bool failed_ = false;

    std::unique_ptr<unsigned char[]> buffer_; // null when loading
    std::size_t used_ = 0;
    std::size_t room_ = 0; // in the buffer, used_ included; 0: nothing is buffered
};

#endif
