#include "tkAllocations.h"

#include <algorithm>
#include <cstdlib>

namespace
{
thread_local std::size_t calls = 0;
thread_local std::size_t largestCall = 0;
thread_local std::size_t allowedCalls = std::numeric_limits<std::size_t>::max();

void* allocate(std::size_t size) noexcept
{
    largestCall = std::max(largestCall, size);
    return calls++ < allowedCalls ? std::malloc(size > 0 ? size : 1) : nullptr;
}

void* allocateOrThrow(std::size_t size)
{
    void* const memory = allocate(size);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}
} // namespace

tkAllocations::tkAllocations(std::size_t allowed)
{
    calls = 0;
    largestCall = 0;
    allowedCalls = allowed;
}

tkAllocations::~tkAllocations()
{
    allowedCalls = std::numeric_limits<std::size_t>::max();
}

std::size_t tkAllocations::count() const
{
    return calls;
}

std::size_t tkAllocations::largest() const
{
    return largestCall;
}

// All forms but those for over-aligned types: a sanitizer replaces each form on its own, and its own ones must not
// meet these.
void* operator new(std::size_t size)
{
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size)
{
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}
void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
