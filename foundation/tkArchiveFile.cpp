// Files of 2 GiB and more, also where off_t has 32 bits unless 64 are asked for.
#define _FILE_OFFSET_BITS 64 // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

#include "foundation/tkArchiveFile.h"

#include "foundation/tkUtf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <random>
#include <streambuf>
#include <system_error>
#include <vector>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace
{
namespace fs = std::filesystem;

// The frame: mark, format version (4 bytes), length of the archive (8 bytes), the number of bytes of the class's name
// (1 byte), the name, archive, checksum of name and archive (8 bytes). Every bit in front of the name is compared with
// what it must be. Format 1 has no name and no number of its bytes: it is that of files saved before there were names,
// and of objects without one: no class, or one whose name is not the same from every compiler.

/// A byte above ASCII, a name, and the line ends that a transfer in text mode would change.
constexpr unsigned char mark[8] = {0x89, 'T', 'K', 'A', '\r', '\n', 0x1A, '\n'};
constexpr std::size_t markNameSize = 4;
constexpr std::uint64_t namelessFormat = 1;
constexpr std::uint64_t namedFormat = 2;
constexpr std::size_t versionSize = 4;
constexpr std::size_t lengthSize = 8;
constexpr std::size_t headSize = sizeof mark + versionSize + lengthSize;
constexpr std::size_t checksumSize = 8;
constexpr std::size_t largestName = 255;

/// In pieces of a quarter of it, saving took a quarter longer.
constexpr std::size_t bufferSize = 65536;

void putNumber(unsigned char* bytes, std::size_t count, std::uint64_t number)
{
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(number >> (8 * i));
}

std::uint64_t getNumber(const unsigned char* bytes, std::size_t count)
{
    std::uint64_t number = 0;
    for (std::size_t i = count; i-- > 0;)
        number = number << 8 | bytes[i];
    return number;
}

const unsigned char* bytesOf(const std::string& name)
{
    return reinterpret_cast<const unsigned char*>(name.data());
}

/// The class's name as every compiler writes it, or nothing: a template's arguments are written in many ways.
std::string nameIn(const std::type_info& type)
{
    const std::string name = tkPersistent::typeName(type);
    const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_: ";
    return name.size() <= largestName && name.find_first_not_of(letters) == std::string::npos ? name : std::string();
}

/// CRC-64 with the polynomial of ECMA-182, bits reflected, inverted at both ends; eight bytes at a time.
/// Table k holds the remainders of a byte that k zero bytes follow.
class Checksum
{
public:
    void add(const unsigned char* bytes, std::size_t count)
    {
        for (; count >= 8; bytes += 8, count -= 8)
        {
            const std::uint64_t mixed = state_ ^ getNumber(bytes, 8);
            state_ = 0;
            for (std::size_t k = 0; k < 8; ++k)
                state_ ^= tables[7 - k][(mixed >> (8 * k)) & 0xFF];
        }
        for (; count > 0; ++bytes, --count)
            state_ = tables[0][(state_ ^ *bytes) & 0xFF] ^ (state_ >> 8);
    }

    /// The same for so many zero bytes, in steps that double: time grows with the logarithm of `count`.
    void addZeros(std::uint64_t count)
    {
        // Appending zeros is linear: column i is what they make of bit i.
        std::array<std::uint64_t, 64> columns{};
        for (std::size_t i = 0; i < 64; ++i)
        {
            const std::uint64_t bit = std::uint64_t{1} << i;
            columns[i] = tables[0][bit & 0xFF] ^ (bit >> 8);
        }
        for (; count > 0; count /= 2)
        {
            if (count % 2 == 1)
                state_ = product(columns, state_);
            const std::array<std::uint64_t, 64> half = columns;
            for (std::uint64_t& column : columns)
                column = product(half, column);
        }
    }

    std::uint64_t value() const { return ~state_; }

private:
    static std::uint64_t product(const std::array<std::uint64_t, 64>& columns, std::uint64_t bits)
    {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; bits != 0; ++i, bits >>= 1)
            if (bits & 1)
                sum ^= columns[i];
        return sum;
    }

    using Tables = std::array<std::array<std::uint64_t, 256>, 8>;

    static constexpr Tables makeTables()
    {
        Tables made{};
        for (std::size_t byte = 0; byte < 256; ++byte)
        {
            std::uint64_t remainder = byte;
            for (int bit = 0; bit < 8; ++bit)
                remainder = remainder & 1 ? remainder >> 1 ^ 0xC96C5795D7870F42 : remainder >> 1;
            made[0][byte] = remainder;
        }
        for (std::size_t k = 1; k < 8; ++k)
            for (std::size_t byte = 0; byte < 256; ++byte)
                made[k][byte] = made[k - 1][byte] >> 8 ^ made[0][made[k - 1][byte] & 0xFF];
        return made;
    }

    static const Tables tables;

    std::uint64_t state_ = ~std::uint64_t{0};
};

