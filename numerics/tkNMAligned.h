#ifndef NUMERICS_TKNMALIGNED_H
#define NUMERICS_TKNMALIGNED_H

#include <cstddef>
#include <cstdint>
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

    /// Rounds addresses up itself: the aligned operator new takes several times as long for a few measurements.
    Element* allocate(std::size_t n)
    {
        auto* const memory = static_cast<unsigned char*>(::operator new(n * sizeof(Element) + alignment_));
        const std::size_t skipped = alignment_ - reinterpret_cast<std::uintptr_t>(memory) % alignment_;
        memory[skipped - 1] = static_cast<unsigned char>(skipped);
        return reinterpret_cast<Element*>(memory + skipped);
    }
    void deallocate(Element* elements, std::size_t) noexcept
    {
        auto* const begin = reinterpret_cast<unsigned char*>(elements);
        ::operator delete(begin - begin[-1]);
    }

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

private:
    static constexpr std::size_t alignment_ = 64;
};

using tkNMAlignedDoubles = std::vector<double, tkNMAlignedAllocator<double>>;

#endif
