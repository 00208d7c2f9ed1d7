#ifndef TESTS_SUPPORT_TKALLOCATIONS_H
#define TESTS_SUPPORT_TKALLOCATIONS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <new>

/// Watches this thread's use of operator new while it lives, and lets only `allowed` calls succeed: every later one
/// throws std::bad_alloc. One at a time on each thread.
class tkAllocations
{
public:
    explicit tkAllocations(std::size_t allowed = std::numeric_limits<std::size_t>::max());
    ~tkAllocations();
    tkAllocations(const tkAllocations&) = delete;
    tkAllocations& operator=(const tkAllocations&) = delete;

    /// Calls so far, failed ones included.
    std::size_t count() const;
    /// The most bytes that one call asked for.
    std::size_t largest() const;
};

/// Lets `change(object)` run out of memory at its first allocation, at its second and so on, each time on a fresh
/// copy of `before`, and requires that what throws changes nothing. Requires that it allocates at all.
template <class T, class Change>
void expectUnchangedWithoutMemory(const T& before, const Change& change)
{
    for (std::size_t allowed = 0;; ++allowed)
    {
        T object(before);
        bool failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                change(object);
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        if (!failed)
        {
            EXPECT_GT(allowed, 0u) << "nothing was allocated";
            return;
        }
        EXPECT_TRUE(object == before) << "after " << allowed << " allocations";
    }
}

#endif
