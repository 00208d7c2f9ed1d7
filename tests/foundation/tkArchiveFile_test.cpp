#include "foundation/tkArchiveFile.h"

#include "archiveTestObjects.h"
#include "foundation/tkRange.h"
#include "tkTest.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <new>
#include <random>
#include <set>
#include <system_error>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace
{
namespace fs = std::filesystem;
using NodeHandle = tkPtrHandle<ArchiveNode>;

/// An empty folder that goes with the test.
class tkArchiveFileInFolder : public ::testing::Test
{
protected:
    tkArchiveFileInFolder()
    {
        // Several builds may run their tests at once.
        std::random_device random;
        do
            folder = fs::path(::testing::TempDir()) / ("tkArchiveFile_test-" + std::to_string(random()));
        while (!fs::create_directory(folder));
        path = folder / "object.tka";
    }
    ~tkArchiveFileInFolder() override { fs::remove_all(folder); }

    std::string read(const fs::path& file) const
    {
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }

    void write(const std::string& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }

    /// Names of what is in the folder.
    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder))
            found.insert(entry.path().filename().string());
        return found;
    }

    std::wstring about(const fs::path& file, const std::wstring& cause) const
    {
        return L"The file \"" + file.wstring() + L"\" " + cause;
    }

    std::wstring about(const std::wstring& cause) const { return about(path, cause); }

    static std::wstring cause(std::error_code code)
    {
        const std::string text = code.message();
        return L": " + std::wstring(text.begin(), text.end());
    }

    static std::wstring cause(std::errc code) { return cause(std::make_error_code(code)); }

#if defined(_WIN32) // has a text for each
    static std::wstring noFile()
    {
        return cause(std::error_code(ERROR_FILE_NOT_FOUND, std::system_category()));
    }
    static std::wstring noFolder()
    {
        return cause(std::error_code(ERROR_PATH_NOT_FOUND, std::system_category()));
    }
#else
    static std::wstring noFile()
    {
        return cause(std::errc::no_such_file_or_directory);
    }
    static std::wstring noFolder()
    {
        return noFile();
    }
#endif

    /// Loads a vector, which must fail with this cause and leave the vector alone.
    void expectRefused(const std::wstring& expected) const
    {
        std::vector<long> numbers{7, 8};
        EXPECT_TK_THROW(tkArchiveFile::load(path, numbers), tkArchive::Errors, about(expected));
        EXPECT_EQ((std::vector<long>{7, 8}), numbers);
    }

    fs::path folder;
    fs::path path;
};

/// CRC-64 by the definition, bit by bit.
std::uint64_t checksumOf(const std::string& bytes)
{
    std::uint64_t crc = ~std::uint64_t{0};
    for (const char c : bytes)
    {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc & 1 ? (crc >> 1) ^ 0xC96C5795D7870F42 : crc >> 1;
    }
    return ~crc;
}

std::string number(std::uint64_t value, int count)
{
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    return bytes;
}

std::string frame(const std::string& archive)
{
    return fromHex("89 'TKA 0d 0a 1a 0a 01 00 00 00") + number(archive.size(), 8) + archive +
           number(checksumOf(archive), 8);
}

/// A value whose storing can be made to fail in the middle.
struct Failing
{
    std::function<void()> fail;
};

tkArchive& operator||(tkArchive& archive, Failing& failing)
{
    long number = 1;
    archive || number;
    if (failing.fail)
        failing.fail();
    return archive || number;
}
} // namespace

TEST_F(tkArchiveFileInFolder, hasFixedBytes)
{
    tkArchiveFile::save(path, std::vector<long>{5, -1});
    EXPECT_EQ("89 54 4b 41 0d 0a 1a 0a"                 // mark
              " 01 00 00 00"                            // format version
              " 0d 00 00 00 00 00 00 00"                // length of the archive
              " 00 02 00 00 00 05 00 00 00 ff ff ff ff" // the archive
              " d0 8a 96 3f 5a 57 91 54",               // its checksum
              hex(read(path)));
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
}

TEST_F(tkArchiveFileInFolder, checksumIsTheStandardOne)
{
    EXPECT_EQ(0x995DC9BBDF1939FAu, checksumOf("123456789")); // the published check value
    std::string archive = storeToBytes(std::wstring(L"1234567890 and more"));
    tkArchiveFile::save(path, std::wstring(L"1234567890 and more"));
    EXPECT_EQ(frame(archive), read(path));
}

