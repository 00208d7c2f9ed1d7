#ifndef FOUNDATION_TKARCHIVE_H
#define FOUNDATION_TKARCHIVE_H

#include "foundation/tkException.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <memory>
#include <string>

/// Stores objects in, or loads them from, a byte stream; `archive || object` does either.
///
/// The bytes are the same from every platform: integers of 32 bits, little-endian, IEEE doubles, wide
/// strings as UTF-8 with a byte count. An object reached through several handles is written once and
/// shared again after loading; for that the archive keeps what it stored or loaded alive while it lives.
/// An archive is used by one thread. The stream must outlive it. Once an exchange has failed, its place
/// in the stream is lost and every further exchange fails; what was being loaded must be discarded.
class TK_EXPORT tkArchive
{
public:
    class Errors;
    class UnknownVersion;

    /// Stores to `stream`, which holds all bytes whenever an outermost exchange has ended. Until then nobody else may
    /// write to it or ask for its position.
    explicit tkArchive(std::ostream& stream);
    /// Loads from `stream`, from which no byte is taken beyond what was asked for.
    explicit tkArchive(std::istream& stream);
    ~tkArchive();
    tkArchive(const tkArchive&) = delete;
    tkArchive& operator=(const tkArchive&) = delete;

    bool isLoading() const { return isLoading_; }
    bool isStoring() const { return !isLoading_; }

    static constexpr long defaultNestingLimit = 1024;

    /// How many objects may be nested in one another, an object met again counting with all that it holds.
    /// Deeper ones are refused in both directions: each level costs some of the thread's stack whenever the
    /// objects are exchanged, copied, compared or destroyed.
    long nestingLimit() const;
    void nestingLimit(long objects);

    /// Bytes exchanged so far.
    unsigned long long position() const;

    /// The primitives, exchanged symmetrically. All throw Errors: a value that does not fit into 32 bits,
    /// a text that is not Unicode, a stream that ends early or cannot be written, damaged bytes.
    tkArchive& operator||(long& value);
    tkArchive& operator||(unsigned long& value);
    tkArchive& operator||(double& value);
    tkArchive& operator||(bool& value);
    tkArchive& operator||(std::wstring& text);

    /// One direction only; *requires* an archive of that direction.
    tkArchive& operator<<(unsigned long value);
    tkArchive& operator>>(unsigned long& value);

    /// `count` bytes as they are.
    void exchangeBytes(unsigned char* bytes, std::size_t count)
    {
        if (!gather_(bytes, count))
            exchangeBytes_(bytes, count);
    }
    /// `count` truth values in a row, each 0 or 1.
    void exchangeBools(unsigned char* flags, std::size_t count)
    {
        if (!gather_(flags, count))
            exchangeBools_(flags, count);
    }
    /// `count` doubles in a row.
    void exchangeDoubles(double* values, std::size_t count);

    /// Exchanges the version byte of a record and gives the version: storing writes `newest`, loading throws
    /// UnknownVersion(where, number) for a newer one.
    unsigned char exchangeVersion(const char* where = nullptr, int number = 0, unsigned char newest = 0)
    {
        return gather_(&newest, 1) ? newest : exchangeVersion_(where, number, newest);
    }
    /// The same test for a version byte already read.
    static void requireVersion0(unsigned char version, const char* where = nullptr, int number = 0)
    {
        if (version > 0)
            failVersion_(where, number);
    }

    /// Announces that so many pointers will be stored: makes room for their objects at once. *Requires* an archive
    /// that stores.
    void expectPointers(std::size_t count);
    /// Announces an object that will soon be stored by pointer, or null: the processor can fetch in the meantime what
    /// that takes. Changes nothing.
    void expectPointer(const tkPersistent* object) const;