constexpr Checksum::Tables Checksum::tables = Checksum::makeTables();

std::wstring shown(const fs::path& path)
{
#if defined(_WIN32)
    return path.native();
#else
    return tkUtf8::readable(path.native());
#endif
}

[[noreturn]] void fail(const fs::path& path, const std::wstring& cause)
{
    throw tkArchive::Errors(L"The file \"" + shown(path) + L"\" " + cause);
}

[[noreturn]] void fail(const fs::path& path, const std::wstring& cause, const std::error_code& error)
{
    fail(path, cause + L": " + tkUtf8::readable(error.message()));
}

constexpr wchar_t cannotBeRead[] = L"cannot be read";
constexpr wchar_t cannotBeWritten[] = L"cannot be written";

#if defined(_WIN32)
/// The path as the system takes it: one of MAX_PATH characters and more must be absolute and have a prefix.
fs::path systemPath(const fs::path& path)
{
    constexpr DWORD longest = 32767;
    std::wstring full(longest + 1, L'\0');
    const DWORD size = GetFullPathNameW(path.c_str(), longest + 1, full.data(), nullptr);
    if (size < MAX_PATH || size > longest)
        return path;
    full.resize(size);
    if (full.substr(0, 4) == LR"(\\?\)")
        return full;
    return full[0] == L'\\' ? LR"(\\?\UNC)" + full.substr(1) : LR"(\\?\)" + full;
}
#else
const fs::path& systemPath(const fs::path& path)
{
    return path;
}
#endif

/// An open file of the operating system; error() is that of the latest operation. Paths are systemPath()s.
class File
{
public:
    File() = default;
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::error_code& error() const { return error_; }

    /// Opens a file for reading.
    bool open(const fs::path& path);
    /// Creates a file that must not exist yet; `isPrivate`: only this user may read it.
    bool create(const fs::path& path, bool isPrivate);
    /// Size in bytes; 0 and an error if it cannot be found.
    std::uint64_t size();
    /// Up to `count` bytes; fewer at the end of the file only, or with an error.
    std::size_t read(unsigned char* bytes, std::size_t count);
    bool write(const unsigned char* bytes, std::size_t count);
    bool seek(std::uint64_t position);
    /// How many bytes from the current position on, `count` at most, are known to be zeros that take no space on the
    /// disk. The position is after them then.
    std::uint64_t skipHole(std::uint64_t count);
    /// Gives the file the permissions of `other` and, if it can, the owner. Fails if `other` may not be written.
    bool takePermissions(const fs::path& other);
    /// Waits until everything written is on the disk.
    bool flush();
    void close();

    /// Puts the file `from` in the place of `to`, at one stroke and so that it outlasts a crash.
    static std::error_code replace(const fs::path& from, const fs::path& to);
    static void remove(const fs::path& path);

private:
    bool check_(bool succeeded);
    bool failWriting_(); // for a system that takes nothing and names no error

#if defined(_WIN32)
    HANDLE handle_ = INVALID_HANDLE_VALUE;
#else
    int descriptor_ = -1;
#endif
    std::error_code error_;
};

#if defined(_WIN32)

std::error_code latestError()
{
    return std::error_code(static_cast<int>(GetLastError()), std::system_category());
}

bool File::open(const fs::path& path)
{
    handle_ = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                          FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    return check_(handle_ != INVALID_HANDLE_VALUE);
}

bool File::create(const fs::path& path, bool)
{
    handle_ =
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    return check_(handle_ != INVALID_HANDLE_VALUE);
}