TEST_F(tkArchiveFileInFolder, objectsOfEverySizeComeBack)
{
    // Around the sizes of the buffers and of the checksum's steps.
    for (const std::size_t size : {0, 1, 2, 3, 4094, 4095, 4096, 4097, 8192, 16382, 16383, 16384, 16385, 32768, 100000})
    {
        std::vector<long> numbers(size);
        for (std::size_t i = 0; i < size; ++i)
            numbers[i] = static_cast<long>(i * i % 1000003);
        tkArchiveFile::save(path, numbers);
        EXPECT_EQ(frame(storeToBytes(numbers)), read(path)) << size;
        std::vector<long> loaded{1, 2, 3};
        tkArchiveFile::load(path, loaded);
        EXPECT_EQ(numbers, loaded);
    }
}

TEST_F(tkArchiveFileInFolder, objectsBehindHandlesKeepTheirSharing)
{
    const NodeHandle shared(new ArchiveNode(2));
    const NodeHandle root(new ArchiveNode(1));
    root->children = {shared, shared};
    tkArchiveFile::save(path, root);
    EXPECT_EQ(3, shared->referenceCount());
    NodeHandle loaded;
    tkArchiveFile::load(path, loaded);
    ASSERT_EQ(2u, loaded->children.size());
    EXPECT_TRUE(loaded->children[0] == loaded->children[1]);
    EXPECT_EQ(1, loaded->referenceCount());
    EXPECT_EQ(2, loaded->children[0]->referenceCount());
}

TEST_F(tkArchiveFileInFolder, savingReplacesWhatWasThere)
{
    write("an older and longer file of another kind");
    tkArchiveFile::save(path, 5L);
    long loaded = 0;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(5, loaded);
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
}

TEST_F(tkArchiveFileInFolder, pathsMayHoldAnyCharacter)
{
    path = folder / fs::u8path("Pr\xc3\xbc"
                               "fling \xe2\x82\xac.tka");
    tkArchiveFile::save(path, 5L);
    long loaded = 0;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(5, loaded);
    fs::remove(path);
    EXPECT_TK_THROW(tkArchiveFile::load(path, loaded), tkArchive::Errors,
                    L"The file \"" + folder.wstring() + static_cast<wchar_t>(fs::path::preferred_separator) +
                        L"Pr\u00fcfling \u20ac.tka\" cannot be read" + noFile());
}

TEST_F(tkArchiveFileInFolder, pathsMayBeLong)
{
    // Each part may be, and so may all of it: beyond 260 characters, where some functions of Windows end.
    fs::create_directory(folder / std::string(100, 'f'));
    path = folder / std::string(100, 'f') / std::string(200, 'p');
    tkArchiveFile::save(path, 5L);
    tkArchiveFile::save(path, 6L);
    long loaded = 0;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(6, loaded);
#if defined(_WIN32)
    EXPECT_TRUE(::DeleteFileW((LR"(\\?\)" + fs::absolute(path).wstring()).c_str()));
#endif
}

TEST_F(tkArchiveFileInFolder, fileThatSomebodyReadsStaysAsItIsForHim)
{
    tkArchiveFile::save(path, 4L);
    const std::string before = read(path);
    std::ifstream open(path, std::ios::binary);
    std::string readBySomebody(1, static_cast<char>(open.get()));
#if defined(_WIN32)
    EXPECT_THROW(tkArchiveFile::save(path, 5L), tkArchive::Errors);
    EXPECT_EQ(before, read(path));
#else
    tkArchiveFile::save(path, 5L);
    EXPECT_EQ(frame(storeToBytes(5L)), read(path));
#endif
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
    readBySomebody.append(std::istreambuf_iterator<char>(open), std::istreambuf_iterator<char>());
    EXPECT_EQ(before, readBySomebody);
    open.close();
    tkArchiveFile::save(path, 6L);
    EXPECT_EQ(frame(storeToBytes(6L)), read(path));
}

TEST_F(tkArchiveFileInFolder, relativePathWithoutFolderIsInTheCurrentOne)
{
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    tkArchiveFile::save("object.tka", 6L);
    long loaded = 0;
    tkArchiveFile::load("object.tka", loaded);
    fs::current_path(before);
    EXPECT_EQ(6, loaded);
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
}

// Loading: every fault has its cause.

TEST_F(tkArchiveFileInFolder, missingFileIsNamed)
{
    expectRefused(L"cannot be read" + noFile());
}

