#include "foundation/tkAddressTable.h"

#include <utility>

namespace
{
constexpr int firstBits = 4; // of the first table's size
}

void tkAddressTable::erase(const void* address)
{
    if (find(address) == 0)
        return;
    // Addresses in the slots after it move up as far as their homes allow, so that no search ends at a gap too early.
    std::size_t gap = slotOf_(address);
    for (std::size_t slot = next_(gap); slots_[slot].address; slot = next_(slot))
    {
        const std::size_t mask = slots_.size() - 1;
        if (((slot - home_(slots_[slot].address)) & mask) >= ((slot - gap) & mask))
        {
            slots_[gap] = slots_[slot];
            gap = slot;
        }
    }
    slots_[gap] = Slot();
    --used_;
}

void tkAddressTable::grow_(std::size_t entries)
{
    tkAddressTable larger;
    larger.shift_ = slots_.empty() ? 64 - firstBits : shift_ - 1;
    while (4 * entries > 3 * (std::size_t{1} << (64 - larger.shift_)))
        --larger.shift_;
    larger.slots_.resize(std::size_t{1} << (64 - larger.shift_));
    for (const Slot& slot : slots_)
        if (slot.address)
            larger.slots_[larger.slotOf_(slot.address)] = slot;
    larger.used_ = used_;
    *this = std::move(larger);
}
