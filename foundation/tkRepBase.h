#ifndef FOUNDATION_TKREPBASE_H
#define FOUNDATION_TKREPBASE_H

#include "foundation/tkExport.h"

#include <atomic>

/// Base of objects that live on the heap and are shared through tkPtrHandle or tkPtrHandle_const.
///
/// It carries the number of handles that hold the object; the last handle to go deletes it. The
/// count belongs to the object and not to its value: copies start at 0, assignment leaves it alone.
/// The count may be changed from any thread; everything else is the derived class's matter.
class TK_EXPORT tkRepBase
{
public:
    /// Without holders: an object that no handle ever takes, such as one on the stack, is destroyed as any other.
    tkRepBase() noexcept = default;
    /// Copies start without holders; assignment keeps those of this object.
    tkRepBase(const tkRepBase&) noexcept {}
    tkRepBase& operator=(const tkRepBase&) noexcept { return *this; }
    /// Does not look at the count. To destroy an object that handles hold leaves them dangling.
    virtual ~tkRepBase() = 0;

    /// Number of handles that hold the object; exact only while no other thread changes it.
    long referenceCount() const noexcept { return count_.load(std::memory_order_acquire); }

    /// Counts one more holder, who removes the reference some day. Handles do both; hosts seldom call these. One
    /// atomic addition, which orders no other memory access.
    void addReference() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

    /// The same for a plain pointer, which may be the first to be held. *Requires* an object from `new`: where the
    /// system tells the bounds of the thread's stack (Linux), an assertion fails for the first reference to an object
    /// there, which then has none.
    void addFirstReference() const
    {
        if (referenceCount() == 0)
            requireNotOnStack_(this);
        addReference();
    }

    /// Counts one holder less; deletes the object if it was the last. *Requires* an earlier addReference(), and an
    /// object from `new`. What other holders did to the object before they let go happens before its destruction.
    void removeReference() const noexcept
    {
        if (dropReference())
            delete this;
    }

    /// The same without deleting; whether it was the last, so that the object is the caller's to delete.
    bool dropReference() const noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

private:
    static void requireNotOnStack_(const void* object);

    mutable std::atomic<long> count_{0};
};

inline tkRepBase::~tkRepBase() = default;

#endif