TEST_F(tkArchiveFileInFolder, directoryIsNamed)
{
    fs::create_directory(path);
    expectRefused(L"is a directory");
    EXPECT_TK_THROW(tkArchiveFile::save(path, 1L), tkArchive::Errors, about(L"is a directory"));
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
}

TEST_F(tkArchiveFileInFolder, otherFilesAreNoArchives)
{
    for (const char* bytes : {"", "89", "89 'TK", "'hello", "88 'TKA 0d 0a 1a 0a 01 00 00 00",
                              "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"})
    {
        write(fromHex(bytes));
        expectRefused(L"is not an archive");
    }
}

TEST_F(tkArchiveFileInFolder, changedLineEndsAreNoticed)
{
    const std::string bytes = frame(storeToBytes(5L));
    write(bytes.substr(0, 4) + "\n\x1a\n" + bytes.substr(8));
    expectRefused(L"is damaged, as by a transfer in text mode");
    write(bytes.substr(0, 4) + "\r\n\x1a\r\n" + bytes.substr(8));
    expectRefused(L"is damaged, as by a transfer in text mode");
}

TEST_F(tkArchiveFileInFolder, otherFormatVersionIsNamed)
{
    std::string bytes = frame(storeToBytes(5L));
    bytes[8] = 3;
    write(bytes);
    expectRefused(L"has the format version 3; only 1 and 2 are known");
    bytes[8] = 0;
    write(bytes);
    expectRefused(L"has the format version 0; only 1 and 2 are known");
}

TEST_F(tkArchiveFileInFolder, everyTruncationIsNoticed)
{
    const std::string bytes = frame(storeToBytes(std::vector<long>{1, 2, 3}));
    for (std::size_t length = 4; length < bytes.size(); ++length)
    {
        write(bytes.substr(0, length));
        expectRefused(L"is truncated");
    }
}

TEST_F(tkArchiveFileInFolder, bytesBehindTheEndAreNoticed)
{
    write(frame(storeToBytes(std::vector<long>{1, 2, 3})) + '\0');
    expectRefused(L"is damaged: it goes on beyond its end");
}

TEST_F(tkArchiveFileInFolder, everyFlippedBitIsNoticed)
{
    const std::string bytes = frame(storeToBytes(std::vector<long>{1, 2, 3}));
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (int bit = 0; bit < 8; ++bit)
        {
            std::string damaged = bytes;
            damaged[i] = static_cast<char>(bytes[i] ^ (1 << bit));
            write(damaged);
            std::vector<long> numbers{7};
            EXPECT_THROW(tkArchiveFile::load(path, numbers), tkArchive::Errors) << i;
            EXPECT_EQ(std::vector<long>{7}, numbers);
        }
    std::string damaged = bytes;
    damaged[24] = static_cast<char>(damaged[24] ^ 1);
    write(damaged);
    expectRefused(L"is damaged: its checksum does not match");
}

TEST_F(tkArchiveFileInFolder, lengthsBeyondAllMeasureAreTruncation)
{
    std::string bytes = frame(storeToBytes(5L));
    bytes.replace(12, 8, number(~std::uint64_t{0}, 8));
    write(bytes);
    expectRefused(L"is truncated");
}

TEST_F(tkArchiveFileInFolder, nothingIsLoadedOfAnArchiveThatHoldsMore)
{
    write(frame(storeToBytes(std::vector<long>{1}) + "x"));
    expectRefused(L"cannot be loaded: the object takes 9 of 10 bytes");
}

TEST_F(tkArchiveFileInFolder, faultsOfTheRecordNameThePathAndTheirCause)
{
    write(frame(fromHex("00 02 00 00 00 01 00")));
    expectRefused(L"cannot be loaded: The data end early (reading, at byte 5)");
    write(frame(fromHex("01 00 00 00 00")));
    expectRefused(L"cannot be loaded: A record has an unknown version");
    bool flag = true;
    write(frame(fromHex("02")));
    EXPECT_TK_THROW(tkArchiveFile::load(path, flag), tkArchive::Errors,
                    about(L"cannot be loaded: A truth value is neither 0 nor 1 (reading, at byte 1)"));
    EXPECT_TRUE(flag);
}

