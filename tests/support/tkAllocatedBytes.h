#ifndef TESTS_SUPPORT_TKALLOCATEDBYTES_H
#define TESTS_SUPPORT_TKALLOCATEDBYTES_H

#include <cstddef>
#include <cstdlib>

#if defined(__GLIBC__)
#if __GLIBC_PREREQ(2, 33)
#include <malloc.h>
#define TK_HAS_MALLINFO2 1
#endif
#endif

/// Bytes that the program has allocated; 0 where the platform does not tell.
inline std::size_t tkAllocatedBytes()
{
#if defined(TK_HAS_MALLINFO2)
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#else
    return 0;
#endif
}

#endif
