#ifndef FOUNDATION_TKPTRHANDLE_H
#define FOUNDATION_TKPTRHANDLE_H

#include "foundation/tkException.h"
#include "foundation/tkRepBase.h"

#include <type_traits>
#include <utility>

/// What both kinds of handle do: holds one reference to a heap object derived from tkRepBase, or nothing.
///
/// `Object` is const-qualified in the constant kind. A handle is one word. Copying counts one more holder (an atomic
/// addition), moving counts nothing and leaves null, and the last handle to go deletes the object, on its own thread.
/// Only dereferencing throws. Two threads may use two handles to one object, but not one handle; what they may do with
/// the object is its class's matter. Objects that hold each other in a ring are never deleted.
///
///     tkPtrHandle<Item> item(new Item);     // one holder
///     tkPtrHandle_const<Item> reader(item); // two holders of one object
///     item->change();                       // reader sees the change
///     item = tkPtrHandle<Item>();           // one holder again
template <class Object>
class tkPtrHandleBase
{
public:
    /// A null handle.
    tkPtrHandleBase() noexcept = default;
    /// Takes a reference; null gives a null handle. *Requires* an object from `new`, which then belongs to its handles:
    /// an assertion fails for an object on the thread's stack.
    explicit tkPtrHandleBase(Object* object) : object_(object)
    {
        if (object_)
            object_->addFirstReference();
    }
    /// Holds what `other` holds.
    tkPtrHandleBase(const tkPtrHandleBase& other) noexcept : object_(other.object_) { hold_(); }
    /// Takes over what `other` holds, which is null then.
    tkPtrHandleBase(tkPtrHandleBase&& other) noexcept : object_(other.detach()) {}
    /// From a handle of either kind whose pointer converts: to a base class, or to const. Others do not compile.
    template <class Other, class = std::enable_if_t<std::is_convertible_v<Other*, Object*>>>
    tkPtrHandleBase(const tkPtrHandleBase<Other>& other) noexcept : object_(other.object_)
    {
        hold_();
    }
    /// The same, taking over.
    template <class Other, class = std::enable_if_t<std::is_convertible_v<Other*, Object*>>>
    tkPtrHandleBase(tkPtrHandleBase<Other>&& other) noexcept : object_(other.detach())
    {
    }
    /// Lets go of the object, and deletes it if no other handle holds it.
    ~tkPtrHandleBase()
    {
        if (object_)
            object_->removeReference();
    }

    /// The object. Throws tkBadPointer if there is none. A handle that is `const` gives the same access as one that is
    /// not: which object it holds is what cannot change.
    Object& operator*() const { return *checked_(); }
    Object* operator->() const { return checked_(); }

    /// The object, or null; the handle keeps its reference, without which the pointer may dangle.
    Object* get() const noexcept { return object_; }
    /// Whether there is no object, and whether there is one.
    bool isNull() const noexcept { return object_ == nullptr; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    /// Gives the reference up to the caller, who must removeReference() some day; the handle is null.
    Object* detach() noexcept { return std::exchange(object_, nullptr); }
    /// Exchanges the objects; no reference is counted.
    void swap(tkPtrHandleBase& other) noexcept { std::swap(object_, other.object_); }

protected:
    /// Copies or moves, as the argument did. The object that was held is let go last, when this handle has the new one:
    /// assigning to a handle from itself, or from one within the object that it lets go, is safe.
    tkPtrHandleBase& operator=(tkPtrHandleBase other) noexcept
    {
        swap(other);
        return *this;
    }

private:
    template <class Other>
    friend class tkPtrHandleBase;

    /// Counts this handle as a holder.
    void hold_() const noexcept
    {
        if (object_)
            object_->addReference();
    }
    Object* checked_() const
    {
        if (!object_)
            throw tkBadPointer();
        return object_;
    }

    Object* object_ = nullptr; // null, or an object that counts this handle
};

/// Counted handle to an object that may be changed through it. Every other holder sees the change.
template <class T>
class tkPtrHandle : public tkPtrHandleBase<T>
{
public:
    using element_type = T;
    using tkPtrHandleBase<T>::tkPtrHandleBase;
    /// A null handle.
    tkPtrHandle() noexcept = default;
};

/// Counted handle to an object that is only read through it. Others may hold the object by handles that allow changes.
template <class T>
class tkPtrHandle_const : public tkPtrHandleBase<const T>
{
public:
    using element_type = const T;
    using tkPtrHandleBase<const T>::tkPtrHandleBase;
    /// A null handle.
    tkPtrHandle_const() noexcept = default;
};

/// A handle that keeps an argument alive: guards against arguments owned by the object that the callee is about to
/// release. Null for an object that no handle holds, one on the stack for instance.
template <class T>
tkPtrHandle_const<T> tkKeepAlive(const T& object) noexcept
{
    return tkPtrHandle_const<T>(object.referenceCount() > 0 ? &object : nullptr);
}

/// Handles of any two kinds are equal if they hold the same object, or both none. The objects are not compared.
template <class A, class B>
bool operator==(const tkPtrHandleBase<A>& a, const tkPtrHandleBase<B>& b) noexcept
{
    return a.get() == b.get();
}
template <class A, class B>
bool operator!=(const tkPtrHandleBase<A>& a, const tkPtrHandleBase<B>& b) noexcept
{
    return a.get() != b.get();
}

#endif
