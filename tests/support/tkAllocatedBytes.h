#ifndef TESTS_SUPPORT_TKALLOCATEDBYTES_H
#define TESTS_SUPPORT_TKALLOCATEDBYTES_H

#include <cstddef>
#include <cstdlib>

#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
#include <malloc.h>
#endif

/// Bytes that the program has allocated; 0 where the platform does not tell.
inline std::size_t tkAllocatedBytes()
{
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#else
    return 0;
#endif
}

#endif
