#include "foundation/tkRepBase.h"

#include "foundation/tkAssert.h"

#include <cstdint>

#if defined(__linux__)
#include <pthread.h>
#endif

namespace
{
/// The addresses of this thread's stack; none where the system does not tell.
struct Stack
{
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;

    Stack()
    {
#if defined(__linux__)
        pthread_attr_t attributes;
        if (::pthread_getattr_np(::pthread_self(), &attributes) != 0)
            return;
        void* address = nullptr;
        std::size_t size = 0;
        if (::pthread_attr_getstack(&attributes, &address, &size) == 0)
        {
            start = reinterpret_cast<std::uintptr_t>(address);
            end = start + size;
        }
        ::pthread_attr_destroy(&attributes);
#endif
    }
};
} // namespace

void tkRepBase::requireNotOnStack_(const void* object)
{
    // What lies between this function's variables and the end of the stack belongs to its callers. Code that runs on a
    // stack of its own making, as coroutines do, is outside of the thread's: nothing is known there.
    static thread_local const Stack stack;
    const char variable = 0;
    const auto here = reinterpret_cast<std::uintptr_t>(&variable);
    const auto address = reinterpret_cast<std::uintptr_t>(object);
    TK_ASSERT(!(here >= stack.start && here < stack.end && address > here && address < stack.end));
}
