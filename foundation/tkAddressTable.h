#ifndef FOUNDATION_TKADDRESSTABLE_H
#define FOUNDATION_TKADDRESSTABLE_H

#include "foundation/tkExport.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Numbers of objects by their addresses: what an archive asks for every object that it stores.
///
/// A hash table with open addressing and linear probing. A standard map would allocate a node for each object, and
/// follow two pointers to find it. At most three quarters of the slots are in use, and the table doubles when they
/// are, so that an entry takes at most 43 bytes, and one and a half times as many while the table grows.
class TK_EXPORT tkAddressTable
{
public:
    /// Number of the object at `address`; 0: none. Constant time on average, as the others are.
    std::uint32_t find(const void* address) const { return slots_.empty() ? 0 : slots_[slotOf_(address)].number; }

    /// Gives the object at `address` a number. *Requires* a number and an address that are not 0, and that the
    /// address has none.
    void insert(const void* address, std::uint32_t number)
    {
        reserve(used_ + 1);
        slots_[slotOf_(address)] = {address, number};
        ++used_;
    }

    /// Makes room for so many entries altogether.
    void reserve(std::size_t entries)
    {
        if (4 * entries > 3 * slots_.size())
            grow_(entries);
    }

    /// Takes the number of the object at `address` away, if it has one.
    void erase(const void* address);

    /// 64 bits whose leading ones choose the slot from which on an address is looked for. One multiplication by 2^64
    /// over the golden ratio would not do: distances between objects that are near a multiple of a Fibonacci number
    /// would bring them close together again.
    static std::uint64_t mixed(const void* address)
    {
        const std::uint64_t factor = 0x9E3779B97F4A7C15;
        const std::uint64_t bits = reinterpret_cast<std::uintptr_t>(address) * factor;
        return (bits ^ bits >> 32) * factor;
    }

private:
    struct Slot
    {
        const void* address = nullptr; // null: free
        std::uint32_t number = 0;
    };

    std::size_t home_(const void* address) const { return static_cast<std::size_t>(mixed(address) >> shift_); }

    std::size_t next_(std::size_t slot) const { return (slot + 1) & (slots_.size() - 1); }

    /// The address's slot, or the free one where it would be. *Requires* that there are slots.
    std::size_t slotOf_(const void* address) const
    {
        std::size_t slot = home_(address);
        while (slots_[slot].address && slots_[slot].address != address)
            slot = next_(slot);
        return slot;
    }

    void grow_(std::size_t entries);

    std::vector<Slot> slots_; // none, or 2^(64 - shift_)
    int shift_ = 64;
    std::size_t used_ = 0;
};

#endif