TEST_F(tkArchiveFileInFolder, nestingLimitIsPassedOn)
{
    const NodeHandle root(new ArchiveNode(1));
    root->children.emplace_back(new ArchiveNode(2));
    EXPECT_TK_THROW(tkArchiveFile::save(path, root, 1), tkArchive::Errors,
                    about(L"cannot be written: More than 1 objects are nested (writing, at byte 46)"));
    EXPECT_TRUE(names().empty());
    tkArchiveFile::save(path, root, 2);
    NodeHandle loaded;
    EXPECT_THROW(tkArchiveFile::load(path, loaded, 1), tkArchive::Errors);
    EXPECT_TRUE(loaded.isNull());
    tkArchiveFile::load(path, loaded, 2);
    EXPECT_EQ(1, loaded->number);
}

// Saving: the old file or the new one, and nothing beside it.

TEST_F(tkArchiveFileInFolder, failingRecordLeavesTheOldFile)
{
    write("old");
    Failing failing{[] { throw std::bad_alloc(); }};
    EXPECT_THROW(tkArchiveFile::save(path, failing), std::bad_alloc);
    EXPECT_EQ("old", read(path));
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());

    const std::wstring noText(1, static_cast<wchar_t>(0xD800));
    EXPECT_TK_THROW(tkArchiveFile::save(path, noText), tkArchive::Errors,
                    about(L"cannot be written: A text holds what is no character of Unicode (writing, at byte 0)"));
    EXPECT_EQ("old", read(path));
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
}

TEST_F(tkArchiveFileInFolder, missingFolderIsNamed)
{
    path = folder / "none" / "object.tka";
    EXPECT_TK_THROW(tkArchiveFile::save(path, 1L), tkArchive::Errors, about(L"cannot be written" + noFolder()));
}

TEST_F(tkArchiveFileInFolder, emptyPathIsRefused)
{
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    EXPECT_THROW(tkArchiveFile::save("", 1L), tkArchive::Errors);
    fs::current_path(before);
    EXPECT_TRUE(names().empty());
    long number = 0;
    EXPECT_THROW(tkArchiveFile::load("", number), tkArchive::Errors);
}

#if !defined(_WIN32)

namespace
{
/// Lets no file of this process grow beyond `bytes`: a disk that is full.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    void (*handler_)(int);
    rlimit before_;
};

/// Makes a process of root act as an ordinary user.
class OrdinaryUser
{
public:
    OrdinaryUser() : effective_(::seteuid(::getuid() == 0 ? 65534 : ::getuid()) == 0) {}
    ~OrdinaryUser() { static_cast<void>(::seteuid(::getuid()) == 0); }
    bool isEffective() const { return effective_ && ::geteuid() != 0; }

private:
    bool effective_;
};
} // namespace

TEST_F(tkArchiveFileInFolder, fullDiskLeavesTheOldFileAtEveryPlace)
{
    write("old");
    const std::vector<long> numbers(10000, 3);
    const rlim_t whole = 20 + 5 + 40000 + 8;
    for (const rlim_t room :
         {rlim_t{0}, rlim_t{10}, rlim_t{20}, rlim_t{1000}, rlim_t{16404}, rlim_t{30000}, whole - 8, whole - 1})
    {
        const FullDisk disk(room);
        EXPECT_TK_THROW(tkArchiveFile::save(path, numbers), tkArchive::Errors,
                        about(L"cannot be written" + cause(std::errc::file_too_large)));
        EXPECT_EQ("old", read(path)) << room;
        EXPECT_EQ((std::set<std::string>{"object.tka"}), names()) << room;
    }
    const FullDisk disk(whole);
    tkArchiveFile::save(path, numbers);
    EXPECT_EQ(whole, fs::file_size(path));
}

TEST_F(tkArchiveFileInFolder, crashWhileStoringLeavesTheOldFile)
{
    tkArchiveFile::save(path, 4L);
    const std::string before = read(path);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        Failing failing{[] { ::_exit(3); }};
        tkArchiveFile::save(path, failing);
        ::_exit(4);
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    ASSERT_EQ(3, WEXITSTATUS(status));
    EXPECT_EQ(before, read(path));
    tkArchiveFile::save(path, 5L);
    long loaded = 0;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(5, loaded);
}

TEST_F(tkArchiveFileInFolder, permissionsOfAReplacedFileAreKept)
{
    for (const fs::perms permissions : {fs::perms(0600), fs::perms(0640), fs::perms(0777), fs::perms(0606)})
    {
        write("old");
        fs::permissions(path, permissions);
        tkArchiveFile::save(path, 5L);
        EXPECT_EQ(permissions, fs::status(path).permissions());
    }
}

