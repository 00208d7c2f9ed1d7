#include "tkTest.h"

#include <exception>
#include <fstream>
#include <iterator>
#include <typeindex>

namespace
{
::testing::AssertionResult unlike(const std::string& what, const std::type_info& expected, const std::wstring& text)
{
    return ::testing::AssertionFailure() << what << "\n  expected " << tkPersistent::typeName(expected) << " with "
                                         << ::testing::PrintToString(text) << "\n  from";
}
} // namespace

::testing::AssertionResult tkThrowsExactly(const std::function<void()>& action, const std::type_info& expected,
                                           const std::wstring& text)
{
    try
    {
        action();
    }
    catch (const tkException& thrown)
    {
        if (std::type_index(typeid(thrown)) == std::type_index(expected) && thrown.message() == text)
        {
            return ::testing::AssertionSuccess();
        }
        return unlike(std::string("threw ") + tkPersistent::typeName(typeid(thrown)) + " with " +
                          ::testing::PrintToString(thrown.message()),
                      expected, text);
    }
    catch (const std::exception& thrown)
    {
        return unlike(std::string("threw ") + tkPersistent::typeName(typeid(thrown)) + " with \"" + thrown.what() +
                          "\"",
                      expected, text);
    }
    catch (...)
    {
        return unlike("threw something that is not an exception", expected, text);
    }
    return unlike("threw nothing", expected, text);
}

std::string storePointerToBytes(tkPersistent& object)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        tkPersistent* unused = nullptr;
        tkPersistent::serializePointer(archive, &object, unused);
    }
    return stream.str();
}

std::unique_ptr<tkPersistent> loadPointerFromBytes(const std::string& bytes)
{
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    tkPersistent* loaded = nullptr;
    tkPersistent::serializePointer(archive, nullptr, loaded);
    EXPECT_EQ(archive.position(), bytes.size()) << "bytes are left over after loading";
    return std::unique_ptr<tkPersistent>(loaded);
}

std::string goldenBytes(const std::string& fileName)
{
    std::ifstream file(std::string(CLASTOOL_GOLDEN_DIR "/") + fileName, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << fileName;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}
