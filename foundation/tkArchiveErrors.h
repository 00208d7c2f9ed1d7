#ifndef FOUNDATION_TKARCHIVEERRORS_H
#define FOUNDATION_TKARCHIVEERRORS_H

#include "foundation/tkArchive.h"
#include "foundation/tkException.h"

#include <string>

/// Anything wrong with an archive: bytes that are no archive, a stream or file that fails, a value that cannot be
/// stored. The message says what and, where a byte can be named, whether it was reading or writing and at which byte.
///
/// An exchange that throws one leaves its archive failed; an object that was being loaded may be partly loaded.
class TK_EXPORT tkArchive::Errors : public tkExceptionWithString
{
public:
    /// With this message, as it is.
    Errors(const std::wstring& message = L"");

    /// 0x10001001, the same in every release.
    long errorNumber() const override;
    /// Deletes this object and throws a copy. *Requires* an object from `new`.
    void suicideAndRethrow() override;

private:
    /// The message; of an unknown version throws UnknownVersion("tkArchive::Errors", 0).
    TK_FACTORY_RECORD;
};

/// A record of a version that this library does not know: written by a later one, or damaged. The message names the
/// place and the number. A host that catches it before Errors can ask for a newer library.
class TK_EXPORT tkArchive::UnknownVersion : public tkArchive::Errors
{
public:
    /// `where` names the record's class or source (null: unnamed), `number` a place in it, often 0. Neither is the
    /// version that was found.
    UnknownVersion(const char* where = nullptr, int number = 0);
    UnknownVersion(const UnknownVersion&) = default;
    UnknownVersion(UnknownVersion&&) = default;
    /// Strong exception guarantee.
    UnknownVersion& operator=(const UnknownVersion& other) { return *this = UnknownVersion(other); }
    UnknownVersion& operator=(UnknownVersion&&) = default;

    /// The arguments of construction; an unnamed place is empty.
    const std::string& where() const;
    long number() const;

    /// 0x10001002, the same in every release.
    long errorNumber() const override;
    /// As in Errors.
    void suicideAndRethrow() override;

private:
    /// As in Errors, then the place and the number.
    TK_FACTORY_RECORD;

    std::string where_; // as given, which need not be UTF-8
    long number_;
};

#endif