std::uint64_t File::size()
{
    LARGE_INTEGER size;
    return check_(GetFileSizeEx(handle_, &size) != 0) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::size_t File::read(unsigned char* bytes, std::size_t count)
{
    std::size_t done = 0;
    while (done < count)
    {
        DWORD got = 0;
        const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(count - done, 1 << 30));
        if (!check_(ReadFile(handle_, bytes + done, wanted, &got, nullptr) != 0) || got == 0)
            break;
        done += got;
    }
    return done;
}

bool File::write(const unsigned char* bytes, std::size_t count)
{
    for (std::size_t done = 0; done < count;)
    {
        DWORD put = 0;
        const DWORD wanted = static_cast<DWORD>(std::min<std::size_t>(count - done, 1 << 30));
        if (!check_(WriteFile(handle_, bytes + done, wanted, &put, nullptr) != 0))
            return false;
        if (put == 0)
            return failWriting_();
        done += put;
    }
    return true;
}

bool File::seek(std::uint64_t position)
{
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(position);
    return check_(SetFilePointerEx(handle_, distance, nullptr, FILE_BEGIN) != 0);
}

std::uint64_t File::skipHole(std::uint64_t)
{
    return 0;
}

bool File::takePermissions(const fs::path&)
{
    return true; // a new file has those that its directory hands down
}

bool File::flush()
{
    return check_(FlushFileBuffers(handle_) != 0);
}

void File::close()
{
    if (handle_ != INVALID_HANDLE_VALUE)
        CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
}

std::error_code File::replace(const fs::path& from, const fs::path& to)
{
    const BOOL moved = MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    return moved ? std::error_code() : latestError();
}

void File::remove(const fs::path& path)
{
    DeleteFileW(path.c_str());
}

#else

std::error_code latestError()
{
    return std::error_code(errno, std::generic_category());
}

bool File::open(const fs::path& path)
{
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return check_(descriptor_ >= 0);
}

bool File::create(const fs::path& path, bool isPrivate)
{
    descriptor_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, isPrivate ? 0600 : 0666);
    return check_(descriptor_ >= 0);
}

std::uint64_t File::size()
{
    struct stat status = {};
    return check_(::fstat(descriptor_, &status) == 0) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::size_t File::read(unsigned char* bytes, std::size_t count)
{
    std::size_t done = 0;
    while (done < count)
    {
        const ssize_t got = ::read(descriptor_, bytes + done, count - done);
        if (got == 0 || (got < 0 && !check_(errno == EINTR)))
            break;
        done += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    return done;
}

bool File::write(const unsigned char* bytes, std::size_t count)
{
    for (std::size_t done = 0; done < count;)
    {
        const ssize_t put = ::write(descriptor_, bytes + done, count - done);
        if (put == 0)
            return failWriting_();
        if (put < 0 && !check_(errno == EINTR))
            return false;
        done += put > 0 ? static_cast<std::size_t>(put) : 0;
    }
    return true;
}

bool File::seek(std::uint64_t position)
{
    return check_(::lseek(descriptor_, static_cast<off_t>(position), SEEK_SET) >= 0);
}

std::uint64_t File::skipHole(std::uint64_t count)
{
#if defined(SEEK_DATA)
    const off_t here = ::lseek(descriptor_, 0, SEEK_CUR);
    off_t data = here < 0 ? here : ::lseek(descriptor_, here, SEEK_DATA);
    if (here >= 0 && data < 0 && errno == ENXIO) // nothing but the hole up to the end of the file
        data = ::lseek(descriptor_, 0, SEEK_END);
    if (here >= 0 && data >= here)
    {
        const std::uint64_t hole = std::min<std::uint64_t>(static_cast<std::uint64_t>(data - here), count);
        return seek(static_cast<std::uint64_t>(here) + hole) ? hole : 0;
    }
    if (here >= 0)
        seek(static_cast<std::uint64_t>(here)); // a file system that knows nothing of holes
#else
    static_cast<void>(count);
#endif
    return 0;
}

bool File::takePermissions(const fs::path& other)
{
    struct stat status = {};
    if (!check_(::stat(other.c_str(), &status) == 0) ||
        !check_(::faccessat(AT_FDCWD, other.c_str(), W_OK, AT_EACCESS) == 0))
        return false;
    // Only a privileged process can give files away. For any other the new file is its own, and then does not
    // run in the name of its owner or group.
    const bool given = ::fchown(descriptor_, status.st_uid, status.st_gid) == 0;
    return check_(::fchmod(descriptor_, status.st_mode & (given ? 07777 : 0777)) == 0);
}

bool File::flush()
{
    return check_(::fsync(descriptor_) == 0);
}

void File::close()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
}

std::error_code File::replace(const fs::path& from, const fs::path& to)
{
    const fs::path directory = to.has_parent_path() ? to.parent_path() : fs::path(".");
    if (::rename(from.c_str(), to.c_str()) != 0)
        return latestError();
    // From here nothing may fail, for the replacement has happened. Until the directory is on the disk as well, a
    // crash may bring the old file back.
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        ::fsync(descriptor);
        ::close(descriptor);
    }
    return std::error_code();
}

