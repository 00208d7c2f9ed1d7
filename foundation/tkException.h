#ifndef FOUNDATION_TKEXCEPTION_H
#define FOUNDATION_TKEXCEPTION_H

#include "foundation/tkPersistent.h"

#include <exception>
#include <iosfwd>
#include <string>

/// Root of the exceptions: carries a wide message and a number, can be stored in an archive, and is a
/// std::exception for hosts that know no other.
class TK_EXPORT tkException : public tkPersistent, public std::exception
{
public:
    /// Number that identifies the class of the error, the same in every release.
    virtual long errorNumber() const = 0;

    /// For a holder of an exception on the heap: deletes the object and throws a copy of its own class.
    virtual void suicideAndRethrow() = 0;

    /// The message, as message_() writes it.
    std::wstring message() const;

protected:
    void dispatchSerialize(tkArchive& archive) override;

    /// Writes the message to `stream`.
    virtual void message_(std::wostream& stream) const = 0;

private:
    void serialize_(tkArchive& archive, unsigned char version);
};

/// An exception whose message is a stored text.
class TK_EXPORT tkExceptionWithString : public tkException
{
public:
    /// The message in UTF-8.
    const char* what() const noexcept override;

protected:
    explicit tkExceptionWithString(const std::wstring& message = L"");

    void dispatchSerialize(tkArchive& archive) override;
    void message_(std::wostream& stream) const override;

private:
    void serialize_(tkArchive& archive, unsigned char version);

    std::wstring text_;
    std::string what_; // text_ in UTF-8, kept because what() must not fail
};

/// The foundation's generic failure, for conditions that have no class of their own.
class TK_EXPORT tkFailure : public tkExceptionWithString
{
public:
    explicit tkFailure(const std::wstring& message = L"");

    long errorNumber() const override;
    void suicideAndRethrow() override;

protected:
    void dispatchSerialize(tkArchive& archive) override;

private:
    void serialize_(tkArchive& archive, unsigned char version);
    static tkPersistent* make();
    static const Registration registration_;
};

#endif