    /// Takes back what serializePointer() has just loaded and its receiver cannot use. An object that is not
    /// reference-counted is deleted, unless it belongs to an earlier receiver, and is null when met again; any
    /// other goes with the archive.
    void discardLoaded(tkPersistent* object);

private:
    friend class tkPersistent;
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPersistent& object);
    struct State_;
    class Exchange_;

    void storePointer_(tkPersistent* object, tkPersistent::Counted counted);
    tkPersistent* loadPointer_(tkPersistent::Counted counted);
    std::uint32_t storedType_(const std::type_info& type, std::string& newName); // a new type's name; else untouched
    long exchangeObject_(tkPersistent& object); // gives its height, the nesting in it with itself
    void meetAgain_(std::uint32_t number);
    void nest_(long height); // in the object being exchanged

    // Put something into the buffer, if that is where it belongs and it has the room: what nearly always happens when
    // objects are stored, and without a call.
    bool hasRoom_(std::size_t count) const { return count < static_cast<std::size_t>(end_ - next_); }
    bool gather_(const unsigned char* bytes, std::size_t count)
    {
        if (!hasRoom_(count))
            return false;
        next_ = std::copy_n(bytes, count, next_);
        return true;
    }
    bool gatherWord_(std::uint32_t word)
    {
        const unsigned char bytes[] = {static_cast<unsigned char>(word), static_cast<unsigned char>(word >> 8),
                                       static_cast<unsigned char>(word >> 16), static_cast<unsigned char>(word >> 24)};
        return gather_(bytes, 4);
    }

    void exchangeBytes_(unsigned char* bytes, std::size_t count);
    void exchangeBools_(unsigned char* flags, std::size_t count);
    unsigned char exchangeVersion_(const char* where, int number, unsigned char newest);
    void requireSound_();
    void setFailed_();
    void openBuffer_();                                         // or closes it, if nothing belongs there
    std::size_t take_(unsigned char* bytes, std::size_t count); // how many there were
    void write_(const unsigned char* bytes, std::size_t count);
    void flush_(); // gives the stream what is in the buffer
    void exchangeLong_(long& value);
    void exchangeUnsignedLong_(unsigned long& value);
    void exchangeWord_(std::uint32_t& word);
    void exchangeText_(std::string& bytes);
    [[noreturn]] void fail_(const std::wstring& what);
    [[noreturn]] static void failVersion_(const char* where, int number);

    const bool isLoading_;
    std::unique_ptr<State_> state_;
    unsigned char* next_ = nullptr; // where the buffer goes on;
    unsigned char* end_ = nullptr;  // never reached, unless the buffer is closed
};

inline tkArchive& tkArchive::operator||(long& value)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (hasRoom_(4) && value >= Limits::min() && value <= Limits::max())
        gatherWord_(static_cast<std::uint32_t>(value));
    else
        exchangeLong_(value);
    return *this;
}

inline tkArchive& tkArchive::operator||(unsigned long& value)
{
    if (hasRoom_(4) && value <= std::numeric_limits<std::uint32_t>::max())
        gatherWord_(static_cast<std::uint32_t>(value));
    else
        exchangeUnsignedLong_(value);
    return *this;
}

/// Exchanges one byte as it is.
inline tkArchive& operator||(tkArchive& archive, unsigned char& byte)
{
    archive.exchangeBytes(&byte, 1);
    return archive;
}

/// Exchanges the record of an object in place, without type and without sharing by pointer.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPersistent& object);

/// Anything wrong with an archive: what and, for input, at which byte.
class TK_EXPORT tkArchive::Errors : public tkExceptionWithString
{
public:
    explicit Errors(const std::wstring& message = L"");

    long errorNumber() const override;
    void suicideAndRethrow() override;

private:
    TK_FACTORY_RECORD;
};

/// A record of a version that this library does not know: written by a later one, or damaged.
class TK_EXPORT tkArchive::UnknownVersion : public tkArchive::Errors
{
public:
    /// `where` names the record's class or source (null: unnamed), `number` a place in it.
    explicit UnknownVersion(const char* where = nullptr, int number = 0);

    /// The arguments of construction; an unnamed place is empty.
    const std::string& where() const;
    long number() const;

    long errorNumber() const override;
    void suicideAndRethrow() override;

private:
    TK_FACTORY_RECORD;

    std::string where_;
    long number_;
};

#endif
