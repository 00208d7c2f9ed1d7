#include "foundation/tkArchive.h"

#include "foundation/tkAssert.h"
#include "foundation/tkPtrHandle.h"
#include "foundation/tkUtf8.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <istream>
#include <limits>
#include <ostream>
#include <typeindex>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8, "archives hold IEEE doubles");

struct tkArchive::State_
{
    /// An object that was stored or loaded; its number in the archive is its index + 1.
    struct Object
    {
        tkPersistent* object;        // null: no longer known
        tkPtrHandle<tkRepBase> kept; // null: cannot be kept, known while it lives and the outermost exchange lasts
        long height = 0;             // nesting of objects in it, itself included; 0: still being exchanged
    };

    /// A level of an object whose record is done; without a type: marked from outside.
    struct Level
    {
        void* object;
        std::size_t extent;
        const std::type_info* type;
    };

    std::ostream* out = nullptr;
    std::istream* in = nullptr;
    unsigned long long position = 0;
    bool failed = false;

    long nestingLimit = defaultNestingLimit;
    long nesting = 0; // of the object being exchanged
    long deepest = 0; // nesting that was reached in it

    std::deque<Object> objects;
    std::unordered_map<const tkPersistent*, std::uint32_t> numbers; // of stored objects and of those not kept
    tkPersistent* unclaimed = nullptr; // not kept, created by the latest exchange of a pointer

    std::unordered_map<std::type_index, std::uint32_t> storedTypes;
    std::vector<const tkPersistent::Registration*> loadedTypes;

    // Of the running outermost exchange: levels of the objects being exchanged, and objects done. Those done
    // by pointer stand in `objects` from `firstObject` on and enter `visited` when it is next consulted.
    long exchanges = 0;
    std::vector<Level> visitedLevels;
    std::unordered_set<const tkPersistent*> visited;
    std::size_t firstObject = 0;
    std::size_t consulted = 0;

    bool haveVisited(const tkPersistent* object)
    {
        for (; consulted < objects.size(); ++consulted)
            visited.insert(objects[consulted].object);
        return visited.count(object) != 0;
    }

    /// An address that is free again says nothing about the next object there.
    void forget(tkPersistent* object)
    {
        visited.erase(object);
        if (unclaimed == object)
            unclaimed = nullptr;
        const auto known = numbers.find(object);
        if (known != numbers.end())
        {
            objects[known->second - 1].object = nullptr;
            numbers.erase(known);
        }
    }
};

namespace
{
using Word = std::uint32_t;

/// Memory for data of a length that the input claims is taken in steps, so that a false claim costs little.
constexpr std::size_t textStep = 4096;

/// So much of a type's name goes into a message.
constexpr std::size_t shownTypeName = 200;

/// Number that means "no object".
constexpr Word nullNumber = 0;

/// A link in the chain of the exchanges that run on this thread, innermost first.
struct Running
{
    void* state;
    Running* enclosing;
};
thread_local Running* running = nullptr;

std::wstring shown(const std::string& typeName)
{
    return tkUtf8::readable(typeName.substr(0, shownTypeName));
}
} // namespace

/// One exchange of an object by value or by pointer. The outermost one gives the visited marks their life;
/// while it runs, they are those of the thread. Archives may be used within each other's exchanges.
class tkArchive::Exchange_
{
public:
    explicit Exchange_(tkArchive& archive)
        : state_(*archive.state_),
          link_{&state_, running},
          exceptions_(std::uncaught_exceptions())
    {
        archive.requireSound_();
        running = &link_;
        if (state_.exchanges++ == 0)
            state_.firstObject = state_.consulted = state_.objects.size();
    }

    ~Exchange_()
    {
        running = link_.enclosing;
        if (std::uncaught_exceptions() > exceptions_)
            state_.failed = true;
        if (--state_.exchanges == 0)
            forget_();
    }

