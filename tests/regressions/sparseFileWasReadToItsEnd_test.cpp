#include "foundation/tkArchiveFile.h"
#include "foundation/tkArchiveOperators.h"
#include "tkFolder.h"
#include "tkTest.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <vector>

// A file of 28 bytes may say that it is 8 TB long and be so, without taking a block of the disk more. tkArchiveFile
// read its zeros to the end before it found that the checksum did not match: an hour for one load. What takes no space
// on the disk is summed up without being read now, in the time of what is really there.

namespace
{
namespace fs = std::filesystem;

[[maybe_unused]] std::string number(unsigned long long value, int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    return bytes;
}
} // namespace

#if !defined(_WIN32) // there a file has holes only where a program asks for them
TEST(sparseFileWasReadToItsEnd, eightTerabytesOfNothingAreRefusedAtOnce)
{
    const tkFolder folder;
    const fs::path path = folder.path / "file";
    // Or of the largest such file that the file system has: reading a quarter of a terabyte would be noticed as well.
    unsigned long long length = 16ULL << 40;
    std::error_code refused = std::make_error_code(std::errc::file_too_large);
    while (refused && length > 256ULL << 30)
    {
        length /= 2;
        tkFolder::write(path, "\x89TKA\r\n\x1a\n" + number(1, 4) + number(length, 8));
        fs::resize_file(path, 20 + length + 8, refused);
    }
    ASSERT_FALSE(refused) << refused.message();
    const auto start = std::chrono::steady_clock::now();
    std::vector<double> values{1.0};
    EXPECT_TK_THROW(tkArchiveFile::load(path, values), tkArchive::Errors,
                    L"The file \"" + path.wstring() + L"\" is damaged: its checksum does not match");
    EXPECT_EQ(std::vector<double>{1.0}, values);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}
#endif

TEST(sparseFileWasReadToItsEnd, holesInAFileAreTheZerosThatWereSaved)
{
    // Of a saved file the zeros are left out where nothing else stands for so many bytes: the copy has holes of all
    // sizes, and is the same archive.
    const tkFolder folder;
    const fs::path full = folder.path / "full";
    const fs::path sparse = folder.path / "sparse";
    std::vector<double> values(300000, 0.0);
    for (std::size_t i = 1; i < values.size(); i *= 3)
        values[i] = 1.0;
    tkArchiveFile::save(full, values);
    const std::string bytes = tkFolder::read(full);
    {
        std::ofstream copy(sparse, std::ios::binary);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (bytes[i] != 0)
            {
                copy.seekp(static_cast<std::streamoff>(i));
                copy.put(bytes[i]);
            }
    }
    fs::resize_file(sparse, bytes.size());
    ASSERT_EQ(bytes, tkFolder::read(sparse));
    std::vector<double> loaded;
    tkArchiveFile::load(sparse, loaded);
    EXPECT_EQ(values, loaded);
}
