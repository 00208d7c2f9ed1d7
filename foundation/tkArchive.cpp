#include "foundation/tkArchive.h"

#include "foundation/tkArchiveErrors.h"
#include "foundation/tkArchiveState.h"
#include "foundation/tkAssert.h"
#include "foundation/tkUtf8.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8, "archives hold IEEE doubles");

namespace
{
using Word = std::uint32_t;

/// Memory for data of a length that the input claims is taken in steps, so that a false claim costs little.
constexpr std::size_t textStep = 4096;
} // namespace

tkArchive::tkArchive(std::ostream& stream) : isLoading_(false), state_(new State_(stream)) {}

tkArchive::tkArchive(std::istream& stream) : isLoading_(true), state_(new State_(stream)) {}

tkArchive::~tkArchive() = default;

long tkArchive::nestingLimit() const
{
    return state_->nestingLimit;
}

void tkArchive::nestingLimit(long objects)
{
    state_->nestingLimit = objects;
}

unsigned long long tkArchive::position() const
{
    return state_->stream.position();
}

void tkArchive::fail(const std::wstring& what)
{
    state_->stream.fail(what);
}

void tkArchive::setFailed()
{
    state_->stream.setFailed();
}

void tkArchive::exchangeBytes(unsigned char* bytes, std::size_t count)
{
    state_->stream.exchange(bytes, count);
}

void tkArchive::exchangeBools(unsigned char* flags, std::size_t count)
{
    state_->stream.exchangeBools(flags, count);
}

void tkArchive::exchangeDoubles(double* values, std::size_t count)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    exchangeBytes(reinterpret_cast<unsigned char*>(values), count * sizeof(double));
#else
    for (std::size_t i = 0; i < count; ++i)
    {
        std::uint64_t bits;
        std::memcpy(&bits, &values[i], sizeof bits);
        unsigned char bytes[8];
        for (int b = 0; b < 8; ++b)
            bytes[b] = static_cast<unsigned char>(bits >> (8 * b));
        exchangeBytes(bytes, 8);
        if (isStoring())
            continue;
        bits = 0;
        for (int b = 7; b >= 0; --b)
            bits = bits << 8 | bytes[b];
        std::memcpy(&values[i], &bits, sizeof bits);
    }
#endif
}

