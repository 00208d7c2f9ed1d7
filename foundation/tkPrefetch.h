#ifndef FOUNDATION_TKPREFETCH_H
#define FOUNDATION_TKPREFETCH_H

/// Lets the processor bring what stands at `address` into its nearest cache while it computes something else. Any
/// address will do: nothing is read.
inline void tkPrefetch(const void* address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
#else
    static_cast<void>(address);
#endif
}

#endif
