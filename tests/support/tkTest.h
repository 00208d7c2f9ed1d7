#ifndef TESTS_SUPPORT_TKTEST_H
#define TESTS_SUPPORT_TKTEST_H

#include "foundation/tkArchiveErrors.h"
#include "foundation/tkException.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>

/// Fails unless `statement` throws an exception whose class is exactly `ExceptionClass`, not one derived from it,
/// and whose message is exactly `text`; says what came instead.
#define EXPECT_TK_THROW(statement, ExceptionClass, text)                                                               \
    do                                                                                                                 \
    {                                                                                                                  \
        static_assert(std::is_base_of_v<tkException, ExceptionClass>, #ExceptionClass " has no message to compare");   \
        EXPECT_TRUE(tkThrowsExactly([&] { statement; }, typeid(ExceptionClass), text)) << #statement;                  \
    } while (false)

/// Whether `action` throws a tkException of exactly the class `expected` with exactly the message `text`.
::testing::AssertionResult tkThrowsExactly(const std::function<void()>& action, const std::type_info& expected,
                                           const std::wstring& text);

/// The bytes of a string literal, zeros included.
template <std::size_t size>
std::string literalBytes(const char (&literal)[size])
{
    return std::string(literal, size - 1);
}

/// The bytes of an archive that holds `object` alone.
template <class T>
std::string storeToBytes(const T& object)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        archive || const_cast<T&>(object); // one operator serves both directions; storing only reads
    }
    return stream.str();
}

/// Loads `object` from an archive of the given bytes and requires that it takes all of them.
template <class T>
void loadFromBytes(const std::string& bytes, T& object)
{
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    archive || object;
    EXPECT_EQ(archive.position(), bytes.size()) << "bytes are left over after loading";
}

/// The bytes of an archive that holds a pointer to `object`: the name of its class, then its record.
std::string storePointerToBytes(tkPersistent& object);

/// The object from such an archive, of a class that is not reference-counted.
std::unique_ptr<tkPersistent> loadPointerFromBytes(const std::string& bytes);

/// The bytes of a stored record under tests/golden. Fails, and gives no bytes, if the file cannot be read.
std::string goldenBytes(const std::string& fileName);

#endif
