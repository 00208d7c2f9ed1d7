#ifndef FOUNDATION_TKPTRHANDLE_H
#define FOUNDATION_TKPTRHANDLE_H

#include "foundation/tkException.h"
#include "foundation/tkRepBase.h"

#include <type_traits>
#include <utility>

/// What both kinds of handle do: holds one reference to a heap object derived from tkRepBase, or nothing.
///
/// `Object` is const-qualified in the constant kind. A handle is one word. Copying counts one more holder (an atomic
/// addition), moving counts nothing and leaves null, and the last handle to go deletes the object. Only dereferencing
/// throws. Two threads may use two handles to one object, but not one handle.
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
    tkPtrHandleBase(const tkPtrHandleBase& other) noexcept : object_(other.object_) { hold_(); }
    tkPtrHandleBase(tkPtrHandleBase&& other) noexcept : object_(other.detach_()) {}
    /// From a handle of either kind whose pointer converts: to a base class, or to const.
    template <class Other, class = std::enable_if_t<std::is_convertible_v<Other*, Object*>>>
    tkPtrHandleBase(const tkPtrHandleBase<Other>& other) noexcept : object_(other.object_)
    {
        hold_();
    }
    template <class Other, class = std::enable_if_t<std::is_convertible_v<Other*, Object*>>>
    tkPtrHandleBase(tkPtrHandleBase<Other>&& other) noexcept : object_(other.detach_())
    {
    }
    ~tkPtrHandleBase() { release_(object_); }

    /// The object. Throws tkBadPointer if there is none.
    Object& operator*() const { return *checked_(); }
    Object* operator->() const { return checked_(); }

    /// The object, or null; the handle keeps its reference.
    Object* get() const noexcept { return object_; }
    bool isNull() const noexcept { return object_ == nullptr; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

protected:
    tkPtrHandleBase& operator=(const tkPtrHandleBase& other) noexcept
    {
        tkPtrHandleBase(other).swap_(*this);
        return *this;
    }
    tkPtrHandleBase& operator=(tkPtrHandleBase&& other) noexcept
    {
        tkPtrHandleBase(std::move(other)).swap_(*this);
        return *this;
    }

    Object* detach_() noexcept { return std::exchange(object_, nullptr); }
    void swap_(tkPtrHandleBase& other) noexcept { std::swap(object_, other.object_); }

private:
    template <class Other>
    friend class tkPtrHandleBase;

    void hold_() const noexcept
    {
        if (object_)
            object_->addReference();
    }
    static void release_(Object* object) noexcept
    {
        if (object)
            object->removeReference();
    }
    Object* checked_() const
    {
        if (!object_)
            throw tkBadPointer();
        return object_;
    }

    Object* object_ = nullptr;
};

/// Counted handle to an object that may be changed through it.
template <class T>
class tkPtrHandle : public tkPtrHandleBase<T>
{
public:
    using element_type = T;
    using tkPtrHandleBase<T>::tkPtrHandleBase;
    tkPtrHandle() noexcept = default;

    /// Gives the reference up to the caller, who must removeReference() some day; the handle is null.
    T* detach() noexcept { return this->detach_(); }
    void swap(tkPtrHandle& other) noexcept { this->swap_(other); }
};

/// Counted handle to an object that is only read through it.
template <class T>
class tkPtrHandle_const : public tkPtrHandleBase<const T>
{
public:
    using element_type = const T;
    using tkPtrHandleBase<const T>::tkPtrHandleBase;
    tkPtrHandle_const() noexcept = default;

    /// Gives the reference up to the caller, who must removeReference() some day; the handle is null.
    const T* detach() noexcept { return this->detach_(); }
    void swap(tkPtrHandle_const& other) noexcept { this->swap_(other); }
};

/// A handle that keeps an argument alive: guards against arguments owned by the object that the callee is about to
/// release. Null for an object that no handle holds, one on the stack for instance.
template <class T>
tkPtrHandle_const<T> tkKeepAlive(const T& object) noexcept
{
    return tkPtrHandle_const<T>(object.referenceCount() > 0 ? &object : nullptr);
}

/// Handles are equal if they hold the same object, or both none. The objects are not compared.
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
