#ifndef FOUNDATION_TKCHANGECOUNT_H
#define FOUNDATION_TKCHANGECOUNT_H

#include "foundation/tkRepBase.h"

#include <atomic>
#include <cstdint>

/// Number of changes of all the objects that take part in it.
///
/// Who keeps something computed from many shared objects lets them take part in one count and notes its number
/// before reading them: as long as the number is the same, no object has changed. Objects and observers hold the
/// count by reference; none of them knows the others.
class tkChangeCount : public tkRepBase
{
public:
    /// From any thread.
    std::uint64_t number() const noexcept { return number_.load(std::memory_order_relaxed); }
    void increment() noexcept { number_.fetch_add(1, std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> number_{0};
};

/// The field by which an object takes part in at most one tkChangeCount, from when it is first asked to until it dies.
///
/// Like the count of tkRepBase it belongs to the object and not to its value: a copy takes part in none, and to
/// assign to the object is a change of it. What else changes the object calls changed().
class tkChangeReport
{
public:
    tkChangeReport() noexcept = default;
    tkChangeReport(const tkChangeReport&) noexcept {}
    tkChangeReport& operator=(const tkChangeReport&) noexcept
    {
        changed();
        return *this;
    }
    ~tkChangeReport()
    {
        if (tkChangeCount* const own = count())
            own->removeReference();
    }

    void changed() noexcept
    {
        if (tkChangeCount* const own = count())
            own->increment();
    }

    /// The count that the object takes part in; null if none.
    tkChangeCount* count() const noexcept { return count_.load(std::memory_order_acquire); }

    /// Takes part in `count`, which a handle holds, unless it does in another one already; the one it takes part in
    /// then. Several threads may ask at once.
    tkChangeCount* join(tkChangeCount* count) const noexcept
    {
        count->addReference();
        tkChangeCount* own = nullptr;
        if (count_.compare_exchange_strong(own, count, std::memory_order_acq_rel))
            return count;
        count->dropReference();
        return own;
    }

private:
    mutable std::atomic<tkChangeCount*> count_{nullptr};
};

#endif
