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
    constexpr std::uint32_t count = 100000;
    const auto keepsAll = [](const auto& placeOf)
    {
        tkAddressTable table;
        for (std::uint32_t i = 1; i <= count; ++i)
        {
            ASSERT_EQ(0u, table.find(addressOf(std::uintptr_t{240} * placeOf(i))));
            table.insert(addressOf(std::uintptr_t{240} * placeOf(i)), i);
        }
        for (std::uint32_t i = 1; i <= count; ++i)
            ASSERT_EQ(i, table.find(addressOf(std::uintptr_t{240} * placeOf(i))));
        EXPECT_EQ(0u, table.find(addressOf(std::uintptr_t{240} * (3 * count))));
        EXPECT_EQ(0u, table.find(addressOf(1)));
    };
    // Ascending addresses, descending ones, ascending runs each below those before it, and what is on the stack first.
    keepsAll([](std::uint32_t i) { return i; });
    keepsAll([](std::uint32_t i) { return count + 1 - i; });
    keepsAll([](std::uint32_t i) { return count + i % 100 - (i - i % 100); });
    keepsAll([](std::uint32_t i) { return i == 1 ? 2 * count : i; });
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

TEST(tkAddressTable, anErasedAddressCanGetAnotherNumber)
{
    // In the list: the last one, one before it, all; the object on the stack that came first is in the table.
    tkAddressTable table;
    const auto address = [](std::uint32_t i) { return addressOf(i == 1 ? 1 << 20 : std::uintptr_t{16} * i); };
    for (std::uint32_t i = 1; i <= 5; ++i)
        table.insert(address(i), i);
    for (const std::uint32_t i : {5u, 3u, 2u, 4u, 1u})
    {
        EXPECT_EQ(i, table.find(address(i)));
        table.erase(address(i));
        EXPECT_EQ(0u, table.find(address(i)));
        table.erase(address(i));
        table.insert(address(i), 10 + i);
        EXPECT_EQ(10 + i, table.find(address(i)));
    }
    for (std::uint32_t i = 1; i <= 5; ++i)
        EXPECT_EQ(10 + i, table.find(address(i)));
}

TEST(tkAddressTable, listIsLeftByAllThatIsErasedFromItsEnd)
{
    tkAddressTable table;
    const auto address = [](std::uint32_t i) { return addressOf(std::uintptr_t{16} * i); };
    for (std::uint32_t i = 1; i <= 9; ++i)
        table.insert(address(i), i);
    for (std::uint32_t i = 7; i <= 9; ++i) // only the last one ends the list
        table.erase(address(i));
    for (std::uint32_t i = 7; i <= 9; ++i)
    {
        EXPECT_EQ(0u, table.find(address(i)));
        table.insert(address(i), 100 + i);
    }
    for (std::uint32_t i = 1; i <= 9; ++i)
        EXPECT_EQ(i < 7 ? i : 100 + i, table.find(address(i)));
}

TEST(tkAddressTable, eachOfManyThatAreErasedLeavesTheOthers)
{
    constexpr std::uint32_t count = 2000;
    tkAddressTable table;
    for (std::uint32_t i = 1; i <= count; ++i)
        table.insert(addressOf(std::uintptr_t{16} * (count + 1 - i)), count + 1 - i);
    for (std::uint32_t i = 1; i <= count; i += 2)
        table.erase(addressOf(std::uintptr_t{16} * i));
    for (std::uint32_t i = 1; i <= count; ++i)
        ASSERT_EQ(i % 2 == 0 ? i : 0, table.find(addressOf(std::uintptr_t{16} * i)));
}
