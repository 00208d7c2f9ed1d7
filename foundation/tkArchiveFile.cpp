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

// The frame: mark, format version (4 bytes), length of the archive (8 bytes), archive, checksum (8 bytes).
// Every bit before the archive is compared with what it must be, so the checksum covers the archive alone.

/// A byte above ASCII, a name, and the line ends that a transfer in text mode would change.
constexpr unsigned char mark[8] = {0x89, 'T', 'K', 'A', '\r', '\n', 0x1A, '\n'};
constexpr std::size_t markNameSize = 4;
constexpr std::uint64_t formatVersion = 1;
constexpr std::size_t versionSize = 4;
constexpr std::size_t lengthSize = 8;
constexpr std::size_t headSize = sizeof mark + versionSize + lengthSize;
constexpr std::size_t checksumSize = 8;

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

    std::uint64_t value() const { return ~state_; }

private:
    using Tables = std::array<std::array<std::uint64_t, 256>, 8>;

    static constexpr Tables makeTables()
    {
        Tables made{};
        for (std::uint64_t byte = 0; byte < 256; ++byte)
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

/// An open file of the operating system; error() is that of the latest operation.
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
    /// Gives the file the permissions of `other` and, if it can, the owner. Fails if `other` may not be written.
    bool takePermissions(const fs::path& other);
    /// Waits until everything written is on the disk.
    bool flush();
    void close();

    /// Puts the file `from` in the place of `to`, at one stroke and so that it outlasts a crash.
    static std::error_code replace(const fs::path& from, const fs::path& to);

private:
    bool check_(bool succeeded);

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
    if (::rename(from.c_str(), to.c_str()) != 0)
        return latestError();
    // Until the directory is on the disk as well, a crash may bring the old file back. No directory that
    // cannot be flushed makes the replacement a failure, for it has happened.
    const fs::path directory = to.has_parent_path() ? to.parent_path() : fs::path(".");
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        ::fsync(descriptor);
        ::close(descriptor);
    }
    return std::error_code();
}

#endif

bool File::check_(bool succeeded)
{
    error_ = succeeded ? std::error_code() : latestError();
    return succeeded;
}

/// Writes what an archive stores to a file and sums it up.
class Sink : public std::streambuf
{
public:
    explicit Sink(File& file) : file_(file) { setp(buffer_.data(), buffer_.data() + buffer_.size()); }

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

/// Whether there is a regular file; throws if there is something else.
bool isThere(const fs::path& path)
{
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
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
    std::error_code error;
    for (int links = 0; fs::is_symlink(fs::symlink_status(target, error)); ++links)
    {
        if (links == 40)
            error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
        else
            target = target.parent_path() / fs::read_symlink(target, error);
        if (error)
            fail(path, L"cannot be written", error);
    }
    return target;
}

/// A file beside the target that takes its place, or goes away again.
class Replacement
{
public:
    explicit Replacement(const fs::path& target) : target_(target)
    {
        const bool replaces = isThere(target);
        std::random_device random;
        do
        {
            const std::uint64_t number = std::uint64_t{random()} << 32 | random();
            temporary_ = target.parent_path() / (".tk-" + std::to_string(number) + ".tmp");
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
        const std::error_code error = File::replace(temporary_, target_);
        if (error)
            failWriting(error);
        created_ = false;
    }

    [[noreturn]] void failWriting(const std::error_code& error) const { fail(target_, L"cannot be written", error); }

private:
    void discard_()
    {
        file_.close();
        std::error_code ignored;
        if (created_)
            fs::remove(temporary_, ignored);
        created_ = false;
    }

    fs::path target_;
    fs::path temporary_;
    File file_;
    bool created_ = false;
};
} // namespace

void tkArchiveFile::save_(const fs::path& path, long nestingLimit, const Exchange_& exchange)
{
    Replacement replacement(finalTarget(path));
    File& file = replacement.file();

    unsigned char head[headSize] = {};
    std::memcpy(head, mark, sizeof mark);
    putNumber(head + sizeof mark, versionSize, formatVersion);
    if (!file.write(head, headSize))
        replacement.failWriting(file.error());

    Sink sink(file);
    try
    {
        std::ostream stream(&sink);
        tkArchive archive(stream);
        archive.nestingLimit(nestingLimit);
        exchange(archive);
    }
    catch (const tkArchive::Errors& thrown)
    {
        if (file.error())
            replacement.failWriting(file.error());
        fail(path, L"cannot be written: " + thrown.message());
    }

    unsigned char length[lengthSize];
    unsigned char checksum[checksumSize];
    const bool written = sink.finish();
    putNumber(length, lengthSize, sink.length());
    putNumber(checksum, checksumSize, sink.checksum());
    if (!written || !file.write(checksum, checksumSize) || !file.seek(headSize - lengthSize) ||
        !file.write(length, lengthSize) || !file.flush())
        replacement.failWriting(file.error());
    replacement.commit();
}

void tkArchiveFile::load_(const fs::path& path, long nestingLimit, const Exchange_& exchange)
{
    File file;
    const auto read = [&](unsigned char* bytes, std::size_t count)
    {
        const std::size_t got = file.read(bytes, count);
        if (file.error())
            fail(path, L"cannot be read", file.error());
        return got;
    };

    isThere(path);
    std::uint64_t size = 0;
    if (!file.open(path) || (size = file.size(), file.error()))
        fail(path, L"cannot be read", file.error());

    unsigned char head[headSize];
    const std::size_t headRead = read(head, headSize);
    if (headRead < markNameSize || std::memcmp(head, mark, markNameSize) != 0)
        fail(path, L"is not an archive");
    if (std::memcmp(head, mark, std::min(headRead, sizeof mark)) != 0)
        fail(path, L"is damaged, as by a transfer in text mode");
    if (headRead < headSize)
        fail(path, L"is truncated");
    const std::uint64_t version = getNumber(head + sizeof mark, versionSize);
    if (version != formatVersion)
        fail(path, L"has the format version " + std::to_wstring(version) + L"; only " + std::to_wstring(formatVersion) +
                       L" is known");
    const std::uint64_t length = getNumber(head + headSize - lengthSize, lengthSize);
    if (size < headSize + checksumSize || size - headSize - checksumSize < length)
        fail(path, L"is truncated");
    if (size - headSize - checksumSize > length)
        fail(path, L"is damaged: it goes on beyond its end");

    Checksum checksum;
    std::vector<unsigned char> buffer(bufferSize);
    for (std::uint64_t left = length; left > 0;)
    {
        const std::size_t got =
            read(buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size())));
        if (got == 0)
            fail(path, L"is truncated");
        checksum.add(buffer.data(), got);
        left -= got;
    }
    unsigned char stored[checksumSize] = {};
    read(stored, checksumSize);
    if (getNumber(stored, checksumSize) != checksum.value())
        fail(path, L"is damaged: its checksum does not match");

    if (!file.seek(headSize))
        fail(path, L"cannot be read", file.error());
    Source source(file, length);
    std::uint64_t taken = 0;
    try
    {
        std::istream stream(&source);
        tkArchive archive(stream);
        archive.nestingLimit(nestingLimit);
        exchange(archive);
        taken = archive.position();
    }
    catch (const tkArchive::Errors& thrown)
    {
        if (file.error())
            fail(path, L"cannot be read", file.error());
        fail(path, L"cannot be loaded: " + thrown.message());
    }
    if (taken != length)
        fail(path, L"cannot be loaded: the object takes " + std::to_wstring(taken) + L" of " + std::to_wstring(length) +
                       L" bytes");
}
