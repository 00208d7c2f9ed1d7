#include "foundation/tkException.h"

#include "foundation/tkArchive.h"
#include "foundation/tkUtf8.h"

#include <sstream>
#include <utility>

std::wstring tkException::message() const
{
    std::wostringstream stream;
    message_(stream);
    return stream.str();
}

TK_DEFINE_RECORD(tkException, 0)

void tkException::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tkExceptionWithString::tkExceptionWithString(const std::wstring& message)
    : text_(message),
      what_(tkUtf8::encode(message))
{
}

tkExceptionWithString& tkExceptionWithString::operator=(const tkExceptionWithString& other)
{
    std::wstring text = other.text_;
    std::string what = other.what_;
    text_ = std::move(text);
    what_ = std::move(what);
    return *this;
}

const char* tkExceptionWithString::what() const noexcept
{
    return what_.c_str();
}

TK_DEFINE_RECORD(tkExceptionWithString, 0)

void tkExceptionWithString::serialize_(tkArchive& archive, unsigned char)
{
    tkException::dispatchSerialize(archive);
    archive || text_;
    if (archive.isLoading())
        what_ = tkUtf8::encode(text_);
}

void tkExceptionWithString::message_(std::wostream& stream) const
{
    stream << text_;
}

tkFailure::tkFailure(const std::wstring& message) : tkExceptionWithString(message) {}

long tkFailure::errorNumber() const
{
    return 0x10001000;
}

void tkFailure::suicideAndRethrow()
{
    const tkFailure copy(*this);
    delete this;
    throw copy;
}

TK_DEFINE_FACTORY_RECORD(tkFailure, 0, "tkFailure")

void tkFailure::serialize_(tkArchive& archive, unsigned char)
{
    tkExceptionWithString::dispatchSerialize(archive);
}

tkBadPointer::tkBadPointer() : tkExceptionWithString(L"Null handle dereferenced") {}

long tkBadPointer::errorNumber() const
{
    return 0x10001003;
}

void tkBadPointer::suicideAndRethrow()
{
    const tkBadPointer copy(*this);
    delete this;
    throw copy;
}

TK_DEFINE_FACTORY_RECORD(tkBadPointer, 0, "tkBadPointer")

void tkBadPointer::serialize_(tkArchive& archive, unsigned char)
{
    tkExceptionWithString::dispatchSerialize(archive);
}