void File::remove(const fs::path& path)
{
    ::unlink(path.c_str());
}

#endif

bool File::check_(bool succeeded)
{
    error_ = succeeded ? std::error_code() : latestError();
    return succeeded;
}

bool File::failWriting_()
{
    error_ = std::make_error_code(std::errc::io_error);
    return false;
}

/// Writes what an archive stores to a file and sums it up.
class Sink : public std::streambuf
{
public:
    Sink(File& file, const Checksum& checksum) : file_(file), checksum_(checksum)
    {
        setp(buffer_.data(), buffer_.data() + buffer_.size());
    }

    /// Writes what is left in the buffer.
    bool finish()
    {
        const auto count = static_cast<std::size_t>(pptr() - pbase());
        const auto* const bytes = reinterpret_cast<const unsigned char*>(pbase());
        setp(buffer_.data(), buffer_.data() + buffer_.size());
        length_ += count;
        checksum_.add(bytes, count);
        return file_.write(bytes, count);
    }

    std::uint64_t length() const { return length_; }
    std::uint64_t checksum() const { return checksum_.value(); }

protected:
    int_type overflow(int_type byte) override
    {
        if (!finish())
            return traits_type::eof();
        if (!traits_type::eq_int_type(byte, traits_type::eof()))
            sputc(traits_type::to_char_type(byte));
        return traits_type::not_eof(byte);
    }

private:
    File& file_;
    std::vector<char> buffer_ = std::vector<char>(bufferSize);
    std::uint64_t length_ = 0;
    Checksum checksum_;
};

/// Gives an archive `length` bytes of a file.
class Source : public std::streambuf
{
public:
    Source(File& file, std::uint64_t length) : file_(file), left_(length) {}

protected:
    int_type underflow() override
    {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer_.size(), left_));
        const std::size_t count = file_.read(reinterpret_cast<unsigned char*>(buffer_.data()), wanted);
        left_ -= count;
        setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
        return count > 0 ? traits_type::to_int_type(*gptr()) : traits_type::eof();
    }

private:
    File& file_;
    std::uint64_t left_;
    std::vector<char> buffer_ = std::vector<char>(bufferSize);
};

/// Whether there is a regular file; throws if there is something else, or if the system cannot tell: `purpose` is then
/// what cannot be done with it.
bool isThere(const fs::path& path, const wchar_t* purpose)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::none)
        fail(path, purpose, error);
    if (fs::is_directory(status))
        fail(path, L"is a directory");
    if (fs::exists(status) && !fs::is_regular_file(status))
        fail(path, L"is not a regular file");
    return fs::exists(status);
}

/// Where `path` leads to if it is a symbolic link, else `path`.
fs::path finalTarget(const fs::path& path)
{
    fs::path target = path;
    for (int links = 0;; ++links)
    {
        std::error_code error;
        const fs::file_status status = fs::symlink_status(target, error);
        if (status.type() != fs::file_type::none && !fs::is_symlink(status))
            return target;
        if (links == 40)
            error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
        else if (fs::is_symlink(status))
            target = target.parent_path() / fs::read_symlink(target, error);
        if (error)
            fail(path, cannotBeWritten, error);
    }
}

