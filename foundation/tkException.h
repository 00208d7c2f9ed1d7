#ifndef FOUNDATION_TKEXCEPTION_H
#define FOUNDATION_TKEXCEPTION_H

#include "foundation/tkPersistent.h"

#include <exception>
#include <iosfwd>
#include <string>

/// Root of the exceptions: carries a wide message and a number, can be stored in an archive, and is a std::exception
/// for hosts that know no other. What fails by a bug of the calling code is no tkException (tkAssertionFailure); nor is
/// std::bad_alloc, which passes through all operations.
///
/// Objects of the concrete classes can be copied, as throwing needs. A handler for tkException catches all errors of
/// the library; those of a subsystem have a root of their own (tkArchive::Errors, tkClassifierDefs::Errors).
class TK_EXPORT tkException : public tkPersistent, public std::exception
{
public:
    /// Number that identifies the class of the error, the same in every release. No two classes of the library share
    /// one: the foundation has 0x10001000 to 0x10001003, the classifiers 0x10004200 to 0x10004207.
    virtual long errorNumber() const = 0;

    /// For a holder of an exception on the heap, loaded from an archive for instance: deletes the object and throws a
    /// copy of its own class, never returns. *Requires* an object from `new`.
    virtual void suicideAndRethrow() = 0;

    /// The message, as message_() writes it: English text, for people.
    std::wstring message() const;

protected:
    TK_RECORD;

    /// Writes the message to `stream`, an empty one of message()'s own.
    virtual void message_(std::wostream& stream) const = 0;
};

/// An exception whose message is a stored text.
class TK_EXPORT tkExceptionWithString : public tkException
{
public:
    tkExceptionWithString(const tkExceptionWithString&) = default;
    tkExceptionWithString(tkExceptionWithString&&) = default;
    /// Strong exception guarantee.
    tkExceptionWithString& operator=(const tkExceptionWithString& other);
    tkExceptionWithString& operator=(tkExceptionWithString&&) = default;

    /// The message in UTF-8; what is no character of Unicode is U+FFFD. Lasts until the object is changed or destroyed.
    const char* what() const noexcept override;

protected:
    /// Any text; it is neither checked nor cut.
    tkExceptionWithString(const std::wstring& message = L"");

    /// The text. Storing throws tkArchive::Errors for one that holds what is no character of Unicode.
    TK_RECORD;
    /// Writes the stored text.
    void message_(std::wostream& stream) const override;

private:
    std::wstring text_;
    std::string what_; // text_ in UTF-8, kept because what() must not fail
};

/// The foundation's generic failure, for conditions that have no class of their own.
class TK_EXPORT tkFailure : public tkExceptionWithString
{
public:
    /// With this message, as it is.
    tkFailure(const std::wstring& message = L"");

    /// 0x10001000.
    long errorNumber() const override;
    /// As in tkException.
    void suicideAndRethrow() override;

private:
    TK_FACTORY_RECORD;
};

/// Thrown when a null handle is dereferenced, or given to who needs an object.
class TK_EXPORT tkBadPointer : public tkExceptionWithString
{
public:
    /// With a fixed message.
    tkBadPointer();

    /// 0x10001003.
    long errorNumber() const override;
    /// As in tkException.
    void suicideAndRethrow() override;

private:
    TK_FACTORY_RECORD;
};

#endif
