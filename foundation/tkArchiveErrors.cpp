#include "foundation/tkArchiveErrors.h"

#include "foundation/tkUtf8.h"

tkArchive::Errors::Errors(const std::wstring& message) : tkExceptionWithString(message) {}

long tkArchive::Errors::errorNumber() const
{
    return 0x10001001;
}

void tkArchive::Errors::suicideAndRethrow()
{
    const Errors copy(*this);
    delete this;
    throw copy;
}

TK_DEFINE_FACTORY_RECORD(tkArchive::Errors, 0, "tkArchive::Errors")

void tkArchive::Errors::serialize_(tkArchive& archive, unsigned char)
{
    tkExceptionWithString::dispatchSerialize(archive);
}

tkArchive::UnknownVersion::UnknownVersion(const char* where, int number)
    : Errors(L"A record has an unknown version" +
             (where ? L" (" + tkUtf8::readable(where) + L", " + std::to_wstring(number) + L")" : std::wstring())),
      where_(where ? where : ""),
      number_(number)
{
}

const std::string& tkArchive::UnknownVersion::where() const
{
    return where_;
}

long tkArchive::UnknownVersion::number() const
{
    return number_;
}

long tkArchive::UnknownVersion::errorNumber() const
{
    return 0x10001002;
}

void tkArchive::UnknownVersion::suicideAndRethrow()
{
    const UnknownVersion copy(*this);
    delete this;
    throw copy;
}

TK_DEFINE_FACTORY_RECORD(tkArchive::UnknownVersion, 0, "tkArchive::UnknownVersion")

void tkArchive::UnknownVersion::serialize_(tkArchive& archive, unsigned char)
{
    Errors::dispatchSerialize(archive);
    archive.exchangeText_(where_);
    archive || number_;
}