    Exchange_(const Exchange_&) = delete;
    Exchange_& operator=(const Exchange_&) = delete;

private:
    void forget_()
    {
        state_.visitedLevels.clear();
        state_.visited.clear();
        for (std::size_t i = state_.firstObject; i < state_.objects.size(); ++i)
        {
            State_::Object& entry = state_.objects[i];
            if (entry.kept.isNull() && entry.object)
            {
                state_.numbers.erase(entry.object);
                entry.object = nullptr;
            }
        }
    }

    State_& state_;
    Running link_;
    int exceptions_;
};

tkArchive::tkArchive(std::ostream& stream) : state_(new State_)
{
    state_->out = &stream;
}

tkArchive::tkArchive(std::istream& stream) : state_(new State_)
{
    state_->in = &stream;
}

tkArchive::~tkArchive() = default;

bool tkArchive::isLoading() const
{
    return state_->in != nullptr;
}

bool tkArchive::isStoring() const
{
    return state_->out != nullptr;
}

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
    return state_->position;
}

void tkArchive::fail_(const std::wstring& what) const
{
    state_->failed = true;
    throw Errors(what + (isLoading() ? L" (reading, at byte " : L" (writing, at byte ") +
                 std::to_wstring(state_->position) + L")");
}

void tkArchive::requireSound_() const
{
    if (state_->failed)
        fail_(L"An earlier exchange with this archive failed");
}

void tkArchive::exchangeBytes(unsigned char* bytes, std::size_t count)
{
    requireSound_();
    const auto wanted = static_cast<std::streamsize>(count);
    char* const chars = reinterpret_cast<char*>(bytes);
    state_->failed = true; // unless this passes: the stream may throw whatever it likes
    try
    {
        if (isStoring())
        {
            if (state_->out->fail() || state_->out->rdbuf()->sputn(chars, wanted) != wanted)
                fail_(L"The stream cannot be written");
        }
        else if (state_->in->fail())
            fail_(L"The stream cannot be read");
        else if (state_->in->rdbuf()->sgetn(chars, wanted) != wanted)
            fail_(L"The data end early");
    }
    catch (const std::ios_base::failure&)
    {
        fail_(isStoring() ? L"The stream cannot be written" : L"The stream cannot be read");
    }
    state_->failed = false;
    state_->position += count;
}

