#ifndef FOUNDATION_TKADDRESSTABLE_H
#define FOUNDATION_TKADDRESSTABLE_H

#include "foundation/tkExport.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

/// Numbers of objects by their addresses: what an archive asks for every object that it stores.
///
/// Objects are mostly stored in the order in which they were allocated, so that their addresses ascend. Such entries
/// are appended to a list: nothing has to be looked for in memory that is far apart. The others are in a hash table
/// with open addressing and linear probing. A standard map would allocate a node for each object, and follow two
/// pointers to find it. At most three quarters of the slots are in use, and the table doubles when they are, so that an
/// entry takes at most 43 bytes, and one and a half times as many while it grows.
class TK_EXPORT tkAddressTable
{
public:
    /// Number of the object at `address`; 0: none. Constant time on average for one above all in the list, and
    /// otherwise logarithmic time in the length of the list, as the others are.
    std::uint32_t find(const void* address) const
    {
        const std::uint32_t number = mayBeInTable_(address) ? slots_[slotOf_(address)].number : 0;
        if (number != 0 || isAboveList_(address))
            return number;
        const Slot* const entry = inList_(address);
        return entry ? entry->number : 0;
    }

    /// Gives the object at `address` a number. *Requires* a number and an address that are not 0, and that the
    /// address has none.
    void insert(const void* address, std::uint32_t number)
    {
        // A first object on the stack is above all that come from the heap: the list begins anew after it.
        if (list_.size() == 1 && !isAboveList_(address))
        {
            insertIntoTable_(list_.back());
            list_.pop_back();
        }
        if (isAboveList_(address))
            list_.push_back({address, number});
        else
            insertIntoTable_({address, number});
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
        std::uint32_t number = 0;      // 0 in the list: erased
    };

    static bool isLess_(const void* a, const void* b) { return std::less<>()(a, b); }

    bool isAboveList_(const void* address) const { return list_.empty() || isLess_(list_.back().address, address); }

    /// Its entry in the list; null: none.
    const Slot* inList_(const void* address) const;

    bool mayBeInTable_(const void* address) const
    {
        return !slots_.empty() && !isLess_(address, lowest_) && !isLess_(highest_, address);
    }

    void insertIntoTable_(const Slot& entry);

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

    void grow_();
    void eraseFromTable_(std::size_t gap);

    std::vector<Slot> list_;       // by ascending addresses; the last one is not erased
    std::vector<Slot> slots_;      // none, or 2^(64 - shift_)
    const void* lowest_ = nullptr; // of all addresses that were ever in the table
    const void* highest_ = nullptr;
    int shift_ = 64;
    std::size_t used_ = 0;
};

#endif