/// A file beside the target that takes its place, or goes away again.
class Replacement
{
public:
    explicit Replacement(const fs::path& target) : target_(target)
    {
        const bool replaces = isThere(target, cannotBeWritten);
        std::random_device random;
        do
        {
            const std::uint64_t number = std::uint64_t{random()} << 32 | random();
            temporary_ = systemPath(target.parent_path() / (".tk-" + std::to_string(number) + ".tmp"));
        } while (!file_.create(temporary_, replaces) && file_.error() == std::errc::file_exists);
        created_ = !file_.error();
        if (!created_ || (replaces && !file_.takePermissions(target)))
        {
            discard_();
            failWriting(file_.error());
        }
    }

    ~Replacement() { discard_(); }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    File& file() { return file_; }

    /// Puts the file, which is complete and on the disk, in its place.
    void commit()
    {
        file_.close();
        const std::error_code error = File::replace(temporary_, systemPath(target_));
        if (error)
            failWriting(error);
        created_ = false;
    }

    [[noreturn]] void failWriting(const std::error_code& error) const { fail(target_, cannotBeWritten, error); }

private:
    void discard_()
    {
        file_.close();
        if (created_)
            File::remove(temporary_);
        created_ = false;
    }

    fs::path target_;
    fs::path temporary_;
    File file_;
    bool created_ = false;
};

/// A file that is being loaded: what stands in front of the archive, and the archive's place.
struct Head
{
    std::uint64_t length = 0; // of the archive
    std::string name;         // of the class; empty: none is told
    std::uint64_t start = 0;  // of the archive
};

/// Writes what stands in front of the archive, as far as it is known before: its length is not.
bool writeHead(File& file, const std::string& name)
{
    unsigned char head[headSize] = {};
    std::memcpy(head, mark, sizeof mark);
    putNumber(head + sizeof mark, versionSize, name.empty() ? namelessFormat : namedFormat);
    const unsigned char nameSize = static_cast<unsigned char>(name.size());
    return file.write(head, headSize) &&
           (name.empty() || (file.write(&nameSize, 1) && file.write(bytesOf(name), nameSize)));
}

/// Writes the checksum after the archive, and the length into the head.
bool writeEnd(File& file, const Sink& sink)
{
    unsigned char length[lengthSize];
    unsigned char checksum[checksumSize];
    putNumber(length, lengthSize, sink.length());
    putNumber(checksum, checksumSize, sink.checksum());
    return file.write(checksum, checksumSize) && file.seek(headSize - lengthSize) && file.write(length, lengthSize);
}

/// Reads a file and names it in its errors.
class Reader
{
public:
    explicit Reader(const fs::path& path) : path_(path)
    {
        isThere(path, cannotBeRead);
        if (!file_.open(systemPath(path)))
            fail(path, cannotBeRead, file_.error());
    }

    File& file() { return file_; }

    std::size_t read(unsigned char* bytes, std::size_t count)
    {
        const std::size_t got = file_.read(bytes, count);
        requireNoError();
        return got;
    }

    void requireNoError() const
    {
        if (file_.error())
            fail(path_, cannotBeRead, file_.error());
    }

    /// Throws if this is not the head of a file of this very size.
    Head readHead();
    /// Throws if the archive is not what was saved. *Requires* that the head was just read.
    void checkArchive(const Head& head);

private:
    std::uint64_t readLength_(std::uint64_t& version);
    std::string readName_();

    const fs::path& path_;
    File file_;
};

Head Reader::readHead()
{
    const std::uint64_t size = file_.size();
    requireNoError();
    Head head;
    std::uint64_t version = 0;
    head.length = readLength_(version);
    head.start = headSize;
    if (version == namedFormat)
    {
        head.name = readName_();
        head.start += 1 + head.name.size();
    }
    if (size < head.start + checksumSize || size - head.start - checksumSize < head.length)
        fail(path_, L"is truncated");
    if (size - head.start - checksumSize > head.length)
        fail(path_, L"is damaged: it goes on beyond its end");
    return head;
}

