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

void tkException::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tkException::serialize_);
}

void tkException::serialize_(tkArchive& archive, unsigned char version)
{
    tkArchive::requireVersion0(version);
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

void tkExceptionWithString::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tkExceptionWithString::serialize_);
}

void tkExceptionWithString::serialize_(tkArchive& archive, unsigned char version)
{
    tkArchive::requireVersion0(version);
    tkException::dispatchSerialize(archive);
    archive || text_;
    if (archive.isLoading())
        what_ = tkUtf8::encode(text_);
}

void tkExceptionWithString::message_(std::wostream& stream) const
{
    stream << text_;
}

const tkPersistent::Registration tkFailure::registration_(typeid(tkFailure), &tkFailure::make);

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

void tkFailure::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tkFailure::serialize_);
}

void tkFailure::serialize_(tkArchive& archive, unsigned char version)
{
    tkArchive::requireVersion0(version, "tkFailure");
    tkExceptionWithString::dispatchSerialize(archive);
}

tkPersistent* tkFailure::make()
{
    return new tkFailure;
}
