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
// Each takes time and bytes in proportion to the elements. Since these are templates, the operator of an element must
// be declared before them or in the namespace of its class, the global one for classes of this library.

/// What the exchange of every vector begins with: a version byte and the number of elements, as 32 bits. Returns the
/// number to exchange; when loading, elements beyond it are dropped and those before it stay. Storing throws
/// tkArchive::Errors for more than 2^32 - 1 elements; loading throws tkArchive::UnknownVersion, unnamed, for a version
/// byte that is not 0. A number greater than what follows in the stream is found when that ends.
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
/// does not keep makes no more elements than half of those that were read, or `first`. To be called when all elements
/// that are there have been loaded, and fewer than `count`.
template <class Vector>
void tkGrowVector(Vector& elements, std::size_t count, std::size_t first)
{
    const std::size_t size = (std::min)(count, elements.size() + (std::max)(first, elements.size() / 2));
    elements.reserve(size);
    elements.resize(size);
}

/// A vector: version byte, count, elements in order, each through its own operator. Elements that are there before
/// loading are loaded in place: what their operators leave alone, they keep. *Requires*, when compiled, elements that
/// have a default constructor and can be moved or copied. If an element throws, those before it are loaded.
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

/// The same record, its doubles exchanged many at a time: 8 bytes each, their bits unchanged, NaN payloads included.
/// Loading drops the old elements when the number is known.
TK_EXPORT tkArchive& operator||(tkArchive& archive, std::vector<double>& elements);

/// The same record, one byte of value 0 or 1 for each bool, many at a time. Loading throws tkArchive::Errors for a byte
/// of another value.
TK_EXPORT tkArchive& operator||(tkArchive& archive, std::vector<bool>& elements);

/// An enumeration: its value as 32 bits, in either direction without a check of its range. The fixed underlying type
/// makes every value that a file may hold a value of the enumeration. An enumeration without one does not compile.
template <class Enumeration, std::enable_if_t<std::is_enum_v<Enumeration>, int> = 0>
tkArchive& operator||(tkArchive& archive, Enumeration& value)
{
    static_assert(std::is_same_v<std::underlying_type_t<Enumeration>, int>, "stored enumerations are declared ': int'");
    unsigned long word = archive.isStoring() ? static_cast<std::uint32_t>(value) : 0;
    archive || word;
    if (archive.isLoading())
        value = static_cast<Enumeration>(static_cast<std::int32_t>(static_cast<std::uint32_t>(word)));
    return archive;
}

/// What both kinds of handle do: exchange the object of the handle, shared as it was, or null. Loading makes the handle
/// null first; an object whose class is not the handle's or derived from it gives a null handle, and whoever reads the
/// record decides whether null will do. Throws as tkPersistent::serializePointer does; a loading that throws leaves the
/// handle null. Storing changes nothing of the object: constness is cast away because one operator serves both
/// directions.
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

/// A handle, if its class is persistent: tkExchangeHandle. Handles of other classes do not compile, unless they have an
/// operator of their own.
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

/// Exchanges vectors whose elements of the same index belong together, one record after the other. Where they differ in
/// length, tkArchive::Errors(`difference`) is thrown in both directions, after all of them have been exchanged; any
/// failed loading leaves all of them empty, so that they still belong together. *Requires* at least one vector.
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