void tkArchive::exchangeWord_(Word& word)
{
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    state_->stream.exchange(bytes, 4);
    word = bytes[0] | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

tkArchive& tkArchive::operator||(long& value)
{
    if (isStoring() &&
        (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()))
        fail(L"The number " + std::to_wstring(value) + L" does not fit into 32 bits");
    Word word = isStoring() ? static_cast<Word>(value) : 0;
    exchangeWord_(word);
    if (isLoading())
        value = word <= 0x7FFFFFFF ? static_cast<long>(word) : -static_cast<long>(~word) - 1;
    return *this;
}

tkArchive& tkArchive::operator||(unsigned long& value)
{
    return isStoring() ? *this << value : *this >> value;
}

tkArchive& tkArchive::operator<<(unsigned long value)
{
    TK_ASSERT(isStoring());
    if (value > std::numeric_limits<Word>::max())
        fail(L"The number " + std::to_wstring(value) + L" does not fit into 32 bits");
    Word word = static_cast<Word>(value);
    exchangeWord_(word);
    return *this;
}

tkArchive& tkArchive::operator>>(unsigned long& value)
{
    TK_ASSERT(isLoading());
    Word word = 0;
    exchangeWord_(word);
    value = word;
    return *this;
}

tkArchive& tkArchive::operator||(double& value)
{
    exchangeDoubles(&value, 1);
    return *this;
}

tkArchive& tkArchive::operator||(bool& value)
{
    unsigned char byte = isStoring() && value;
    exchangeBools(&byte, 1);
    if (isLoading())
        value = byte != 0;
    return *this;
}

tkArchive& tkArchive::operator||(std::wstring& text)
try
{
    std::string bytes;
    if (isStoring())
    {
        bool lossy = false;
        bytes = tkUtf8::encode(text, &lossy);
        if (lossy)
            fail(L"A text holds what is no character of Unicode");
    }
    exchangeText_(bytes);
    if (isLoading() && !tkUtf8::decode(bytes, text))
        fail(L"A text is not valid UTF-8");
    return *this;
}
catch (...) // memory may have run out
{
    setFailed();
    throw;
}

void tkArchive::exchangeText_(std::string& bytes)
{
    if (bytes.size() > std::numeric_limits<Word>::max())
        fail(L"A text is too long");
    Word count = static_cast<Word>(bytes.size());
    exchangeWord_(count);
    if (isLoading())
        bytes.clear();
    for (std::size_t done = 0; done < count;)
    {
        const std::size_t step =
            isStoring() ? count : std::min<std::size_t>(count - done, std::max(textStep, done / 2));
        bytes.resize(done + step);
        exchangeBytes(reinterpret_cast<unsigned char*>(&bytes[done]), step);
        done += step;
    }
}

unsigned char tkArchive::exchangeVersion(const char* where, int number, unsigned char newest)
{
    unsigned char version = newest;
    *this || version;
    if (version > newest)
    {
        setFailed();
        throw UnknownVersion(where, number);
    }
    return version;
}

void tkArchive::requireVersion0(unsigned char version, const char* where, int number)
{
    if (version > 0)
        throw UnknownVersion(where, number);
}

tkArchive& operator||(tkArchive& archive, tkPersistent& object)
{
    tkArchive::Exchange_ exchange(archive);
    if (!archive.state_->haveVisited(&object))
    {
        archive.exchangeObject_(object);
        archive.state_->visited.insert(&object);
    }
    exchange.finish();
    return archive;
}

void tkArchive::nest_(long height)
{
    if (state_->nesting + height > state_->nestingLimit)
        fail(L"More than " + std::to_wstring(state_->nestingLimit) + L" objects are nested");
    state_->deepest = std::max(state_->deepest, state_->nesting + height);
}

long tkArchive::exchangeObject_(tkPersistent& object)
{
    nest_(1);
    const auto levels = static_cast<std::ptrdiff_t>(state_->visitedLevels.size());
    const long outside = std::exchange(state_->deepest, ++state_->nesting);
    if (isStoring())
        object.dispatchSerialize(*this);
    else
        object.loadSimple(*this);
    const long height = state_->deepest - --state_->nesting;
    state_->deepest = std::max(state_->deepest, outside);
    state_->visitedLevels.erase(state_->visitedLevels.begin() + levels, state_->visitedLevels.end());
    return height;
}

void tkArchive::meetAgain_(Word number)
{
    const long height = state_->objects[number - 1].height;
    if (height == 0)
        fail(L"Object " + std::to_wstring(number) + L" holds itself");
    nest_(height);
}

void tkArchive::storePointer_(tkPersistent* object)
{
    Word number = object ? state_->numbers.find(object) : State_::nullNumber;
    if (!object || number != State_::nullNumber)
    {
        if (object)
            meetAgain_(number);
        exchangeWord_(number);
        return;
    }
    number = storeNew_(*object);
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
}

std::uint32_t tkArchive::storeNew_(tkPersistent& object)
{
    std::string newTypeName;
    Word typeNumber = storedType_(typeid(object), newTypeName);
    if (state_->objects.size() >= std::numeric_limits<Word>::max())
        fail(L"Too many objects");

    // An object that no handle holds yet may be on the stack: taking hold of it would delete it.
    tkRepBase* const counted = dynamic_cast<tkRepBase*>(&object);
    tkPtrHandle<tkRepBase> kept(counted && counted->referenceCount() > 0 ? counted : nullptr);
    Word number = state_->add(&object, std::move(kept), false);
    exchangeWord_(number);
    exchangeWord_(typeNumber);
    if (!newTypeName.empty())
        exchangeText_(newTypeName);
    return number;
}

std::uint32_t tkArchive::storedType_(const std::type_info& type, std::string& newName)
{
    if (&type == state_->latestType)
        return state_->latestTypeNumber;
    const Word next = static_cast<Word>(state_->storedTypes.size() + 1);
    const auto [known, isNew] = state_->storedTypes.emplace(type, next);
    if (isNew)
    {
        newName = tkPersistent::typeName(type);
        const tkPersistent::Registration* const registration = tkPersistent::Registration::find(newName);
        if (!registration || !registration->isFor(type))
            fail(L"The class " + State_::shown(newName) + L" is not registered");
    }
    state_->latestType = &type;
    state_->latestTypeNumber = known->second;
    return known->second;
}

tkPersistent* tkArchive::loadPointer_()
{
    Word number = State_::nullNumber;
    exchangeWord_(number);
    if (number == State_::nullNumber)
        return nullptr;
    if (number <= state_->objects.size())
        return known_(number);
    if (number != state_->objects.size() + 1)
        fail(L"Object " + std::to_wstring(number) + L" is not known");

    // An object that is not reference-counted is the caller's once it is loaded whole. Until then this function owns
    // it.
    std::unique_ptr<tkPersistent> uncounted;
    tkPersistent* const object = create_(uncounted);
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
    state_->unclaimed = uncounted.release();
    return object;
}

tkPersistent* tkArchive::known_(Word number)
{
    meetAgain_(number);
    tkPersistent* const object = state_->objects[number - 1].object;
    if (!object && number <= state_->firstObject)
        fail(L"Object " + std::to_wstring(number) + L" is no longer known");
    return object;
}

tkPersistent* tkArchive::create_(std::unique_ptr<tkPersistent>& uncounted)
{
    std::vector<const tkPersistent::Registration*>& types = state_->loadedTypes;
    Word typeNumber = 0;
    exchangeWord_(typeNumber);
    if (typeNumber == types.size() + 1)
    {
        std::string typeName;
        exchangeText_(typeName);
        const tkPersistent::Registration* const registration = tkPersistent::Registration::find(typeName);
        if (!registration)
            fail(L"The class " + State_::shown(typeName) + L" is not known or has no objects");
        types.push_back(registration);
    }
    else if (typeNumber == 0 || typeNumber > types.size())
        fail(L"Type " + std::to_wstring(typeNumber) + L" is not known");

    uncounted.reset(types[typeNumber - 1]->create());
    tkPersistent* const object = uncounted.get();
    tkPtrHandle<tkRepBase> kept(dynamic_cast<tkRepBase*>(object));
    if (kept)
        static_cast<void>(uncounted.release());
    state_->add(object, std::move(kept), true);
    return object;
}

void tkArchive::discardLoaded(tkPersistent* object)
{
    if (object == state_->unclaimed)
    {
        state_->forget(object);
        delete object;
    }
}
