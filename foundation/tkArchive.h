#ifndef FOUNDATION_TKARCHIVE_H
#define FOUNDATION_TKARCHIVE_H

#include "foundation/tkPersistent.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

/// Stores objects in, or loads them from, a byte stream; `archive || object` does either.
///
/// The bytes are the same from every platform: integers of 32 bits, little-endian, IEEE doubles, wide strings as UTF-8
/// with a byte count. An object reached through several handles is written once, as it was when it was first met, and
/// is shared again after loading; for that the archive keeps what it stored or loaded alive while it lives. **An object
/// that changes between two stores into one archive therefore comes back old**: use one archive for each state.
/// An archive is used by one thread. The stream must outlive it. Once an exchange has failed, its place in the stream
/// is lost and every further exchange fails; what was being loaded must be discarded.
class TK_EXPORT tkArchive
{
public:
    class Errors;         // in tkArchiveErrors.h
    class UnknownVersion; // likewise

    /// Stores to `stream`. All bytes are flushed when the outermost || returns; until then nobody else may write to the
    /// stream or ask for its position.
    explicit tkArchive(std::ostream& stream);
    /// Loads from `stream`, from which no byte is taken beyond what was asked for.
    explicit tkArchive(std::istream& stream);
    ~tkArchive();
    tkArchive(const tkArchive&) = delete;
    tkArchive& operator=(const tkArchive&) = delete;

    bool isLoading() const { return isLoading_; }
    bool isStoring() const { return !isLoading_; }

    static constexpr long defaultNestingLimit = 256;

    /// How many objects may be nested in one another, an object met again counting with all that it holds. Deeper ones
    /// are refused in both directions: each level takes stack of the thread whenever the objects are exchanged, copied,
    /// compared or destroyed. The default suits a thread with 256 KiB of stack (512 KiB without optimisation); a higher
    /// limit needs up to 1 KiB of stack for each further level.
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
    void exchangeBytes(unsigned char* bytes, std::size_t count);
    /// `count` truth values in a row, each 0 or 1.
    void exchangeBools(unsigned char* flags, std::size_t count);
    /// `count` doubles in a row.
    void exchangeDoubles(double* values, std::size_t count);

    /// Exchanges the version byte of a record and gives the version: storing writes `newest`, loading throws
    /// UnknownVersion(where, number) for a newer one.
    unsigned char exchangeVersion(const char* where = nullptr, int number = 0, unsigned char newest = 0);
    /// The same test for the version byte, already read, of a record that knows version 0 only.
    static void requireVersion0(unsigned char version, const char* where = nullptr, int number = 0);

    /// Throws Errors(`what`) with the direction and the byte, for operators that find a record's fields at odds. The
    /// archive has failed then.
    [[noreturn]] void fail(const std::wstring& what);
    /// Makes the archive one that has failed: for operators of values that another exception leaves.
    void setFailed();

    /// Takes back what serializePointer() has just loaded and its receiver cannot use. An object that is not
    /// reference-counted is deleted, unless it belongs to an earlier receiver, and is null when met again; any
    /// other goes with the archive.
    void discardLoaded(tkPersistent* object);

private:
    friend class tkPersistent;
    friend TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPersistent& object);
    struct State_;
    class Exchange_;

    void storePointer_(tkPersistent* object);
    std::uint32_t storeNew_(tkPersistent& object);
    std::uint32_t storedType_(const std::type_info& type, std::string& newName); // a new type's name; else untouched
    tkPersistent* loadPointer_();
    tkPersistent* known_(std::uint32_t number);
    tkPersistent* create_(std::unique_ptr<tkPersistent>& uncounted); // holds it too if nobody counts it
    long exchangeObject_(tkPersistent& object);                      // gives its height, the nesting in it with itself
    void meetAgain_(std::uint32_t number);
    void nest_(long height); // in the object being exchanged
    void exchangeWord_(std::uint32_t& word);
    void exchangeText_(std::string& bytes);

    const bool isLoading_;
    std::unique_ptr<State_> state_;
};

/// Exchanges one byte as it is.
inline tkArchive& operator||(tkArchive& archive, unsigned char& byte)
{
    archive.exchangeBytes(&byte, 1);
    return archive;
}

/// Exchanges the record of an object in place, without type and without sharing by pointer.
TK_EXPORT tkArchive& operator||(tkArchive& archive, tkPersistent& object);

#endif