void tkArchive::exchangeWord_(Word& word)
{
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    exchangeBytes(bytes, 4);
    word = bytes[0] | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

tkArchive& tkArchive::operator||(long& value)
{
    if (isStoring() &&
        (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()))
        fail_(L"The number " + std::to_wstring(value) + L" does not fit into 32 bits");
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
        fail_(L"The number " + std::to_wstring(value) + L" does not fit into 32 bits");
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

tkArchive& tkArchive::operator||(bool& value)
{
    unsigned char byte = isStoring() && value;
    exchangeBytes(&byte, 1);
    if (byte > 1)
        fail_(L"A truth value is neither 0 nor 1");
    if (isLoading())
        value = byte != 0;
    return *this;
}

tkArchive& tkArchive::operator||(std::wstring& text)
{
    std::string bytes;
    if (isStoring())
    {
        bool lossy = false;
        bytes = tkUtf8::encode(text, &lossy);
        if (lossy)
            fail_(L"A text holds what is no character of Unicode");
    }
    exchangeText_(bytes);
    if (isLoading() && !tkUtf8::decode(bytes, text))
        fail_(L"A text is not valid UTF-8");
    return *this;
}

void tkArchive::exchangeText_(std::string& bytes)
{
    if (bytes.size() > std::numeric_limits<Word>::max())
        fail_(L"A text is too long");
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

void tkArchive::exchangeVersion(const char* where, int number)
{
    unsigned char version = 0;
    *this || version;
    state_->failed = version > 0;
    requireVersion0(version, where, number);
}

void tkArchive::requireVersion0(unsigned char version, const char* where, int number)
{
    if (version > 0)
        throw UnknownVersion(where, number);
}

tkArchive& operator||(tkArchive& archive, unsigned char& byte)
{
    archive.exchangeBytes(&byte, 1);
    return archive;
}

tkArchive& operator||(tkArchive& archive, tkPersistent& object)
{
    const tkArchive::Exchange_ exchange(archive);
    if (!archive.state_->haveVisited(&object))
    {
        archive.exchangeObject_(object);
        archive.state_->visited.insert(&object);
    }
    return archive;
}

void tkArchive::nest_(long height)
{
    if (state_->nesting + height > state_->nestingLimit)
        fail_(L"More than " + std::to_wstring(state_->nestingLimit) + L" objects are nested");
    state_->deepest = std::max(state_->deepest, state_->nesting + height);
}

long tkArchive::exchangeObject_(tkPersistent& object)
{
    nest_(1);
    const std::size_t levels = state_->visitedLevels.size();
    const long outside = std::exchange(state_->deepest, ++state_->nesting);
    if (isStoring())
        object.dispatchSerialize(*this);
    else
        object.loadSimple(*this);
    const long height = state_->deepest - --state_->nesting;
    state_->deepest = std::max(state_->deepest, outside);
    state_->visitedLevels.resize(levels);
    return height;
}

void tkArchive::meetAgain_(Word number)
{
    const long height = state_->objects[number - 1].height;
    if (height == 0)
        fail_(L"Object " + std::to_wstring(number) + L" holds itself");
    nest_(height);
}

void tkArchive::storePointer_(tkPersistent* object)
{
    Word number = nullNumber;
    if (!object)
    {
        exchangeWord_(number);
        return;
    }

    const auto known = state_->numbers.find(object);
    if (known != state_->numbers.end())
    {
        number = known->second;
        meetAgain_(number);
        exchangeWord_(number);
        return;
    }

    const std::type_info& type = typeid(*object);
    Word typeNumber = static_cast<Word>(state_->storedTypes.size() + 1);
    const auto [knownType, isNewType] = state_->storedTypes.emplace(type, typeNumber);
    typeNumber = knownType->second;
    std::string typeName;
    if (isNewType)
    {
        typeName = tkPersistent::typeName(type);
        const tkPersistent::Registration* const registration = tkPersistent::Registration::find(typeName);
        if (!registration || !registration->isFor(type))
            fail_(L"The class " + shown(typeName) + L" is not registered");
    }
    if (state_->objects.size() >= std::numeric_limits<Word>::max())
        fail_(L"Too many objects");

    // An object that no handle holds yet may be on the stack: taking hold of it would delete it.
    tkRepBase* const counted = dynamic_cast<tkRepBase*>(object);
    number = static_cast<Word>(state_->objects.size() + 1);
    state_->objects.push_back(
        {object, tkPtrHandle<tkRepBase>(counted && counted->referenceCount() > 0 ? counted : nullptr)});
    state_->numbers.emplace(object, number);

    exchangeWord_(number);
    exchangeWord_(typeNumber);
    if (isNewType)
        exchangeText_(typeName);
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
}

tkPersistent* tkArchive::loadPointer_()
{
    Word number = nullNumber;
    exchangeWord_(number);
    if (number == nullNumber)
        return nullptr;

    const std::size_t known = state_->objects.size();
    if (number <= known)
    {
        meetAgain_(number);
        tkPersistent* const object = state_->objects[number - 1].object;
        if (!object && number <= state_->firstObject)
            fail_(L"Object " + std::to_wstring(number) + L" is no longer known");
        return object;
    }
    if (number != known + 1)
        fail_(L"Object " + std::to_wstring(number) + L" is not known");

    Word typeNumber = 0;
    exchangeWord_(typeNumber);
    if (typeNumber == state_->loadedTypes.size() + 1)
    {
        std::string typeName;
        exchangeText_(typeName);
        const tkPersistent::Registration* const registration = tkPersistent::Registration::find(typeName);
        if (!registration)
            fail_(L"The class " + shown(typeName) + L" is not known or has no objects");
        state_->loadedTypes.push_back(registration);
    }
    else if (typeNumber == 0 || typeNumber > state_->loadedTypes.size())
        fail_(L"Type " + std::to_wstring(typeNumber) + L" is not known");

    // What nobody counts belongs to the caller once it is whole, and to nobody else before.
    std::unique_ptr<tkPersistent> uncounted(state_->loadedTypes[typeNumber - 1]->create());
    tkPersistent* const object = uncounted.get();
    tkPtrHandle<tkRepBase> kept(dynamic_cast<tkRepBase*>(object));
    if (kept.isNull())
        state_->numbers.emplace(object, number);
    else
        static_cast<void>(uncounted.release());
    state_->objects.push_back({object, std::move(kept)});
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
    state_->unclaimed = uncounted.release();
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

void tkPersistent::serializePointer(tkArchive& archive, tkPersistent* stored, tkPersistent*& loaded)
{
    const tkArchive::Exchange_ exchange(archive);
    archive.state_->unclaimed = nullptr;
    if (archive.isStoring())
        archive.storePointer_(stored);
    else
        loaded = archive.loadPointer_();
}

bool tkPersistent::haveVisited(void* object, std::size_t classExtent)
{
    return haveVisitedLevel_(object, classExtent, nullptr);
}

void tkPersistent::setVisited(void* object, std::size_t classExtent)
{
    setVisitedLevel_(object, classExtent, nullptr);
}

bool tkPersistent::haveVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type)
{
    if (!running)
        return false;
    const auto& levels = static_cast<tkArchive::State_*>(running->state)->visitedLevels;
    return std::any_of(levels.rbegin(), levels.rend(),
                       [&](const tkArchive::State_::Level& level) {
                           return level.object == object && level.extent == classExtent &&
                                  (!type || !level.type || *type == *level.type);
                       });
}

void tkPersistent::setVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type)
{
    if (running)
        static_cast<tkArchive::State_*>(running->state)->visitedLevels.push_back({object, classExtent, type});
}

tkPersistent::~tkPersistent()
{
    for (const Running* r = running; r; r = r->enclosing)
        static_cast<tkArchive::State_*>(r->state)->forget(this);
}

const tkPersistent::Registration tkArchive::Errors::registration_(typeid(tkArchive::Errors), &tkArchive::Errors::make);

tkArchive::Errors::Errors(const std::wstring& message) : tkExceptionWithString(message) {}

long tkArchive::Errors::errorNumber() const
{
    return 0x10001001;
}

void tkArchive::Errors::suicideAndRethrow()
{
    const Errors copy(*this);
    delete this;
    throw copy;
}

void tkArchive::Errors::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &Errors::serialize_);
}