TEST_F(tkArchiveFileInFolder, newFileHasThePermissionsThatTheUserGivesNewFiles)
{
    const mode_t before = ::umask(027);
    tkArchiveFile::save(path, 5L);
    ::umask(before);
    EXPECT_EQ(fs::perms(0640), fs::status(path).permissions());
}

TEST_F(tkArchiveFileInFolder, targetOfALinkIsReplacedAndTheLinkStays)
{
    fs::create_directory(folder / "real");
    const fs::path real = folder / "real" / "file";
    std::ofstream(real) << "old";
    fs::create_symlink("real/file", folder / "middle");
    fs::create_symlink(folder / "middle", path);
    tkArchiveFile::save(path, 5L);
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_TRUE(fs::is_symlink(folder / "middle"));
    EXPECT_EQ(frame(storeToBytes(5L)), read(real));
    fs::remove(real);
    tkArchiveFile::save(path, 6L); // a link that leads nowhere yet
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(frame(storeToBytes(6L)), read(real));
    EXPECT_EQ((std::set<std::string>{"middle", "object.tka", "real"}), names());
}

TEST_F(tkArchiveFileInFolder, circleOfLinksIsRefused)
{
    fs::create_symlink(path, folder / "other");
    fs::create_symlink(folder / "other", path);
    EXPECT_TK_THROW(tkArchiveFile::save(path, 5L), tkArchive::Errors,
                    about(L"cannot be written" + cause(std::errc::too_many_symbolic_link_levels)));
    expectRefused(L"cannot be read" + cause(std::errc::too_many_symbolic_link_levels));
}

TEST_F(tkArchiveFileInFolder, whatIsNoRegularFileIsLeftAlone)
{
    ASSERT_EQ(0, ::mkfifo(path.c_str(), 0600));
    expectRefused(L"is not a regular file");
    EXPECT_TK_THROW(tkArchiveFile::save(path, 5L), tkArchive::Errors, about(L"is not a regular file"));
    EXPECT_TRUE(fs::is_fifo(path));
    path = "/dev/null";
    EXPECT_TK_THROW(tkArchiveFile::save(path, 5L), tkArchive::Errors, about(L"is not a regular file"));
    EXPECT_TRUE(fs::is_character_file(path));
}

TEST_F(tkArchiveFileInFolder, missingPermissionsAreNamed)
{
    tkArchiveFile::save(path, 5L);
    const std::string before = read(path);
    fs::permissions(folder, fs::perms(0777));
    fs::permissions(path, fs::perms(0));
    const std::wstring denied = cause(std::errc::permission_denied);
    {
        const OrdinaryUser user;
        if (!user.isEffective())
            GTEST_SKIP() << "cannot act as an ordinary user";
        expectRefused(L"cannot be read" + denied);
        EXPECT_TK_THROW(tkArchiveFile::save(path, 6L), tkArchive::Errors, about(L"cannot be written" + denied));
    }
    fs::permissions(path, fs::perms(0666));
    EXPECT_EQ(before, read(path));
    EXPECT_EQ((std::set<std::string>{"object.tka"}), names());
    // Nobody may add a file to the folder, its owner included, who is the one that runs the test without being root.
    fs::permissions(folder, fs::perms(0555));
    {
        const OrdinaryUser user;
        EXPECT_TK_THROW(tkArchiveFile::save(path, 6L), tkArchive::Errors, about(L"cannot be written" + denied));
    }
    fs::permissions(folder, fs::perms(0755));
    EXPECT_EQ(before, read(path));
}

TEST_F(tkArchiveFileInFolder, ordinaryUserMayReplaceAFileOfAnother)
{
    write("old");
    fs::permissions(folder, fs::perms(0777));
    fs::permissions(path, fs::perms(0666));
    {
        const OrdinaryUser user;
        tkArchiveFile::save(path, 6L);
    }
    EXPECT_EQ(fs::perms(0666), fs::status(path).permissions());
    EXPECT_EQ(frame(storeToBytes(6L)), read(path));
}

TEST_F(tkArchiveFileInFolder, pathThatIsNoUnicodeIsShownReadably)
{
    path = folder / "a\xff";
    long number = 0;
    EXPECT_TK_THROW(tkArchiveFile::load(path, number), tkArchive::Errors,
                    L"The file \"" + folder.wstring() + L"/a\xfffd\" cannot be read" + noFile());
}

#endif