/// The first bytes, which both formats have: gives the length of the archive.
std::uint64_t Reader::readLength_(std::uint64_t& version)
{
    unsigned char head[headSize];
    const std::size_t headRead = read(head, headSize);
    if (headRead < markNameSize || std::memcmp(head, mark, markNameSize) != 0)
        fail(path_, L"is not an archive");
    if (std::memcmp(head, mark, std::min(headRead, sizeof mark)) != 0)
        fail(path_, L"is damaged, as by a transfer in text mode");
    if (headRead < headSize)
        fail(path_, L"is truncated");
    version = getNumber(head + sizeof mark, versionSize);
    if (version != namelessFormat && version != namedFormat)
        fail(path_, L"has the format version " + std::to_wstring(version) + L"; only " +
                        std::to_wstring(namelessFormat) + L" and " + std::to_wstring(namedFormat) + L" are known");
    return getNumber(head + headSize - lengthSize, lengthSize);
}

std::string Reader::readName_()
{
    unsigned char nameSize = 0;
    unsigned char name[largestName];
    if (read(&nameSize, 1) < 1 || read(name, nameSize) < nameSize)
        fail(path_, L"is truncated");
    if (nameSize == 0)
        fail(path_, L"is damaged: it names no class");
    return std::string(name, name + nameSize);
}

void Reader::checkArchive(const Head& head)
{
    Checksum checksum;
    checksum.add(bytesOf(head.name), head.name.size());
    std::vector<unsigned char> buffer(bufferSize);
    for (std::uint64_t left = head.length; left > 0;)
    {
        // A file may say that it is longer than any disk: what takes no space must take no time either.
        const std::uint64_t zeros = file_.skipHole(left);
        checksum.addZeros(zeros);
        left -= zeros;
        const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
        const std::size_t got = read(buffer.data(), wanted);
        if (got == 0 && wanted > 0)
            fail(path_, L"is truncated");
        checksum.add(buffer.data(), got);
        left -= got;
    }
    unsigned char stored[checksumSize] = {};
    read(stored, checksumSize);
    if (getNumber(stored, checksumSize) != checksum.value())
        fail(path_, L"is damaged: its checksum does not match");
}
} // namespace

void tkArchiveFile::save_(const fs::path& path, long nestingLimit, const Type_& type, const Exchange_& exchange)
{
    Replacement replacement(finalTarget(path));
    File& file = replacement.file();

    const std::string name = type.isClass ? nameIn(type.info) : std::string();
    if (!writeHead(file, name))
        replacement.failWriting(file.error());

    Checksum checksumOfName;
    checksumOfName.add(bytesOf(name), name.size());
    Sink sink(file, checksumOfName);
    try
    {
        std::ostream stream(&sink);
        tkArchive archive(stream);
        archive.nestingLimit(nestingLimit);
        exchange(archive);
        archive.exchangeBytes(nullptr, 0); // fails if a record has swallowed the error of one within it
    }
    catch (const tkArchive::Errors& thrown)
    {
        if (file.error())
            replacement.failWriting(file.error());
        fail(path, L"cannot be written: " + thrown.message());
    }

    if (!sink.finish() || !writeEnd(file, sink) || !file.flush())
        replacement.failWriting(file.error());
    replacement.commit();
}

void tkArchiveFile::load_(const fs::path& path, long nestingLimit, const Type_& type, const Exchange_& exchange)
{
    Reader reader(path);
    const Head head = reader.readHead();
    reader.checkArchive(head);
    if (!head.name.empty() && (!type.isClass || head.name != nameIn(type.info)))
        fail(path, L"holds a " + tkUtf8::readable(head.name) + L", not a " +
                       tkUtf8::readable(tkPersistent::typeName(type.info)));

    reader.file().seek(head.start);
    reader.requireNoError();
    Source source(reader.file(), head.length);
    std::uint64_t taken = 0;
    try
    {
        std::istream stream(&source);
        tkArchive archive(stream);
        archive.nestingLimit(nestingLimit);
        exchange(archive);
        archive.exchangeBytes(nullptr, 0); // fails if a record has swallowed the error of one within it
        taken = archive.position();
    }
    catch (const tkArchive::Errors& thrown)
    {
        reader.requireNoError();
        fail(path, L"cannot be loaded: " + thrown.message());
    }
    if (taken != head.length)
        fail(path, L"cannot be loaded: the object takes " + std::to_wstring(taken) + L" of " +
                       std::to_wstring(head.length) + L" bytes");
}