void tkArchive::Errors::serialize_(tkArchive& archive, unsigned char version)
{
    requireVersion0(version, "tkArchive::Errors");
    tkExceptionWithString::dispatchSerialize(archive);
}

tkPersistent* tkArchive::Errors::make()
{
    return new Errors;
}

const tkPersistent::Registration tkArchive::UnknownVersion::registration_(typeid(tkArchive::UnknownVersion),
                                                                          &tkArchive::UnknownVersion::make);

tkArchive::UnknownVersion::UnknownVersion(const char* where, int number)
    : Errors(L"A record has an unknown version" +
             (where ? L" (" + tkUtf8::readable(where) + L", " + std::to_wstring(number) + L")" : std::wstring())),
      where_(where ? where : ""),
      number_(number)
{
}

const std::string& tkArchive::UnknownVersion::where() const
{
    return where_;
}

long tkArchive::UnknownVersion::number() const
{
    return number_;
}

long tkArchive::UnknownVersion::errorNumber() const
{
    return 0x10001002;
}

void tkArchive::UnknownVersion::suicideAndRethrow()
{
    const UnknownVersion copy(*this);
    delete this;
    throw copy;
}

void tkArchive::UnknownVersion::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &UnknownVersion::serialize_);
}

void tkArchive::UnknownVersion::serialize_(tkArchive& archive, unsigned char version)
{
    requireVersion0(version, "tkArchive::UnknownVersion");
    Errors::dispatchSerialize(archive);
    archive.exchangeText_(where_);
    archive || number_;
}

tkPersistent* tkArchive::UnknownVersion::make()
{
    return new UnknownVersion;
}
