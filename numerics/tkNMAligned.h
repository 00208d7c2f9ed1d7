#ifndef NUMERICS_TKNMALIGNED_H
#define NUMERICS_TKNMALIGNED_H

#include <cstddef>
#include <new>
#include <vector>

/// An allocator whose memory begins at a multiple of 64 bytes: a cache line, or the widest vector register.
template <class Element>
struct tkNMAlignedAllocator
{
    using value_type = Element;

    tkNMAlignedAllocator() noexcept = default;
    template <class Other>
    tkNMAlignedAllocator(const tkNMAlignedAllocator<Other>&) noexcept
    {
    }

    Element* allocate(std::size_t n)
    {
        return static_cast<Element*>(::operator new(n * sizeof(Element), std::align_val_t(64)));
    }
    void deallocate(Element* elements, std::size_t) noexcept { ::operator delete(elements, std::align_val_t(64)); }

    template <class Other>
    bool operator==(const tkNMAlignedAllocator<Other>&) const noexcept
    {
        return true;
    }
    template <class Other>
    bool operator!=(const tkNMAlignedAllocator<Other>&) const noexcept
    {
        return false;
    }
};

using tkNMAlignedDoubles = std::vector<double, tkNMAlignedAllocator<double>>;

#endif
