#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "foundation/tkArchiveFile.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkRange.h"
#include "tkFolder.h"
#include "tkTest.h"

// A file with a rule table that was loaded as something else gave errors about the bytes of its record, or was even
// taken for an object of the other class. A file names its object's class now, and says so when another is asked for.
// Files without a name are loaded as before: those of earlier releases, and those of instances of templates, whose
// names depend on the compiler.

namespace
{
namespace fs = std::filesystem;

/// The object in a file of the format before there were names.
template <class Object>
void saveWithoutName(const fs::path& path, const Object& object)
{
    tkArchiveFile::save(path, std::vector<Object>{object});
    // A vector of one element: version and count, five bytes, then the object.
    std::string bytes = tkFolder::read(path);
    ASSERT_EQ(1, bytes[8]);
    const std::string record = storeToBytes(object);
    ASSERT_EQ(record, bytes.substr(25, record.size()));
    bytes.erase(20, 5);
    bytes[12] = static_cast<char>(bytes[12] - 5);
    std::uint64_t crc = ~std::uint64_t{0};
    for (const char c : record)
    {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? (crc >> 1) ^ 0xC96C5795D7870F42 : crc >> 1;
    }
    for (std::size_t i = 0; i < 8; ++i)
        bytes[bytes.size() - 8 + i] = static_cast<char>(static_cast<unsigned char>(~crc >> (8 * i)));
    tkFolder::write(path, bytes);
}
} // namespace

class fileDidNotSayWhatItHolds : public ::testing::Test
{
protected:
    template <class Object>
    void expectRefused(const std::wstring& cause) const
    {
        Object object{};
        EXPECT_TK_THROW(tkArchiveFile::load(path, object), tkArchive::Errors,
                        L"The file \"" + path.wstring() + L"\" " + cause);
    }

    tkFolder folder;
    fs::path path = folder.path / "file";
};

TEST_F(fileDidNotSayWhatItHolds, anotherClassIsRefusedByBothNames)
{
    tkArchiveFile::save(path, tkClassifierCosts(2.0));
    expectRefused<tkClassifierTool>(L"holds a tkClassifierCosts, not a tkClassifierTool");
    expectRefused<tkFailure>(L"holds a tkClassifierCosts, not a tkFailure");
    expectRefused<double>(L"holds a tkClassifierCosts, not a double");
    expectRefused<std::vector<long>>(
        L"holds a tkClassifierCosts, not a " + [](const std::string& name)
        { return std::wstring(name.begin(), name.end()); }(tkPersistent::typeName(typeid(std::vector<long>))));
    tkClassifierCosts costs;
    tkArchiveFile::load(path, costs);
    EXPECT_TRUE(costs == tkClassifierCosts(2.0));
}

TEST_F(fileDidNotSayWhatItHolds, objectIsNamedByItsOwnClassAndNotByThatOfTheReference)
{
    const tkFailure failure(L"text");
    tkArchiveFile::save(path, static_cast<const tkPersistent&>(failure));
    expectRefused<tkClassifierCosts>(L"holds a tkFailure, not a tkClassifierCosts");
    tkFailure loaded;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(L"text", loaded.message());
}

TEST_F(fileDidNotSayWhatItHolds, frameHasTheNameBehindTheLengthAndChecksIt)
{
    tkArchiveFile::save(path, tkRange(1.0, 2.0));
    const std::string bytes = tkFolder::read(path);
    const std::string record = storeToBytes(tkRange(1.0, 2.0));
    EXPECT_EQ(std::string("\2\0\0\0", 4), bytes.substr(8, 4));
    EXPECT_EQ(static_cast<char>(record.size()), bytes[12]);
    EXPECT_EQ("\7tkRange" + record, bytes.substr(20, 8 + record.size()));
    EXPECT_EQ(28 + record.size() + 8, bytes.size());
    std::string damaged = bytes;
    damaged[23] = 'L';
    tkFolder::write(path, damaged);
    expectRefused<tkRange>(L"is damaged: its checksum does not match");
    for (std::size_t size = 20; size < bytes.size(); ++size)
    {
        tkFolder::write(path, bytes.substr(0, size));
        expectRefused<tkRange>(L"is truncated");
    }
}

TEST_F(fileDidNotSayWhatItHolds, filesWithoutANameAreLoadedAsWhatIsAskedFor)
{
    saveWithoutName(path, tkRange(1.0, 2.0));
    tkRange range;
    tkArchiveFile::load(path, range);
    EXPECT_TRUE(range == tkRange(1.0, 2.0));

    tkArchiveFile::save(path, std::vector<tkRange>{tkRange(1.0, 2.0)});
    std::vector<tkRange> ranges;
    tkArchiveFile::load(path, ranges);
    EXPECT_EQ(1u, ranges.size());
    EXPECT_TRUE(ranges[0] == tkRange(1.0, 2.0));
}
