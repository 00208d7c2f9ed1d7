#include "foundation/tkAddressTable.h"

#include <algorithm>
#include <utility>

namespace
{
constexpr int firstBits = 4; // of the first table's size
}

const tkAddressTable::Slot* tkAddressTable::inList_(const void* address) const
{
    const auto entry =
        std::lower_bound(list_.begin(), list_.end(), address,
                         [](const Slot& slot, const void* other) { return isLess_(slot.address, other); });
    return entry != list_.end() && entry->address == address ? &*entry : nullptr;
}

void tkAddressTable::insertIntoTable_(const Slot& entry)
{
    if (4 * (used_ + 1) > 3 * slots_.size())
        grow_();
    slots_[slotOf_(entry.address)] = entry;
    lowest_ = used_ == 0 || isLess_(entry.address, lowest_) ? entry.address : lowest_;
    highest_ = used_ == 0 || isLess_(highest_, entry.address) ? entry.address : highest_;
    ++used_;
}

void tkAddressTable::erase(const void* address)
{
    if (find(address) == 0)
        return;
    const std::size_t slot = mayBeInTable_(address) ? slotOf_(address) : 0;
    if (mayBeInTable_(address) && slots_[slot].address)
    {
        eraseFromTable_(slot);
        return;
    }
    list_[static_cast<std::size_t>(inList_(address) - list_.data())].number = 0;
    while (!list_.empty() && list_.back().number == 0)
        list_.pop_back();
}

void tkAddressTable::eraseFromTable_(std::size_t gap)
{
    // Addresses in the slots after it move up as far as their homes allow, so that no search ends at a gap too early.
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

void tkAddressTable::grow_()
{
    tkAddressTable larger;
    larger.shift_ = slots_.empty() ? 64 - firstBits : shift_ - 1;
    larger.slots_.resize(std::size_t{1} << (64 - larger.shift_));
    for (const Slot& slot : slots_)
        if (slot.address)
            larger.slots_[larger.slotOf_(slot.address)] = slot;
    slots_ = std::move(larger.slots_);
    shift_ = larger.shift_;
}
