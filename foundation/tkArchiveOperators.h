#ifndef FOUNDATION_TKARCHIVEOPERATORS_H
#define FOUNDATION_TKARCHIVEOPERATORS_H

#include "foundation/tkArchiveErrors.h"
#include "foundation/tkPtrHandle.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

// `archive || value` for vectors, enumerations and handles. Each throws what the elements' operators throw and
// tkArchive::Errors for damaged bytes; the archive has failed then, and a value that was being loaded is partly loaded.

/// What the exchange of every vector begins with: a version byte and the number of elements. Returns the number to
/// exchange; when loading, elements beyond it are dropped and those before it stay.
template <class Vector>
std::size_t tkExchangeVectorHead(tkArchive& archive, Vector& elements)
{
    archive.exchangeVersion();
    const std::size_t size = elements.size();
    unsigned long count = static_cast<unsigned long>(size);
    if (count != size) // where unsigned long is shorter
        archive.fail(L"The number " + std::to_wstring(size) + L" does not fit into 32 bits");
    archive || count;
    if (size > count)
        elements.resize(count);
    return count;
}

/// Enlarges a vector that is to get `count` elements, by a step in proportion to those it has: a count that the input
/// does not keep costs no more memory than what was read. `first` is the first step.
template <class Vector>
void tkGrowVector(Vector& elements, std::size_t count, std::size_t first)
{
    const std::size_t size = (std::min)(count, elements.size() + (std::max)(first, elements.size() / 2));
    elements.reserve(size);
    elements.resize(size);
}

/// A vector: version byte, count, elements in order, each through its own operator. Elements that are there before
/// loading are loaded in place.
template <class Element>
tkArchive& operator||(tkArchive& archive, std::vector<Element>& elements)
try
{
    const std::size_t count = tkExchangeVectorHead(archive, elements);
    for (std::size_t i = 0; i < count; ++i)
    {
        if (i == elements.size())
            tkGrowVector(elements, count, 4);
        archive || elements[i];
    }
    return archive;
}
catch (...) // memory may have run out, or an element's operator have failed by itself
{
    archive.setFailed();
    throw;
}

/// The same record, its doubles exchanged many at a time.
TK_EXPORT tkArchive& operator||(tkArchive& archive, std::vector<double>& elements);

/// The same record, one byte of value 0 or 1 for each bool, many at a time.
TK_EXPORT tkArchive& operator||(tkArchive& archive, std::vector<bool>& elements);

/// An enumeration: its value as 32 bits, in either direction without a check of its range. The fixed underlying type
/// makes every value that a file may hold a value of the enumeration. An enumeration without one does not compile.
template <class Enumeration, std::enable_if_t<std::is_enum_v<Enumeration>, int> = 0>
tkArchive& operator||(tkArchive& archive, Enumeration& value)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, int>, "stored enumerations are declared ': int'");
    if (archive.isStoring())
    {
        unsigned long word = static_cast<std::uint32_t>(value);
        archive || word;
    }
    else
    {
        unsigned long word = 0;
        archive >> word;
        value = static_cast<Enumeration>(static_cast<std::int32_t>(static_cast<std::uint32_t>(word)));
    }
    return archive;
}

/// What both kinds of handle do: exchange the object of the handle, shared as it was, or null. Loading makes the handle
/// null first; an object whose class is not the handle's or derived from it gives a null handle.
template <class T, class Handle>
tkArchive& tkExchangeHandle(tkArchive& archive, Handle& handle)
{
    if (archive.isLoading())
        handle = Handle();
    tkPersistent* loaded = nullptr;
    tkPersistent::serializePointer(archive, const_cast<T*>(handle.get()), loaded);
    if (loaded)
    {
        handle = Handle(dynamic_cast<T*>(loaded));
        if (handle.isNull())
            archive.discardLoaded(loaded);
    }
    return archive;
}

/// A handle, if its class is persistent: tkExchangeHandle.
template <class T, std::enable_if_t<std::is_base_of_v<tkPersistent, T>, int> = 0>
tkArchive& operator||(tkArchive& archive, tkPtrHandle<T>& handle)
{
    return tkExchangeHandle<T>(archive, handle);
}

template <class T, std::enable_if_t<std::is_base_of_v<tkPersistent, T>, int> = 0>
tkArchive& operator||(tkArchive& archive, tkPtrHandle_const<T>& handle)
{
    return tkExchangeHandle<T>(archive, handle);
}

/// Exchanges vectors whose elements of the same index belong together. A record whose vectors differ in length is
/// refused, in both directions, with tkArchive::Errors(`difference`); any failed loading leaves all of them empty, so
/// that they still belong together.
template <class... Vectors>
tkArchive& tkExchangeParallel(tkArchive& archive, const wchar_t* difference, Vectors&... vectors)
{
    try
    {
        (archive || ... || vectors);
        const std::size_t sizes[] = {vectors.size()...};
        if (std::count(std::begin(sizes), std::end(sizes), sizes[0]) != sizeof...(vectors))
            archive.fail(difference);
    }
    catch (...)
    {
        archive.setFailed();
        if (archive.isLoading())
            (vectors.clear(), ...);
        throw;
    }
    return archive;
}

#endif
