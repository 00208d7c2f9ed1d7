#include "foundation/tkException.h"

#include "foundation/tkArchive.h"
#include "foundation/tkUtf8.h"

#include <sstream>

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
