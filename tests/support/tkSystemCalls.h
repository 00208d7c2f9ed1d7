#ifndef TESTS_SUPPORT_TKSYSTEMCALLS_H
#define TESTS_SUPPORT_TKSYSTEMCALLS_H

/// While it lives, some calls of the operating system fail, in the whole process. For POSIX; one at a time.
class tkSystemCalls
{
public:
    enum Failure
    {
        eStatFails,         // stat() and lstat() fail with EIO
        eWriteWritesNothing // write() to a file takes no byte and returns 0
    };

    explicit tkSystemCalls(Failure failure);
    ~tkSystemCalls();
    tkSystemCalls(const tkSystemCalls&) = delete;
    tkSystemCalls& operator=(const tkSystemCalls&) = delete;

    /// How many calls failed.
    static int count();
};

#endif
