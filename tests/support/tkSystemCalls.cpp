#include "tkSystemCalls.h"

#if defined(__linux__)

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
std::atomic<bool> statFails{false};
std::atomic<bool> writeWritesNothing{false};
std::atomic<int> failures{0};
} // namespace

tkSystemCalls::tkSystemCalls(Failure failure)
{
    failures = 0;
    (failure == eStatFails ? statFails : writeWritesNothing) = true;
}

tkSystemCalls::~tkSystemCalls()
{
    statFails = false;
    writeWritesNothing = false;
}

int tkSystemCalls::count()
{
    return failures;
}

// The program's definitions come before those of the C library, also for the libraries that the program uses.

extern "C" int stat(const char* path, struct stat* status) noexcept
{
    if (statFails)
    {
        ++failures;
        errno = EIO;
        return -1;
    }
    return ::fstatat(AT_FDCWD, path, status, 0);
}

extern "C" int lstat(const char* path, struct stat* status) noexcept
{
    if (statFails)
    {
        ++failures;
        errno = EIO;
        return -1;
    }
    return ::fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

#if !defined(__LP64__)
extern "C" int stat64(const char* path, struct stat64* status) noexcept
{
    if (statFails)
    {
        ++failures;
        errno = EIO;
        return -1;
    }
    return ::fstatat64(AT_FDCWD, path, status, 0);
}

extern "C" int lstat64(const char* path, struct stat64* status) noexcept
{
    if (statFails)
    {
        ++failures;
        errno = EIO;
        return -1;
    }
    return ::fstatat64(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
#endif

extern "C" ssize_t write(int descriptor, const void* bytes, size_t count)
{
    if (writeWritesNothing && count > 0 && descriptor > 2)
    {
        if (++failures > 1000) // who tries for ever shall not hang the tests
        {
            errno = ENOSPC;
            return -1;
        }
        return 0;
    }
    return ::syscall(SYS_write, descriptor, bytes, count);
}

#endif
