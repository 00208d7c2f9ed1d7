#include "foundation/tkAddressTable.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <unordered_map>
#include <vector>

namespace
{
/// An address that is only compared.
const void* addressOf(std::uintptr_t number)
{
    return reinterpret_cast<const void*>(number);
}

/// Inserts, erases and finds at random, and compares with a standard map after each step.
void compareWithMap(std::uintptr_t distance, std::uintptr_t addresses, unsigned seed)
{
    std::mt19937 random(seed);
    tkAddressTable table;
    std::unordered_map<std::uintptr_t, std::uint32_t> map;
    for (std::uint32_t step = 1; step <= 4000; ++step)
    {
        const std::uintptr_t address = distance * (1 + random() % addresses);
        const auto known = map.find(address);
        ASSERT_EQ(known == map.end() ? 0 : known->second, table.find(addressOf(address)));
        if (known == map.end())
        {
            table.insert(addressOf(address), step);
            map.emplace(address, step);
        }
        else if (random() % 2 == 0)
        {
            table.erase(addressOf(address));
            map.erase(known);
        }
    }
    for (std::uintptr_t i = 1; i <= addresses; ++i)
    {
        const auto known = map.find(distance * i);
        ASSERT_EQ(known == map.end() ? 0 : known->second, table.find(addressOf(distance * i))) << i;
    }
}
} // namespace

TEST(tkAddressTable, anEmptyTableKnowsNothing)
{
    tkAddressTable table;
    EXPECT_EQ(0u, table.find(addressOf(16)));
    table.erase(addressOf(16));
    EXPECT_EQ(0u, table.find(addressOf(16)));
}

TEST(tkAddressTable, givesWhatAStandardMapGives)
{
    // Dense and far-apart addresses, some of them alike in the bits that are looked at first; few addresses are
    // inserted and erased over and over.
    for (const std::uintptr_t distance : {1, 8, 16, 240, 4096, 65536, 1 << 20})
        for (const std::uintptr_t addresses : {3, 12, 100, 3000})
            compareWithMap(distance, addresses, static_cast<unsigned>(distance + addresses));
}

TEST(tkAddressTable, keepsEveryNumberWhileItGrows)
{
    tkAddressTable table;
    constexpr std::uint32_t count = 100000;
    for (std::uint32_t i = 1; i <= count; ++i)
    {
        table.insert(addressOf(std::uintptr_t{240} * i), i);
    }
    for (std::uint32_t i = 1; i <= count; ++i)
        ASSERT_EQ(i, table.find(addressOf(std::uintptr_t{240} * i)));
    EXPECT_EQ(0u, table.find(addressOf(std::uintptr_t{240} * (count + 1))));
}

TEST(tkAddressTable, objectsAtEqualDistancesDoNotCrowd)
{
    // As the table places them, until it is three quarters full.
    constexpr std::size_t slots = std::size_t{1} << 14;
    constexpr std::size_t objects = slots / 4 * 3;
    for (std::uintptr_t distance = 16; distance <= 16384; distance += 16)
    {
        std::vector<bool> taken(slots, false);
        std::size_t probes = 0;
        for (std::uintptr_t i = 1; i <= objects; ++i)
        {
            std::size_t slot = tkAddressTable::mixed(addressOf(0x7f0000000000 + distance * i)) >> (64 - 14);
            for (; taken[slot]; slot = (slot + 1) % slots)
                ++probes;
            taken[slot] = true;
        }
        // Chance alone brings 1.5 for each (Knuth, The Art of Computer Programming 3, section 6.4).
        ASSERT_LE(probes, 3 * objects) << distance;
    }
}

TEST(tkAddressTable, roomThatIsMadeInAdvanceChangesNothing)
{
    tkAddressTable table;
    table.reserve(0);
    table.insert(addressOf(240), 1);
    for (const std::size_t entries : {1, 12, 13, 1000, 5, 100000})
    {
        table.reserve(entries);
        EXPECT_EQ(1u, table.find(addressOf(240))) << entries;
        EXPECT_EQ(0u, table.find(addressOf(480))) << entries;
    }
    for (std::uint32_t i = 2; i <= 200000; ++i)
        table.insert(addressOf(std::uintptr_t{240} * i), i);
    for (std::uint32_t i = 1; i <= 200000; ++i)
        ASSERT_EQ(i, table.find(addressOf(std::uintptr_t{240} * i)));
}

TEST(tkAddressTable, eachOfManyThatAreErasedLeavesTheOthers)
{
    constexpr std::uint32_t count = 2000;
    tkAddressTable table;
    for (std::uint32_t i = 1; i <= count; ++i)
        table.insert(addressOf(std::uintptr_t{16} * i), i);
    for (std::uint32_t i = 1; i <= count; i += 2)
        table.erase(addressOf(std::uintptr_t{16} * i));
    for (std::uint32_t i = 1; i <= count; ++i)
        ASSERT_EQ(i % 2 == 0 ? i : 0, table.find(addressOf(std::uintptr_t{16} * i)));
}
