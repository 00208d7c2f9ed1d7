#ifndef FOUNDATION_TKPTRHANDLE_H
#define FOUNDATION_TKPTRHANDLE_H

#include "foundation/tkException.h"
#include "foundation/tkRepBase.h"

#include <type_traits>
#include <utility>

/// What both kinds of handle do: holds one reference to a heap object derived from tkRepBase, or
/// nothing. `Object` is const-qualified in the constant kind. One word wide; no operation but
/// dereferencing throws. Two threads may use two handles to one object, but not one handle.
/// *Requires* of a plain pointer that its object comes from `new`: an assertion fails for one on the thread's stack.
template <class Object>
class tkPtrHandleBase
{
public:
    tkPtrHandleBase() noexcept = default;
    explicit tkPtrHandleBase(Object* object) : object_(object)
    {
        if (object_)
            object_->addFirstReference();
    }
    tkPtrHandleBase(const tkPtrHandleBase& other) noexcept : object_(other.object_) { hold_(); }
    tkPtrHandleBase(tkPtrHandleBase&& other) noexcept : object_(other.detach_()) {}
    ~tkPtrHandleBase() { release_(object_); }

    /// The object; throws tkBadPointer if there is none.
    Object& operator*() const { return *checked_(); }
    Object* operator->() const { return checked_(); }

    /// The object or null.
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

    /// Takes over the reference that another handle gave up by detach_().
    void adopt_(Object* object) noexcept { release_(std::exchange(object_, object)); }

    /// Holds what another handle holds.
    void share_(Object* object) noexcept
    {
        object_ = object;
        hold_();
    }

private:
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

/// Counted handle to an object that may be changed through it. Constructing it from a plain pointer
/// takes a reference: the object must come from `new` and then belongs to its handles.
template <class T>
class tkPtrHandle : public tkPtrHandleBase<T>
{
public:
    using element_type = T;
    using tkPtrHandleBase<T>::tkPtrHandleBase;
    tkPtrHandle() noexcept = default;

    template <class Derived, class = std::enable_if_t<std::is_convertible_v<Derived*, T*>>>
    tkPtrHandle(const tkPtrHandle<Derived>& other) noexcept
    {
        this->share_(other.get());
    }
    template <class Derived, class = std::enable_if_t<std::is_convertible_v<Derived*, T*>>>
    tkPtrHandle(tkPtrHandle<Derived>&& other) noexcept
    {
        this->adopt_(other.detach());
    }

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

    template <class Derived, class = std::enable_if_t<std::is_convertible_v<Derived*, const T*>>>
    tkPtrHandle_const(const tkPtrHandle<Derived>& other) noexcept
    {
        this->share_(other.get());
    }
    template <class Derived, class = std::enable_if_t<std::is_convertible_v<Derived*, const T*>>>
    tkPtrHandle_const(tkPtrHandle<Derived>&& other) noexcept
    {
        this->adopt_(other.detach());
    }
    template <class Derived, class = std::enable_if_t<std::is_convertible_v<const Derived*, const T*>>>
    tkPtrHandle_const(const tkPtrHandle_const<Derived>& other) noexcept
    {
        this->share_(other.get());
    }
    template <class Derived, class = std::enable_if_t<std::is_convertible_v<const Derived*, const T*>>>
    tkPtrHandle_const(tkPtrHandle_const<Derived>&& other) noexcept
    {
        this->adopt_(other.detach());
    }

    /// Gives the reference up to the caller, who must removeReference() some day; the handle is null.
    const T* detach() noexcept { return this->detach_(); }
    void swap(tkPtrHandle_const& other) noexcept { this->swap_(other); }
};

/// Keeps `object` alive while the handle lives, if handles hold it at all: it may be that only what is about to let
/// go of it does. An object on the stack is held by nobody, and the handle is null.
template <class T>
tkPtrHandle_const<T> tkKeepAlive(const T& object) noexcept
{
    return tkPtrHandle_const<T>(object.referenceCount() > 0 ? &object : nullptr);
}

/// Handles compare by identity of their objects.
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
