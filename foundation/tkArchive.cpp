#include "foundation/tkArchive.h"

#include "foundation/tkAddressTable.h"
#include "foundation/tkAssert.h"
#include "foundation/tkPrefetch.h"
#include "foundation/tkPtrHandle.h"
#include "foundation/tkUtf8.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <istream>
#include <limits>
#include <numeric>
#include <ostream>
#include <typeindex>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8, "archives hold IEEE doubles");

namespace
{
using Word = std::uint32_t;

/// Number that means "no object".
constexpr Word nullNumber = 0;

/// So many bytes are gathered before the stream gets them: calling it for each number takes longer than the number, and
/// a file's stream passes more than 1 KiB on to the system at once, which takes long each time.
constexpr std::size_t bufferSize = 65536;

/// Memory for data of a length that the input claims is taken in steps, so that a false claim costs little.
constexpr std::size_t textStep = 4096;

/// So much of a type's name goes into a message.
constexpr std::size_t shownTypeName = 200;
} // namespace

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
        /// Built in its place: a copy taken right after the fields were written one by one has to wait for them.
        Level(void* object, std::size_t extent, const std::type_info* type) : object(object), extent(extent), type(type)
        {
        }

        void* object;
        std::size_t extent;
        const std::type_info* type;
    };

    std::ostream* out = nullptr;
    std::istream* in = nullptr;
    unsigned long long position = 0; // of what the stream has
    bool failed = false;

    std::unique_ptr<unsigned char[]> buffer; // of bytes that were stored and that the stream has yet to get; null: none

    long nestingLimit = defaultNestingLimit;
    long nesting = 0; // of the object being exchanged
    long deepest = 0; // nesting that was reached in it

    // In one piece: blocks of it between the loaded objects would break the regular distances at which these lie, and
    // slow down all who walk over them later.
    std::vector<Object> objects;
    tkAddressTable numbers;            // of stored objects, but for the latest ones, and of those not kept
    std::size_t entered = 0;           // so many are in it; the stored ones that follow ascend in their addresses
    std::vector<Word> notKept;         // numbers of those of the running outermost exchange
    tkPersistent* unclaimed = nullptr; // not kept, created by the latest exchange of a pointer

    std::unordered_map<std::type_index, Word> storedTypes;
    const std::type_info* latestType = nullptr; // of the object stored last, which is often that of the next one
    Word latestTypeNumber = 0;
    std::vector<const tkPersistent::Registration*> loadedTypes;

    // Of the running outermost exchange: levels of the objects being exchanged, and objects done. Those done
    // by pointer stand in `objects` from `firstObject` on and enter `visited` when it is next consulted.
    long exchanges = 0;
    std::vector<Level> visitedLevels;
    std::unordered_set<const tkPersistent*> visited;
    std::size_t firstObject = 0;
    std::size_t consulted = 0;

    /// The next object. By its address an archive knows what it stores and, while it lives, what it does not hold.
    void add(tkPersistent* object, tkPtrHandle<tkRepBase> kept)
    {
        const bool isKept = !kept.isNull();
        objects.push_back({object, std::move(kept)});
        if (isKept)
            return;
        const std::size_t number = objects.size();
        if (in)
            entered = number - 1; // who loads looks up no other
        enter();
        notKept.push_back(static_cast<Word>(number));
    }

    /// Number of an object that is to be stored. Objects were often made in the order in which they are stored, and
    /// lie in memory in that order: one that is behind those of the latest ascent is none of them, and as long as no
    /// other comes they need not enter the table, which for many objects is larger than the caches.
    Word numberOf(const tkPersistent* object)
    {
        if (entered < objects.size() && !std::less<const tkPersistent*>()(objects.back().object, object))
        {
            numbers.reserve(objects.size());
            enter();
        }
        return numbers.find(object);
    }

    void enter()
    {
        for (; entered < objects.size(); ++entered)
            numbers.insert(objects[entered].object, static_cast<Word>(entered + 1));
    }

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
        const Word number = numbers.find(object);
        if (number != nullNumber)
        {
            objects[number - 1].object = nullptr;
            numbers.erase(object);
        }
    }
};

namespace
{
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
    explicit Exchange_(tkArchive& archive) : archive_(archive), state_(*archive.state_), link_{&state_, running}
    {
        archive.requireSound_();
        running = &link_;
        if (state_.exchanges++ == 0)
        {
            state_.firstObject = state_.consulted = state_.objects.size();
            archive.openBuffer_();
        }
    }

    /// To be called when all is exchanged; without that the exchange has failed, and the archive with it.
    void finish()
    {
        if (state_.exchanges == 1)
            archive_.flush_();
        finished_ = true;
    }

    ~Exchange_()
    {
        running = link_.enclosing;
        if (!finished_)
            fail_();
        if (--state_.exchanges == 0)
            forget_();
    }

    Exchange_(const Exchange_&) = delete;
    Exchange_& operator=(const Exchange_&) = delete;

private:
    /// The stream still gets what was stored before the failure, as far as it takes it.
    void fail_()
    {
        try
        {
            archive_.flush_();
        }
        catch (...) // the failure that ended the exchange is on its way already
        {
        }
        archive_.setFailed_();
    }

    void forget_()
    {
        archive_.openBuffer_();
        state_.visitedLevels.clear();
        state_.visited.clear();
        for (const Word number : state_.notKept)
            if (tkPersistent* const object = std::exchange(state_.objects[number - 1].object, nullptr))
                state_.numbers.erase(object);
        state_.notKept.clear();
    }

    tkArchive& archive_;
    State_& state_;
    Running link_;
    bool finished_ = false;
};

tkArchive::tkArchive(std::ostream& stream) : isLoading_(false), state_(new State_)
{
    state_->out = &stream;
    state_->buffer.reset(new unsigned char[bufferSize]);
    openBuffer_();
}

tkArchive::tkArchive(std::istream& stream) : isLoading_(true), state_(new State_)
{
    state_->in = &stream;
}

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
    return state_->position + static_cast<std::size_t>(next_ - state_->buffer.get());
}

void tkArchive::fail_(const std::wstring& what)
{
    setFailed_();
    throw Errors(what + (isLoading() ? L" (reading, at byte " : L" (writing, at byte ") + std::to_wstring(position()) +
                 L")");
}

void tkArchive::setFailed_()
{
    state_->failed = true;
    end_ = next_;
}

void tkArchive::openBuffer_()
{
    next_ = state_->buffer.get();
    end_ = next_ + (state_->out && !state_->failed && state_->exchanges > 0 ? bufferSize : 0);
}

void tkArchive::requireSound_()
{
    if (state_->failed)
        fail_(L"An earlier exchange with this archive failed");
}

void tkArchive::exchangeBytes_(unsigned char* bytes, std::size_t count)
{
    requireSound_();
    if (isLoading())
    {
        if (take_(bytes, count) < count)
            fail_(L"The data end early");
        state_->position += count;
    }
    else
    {
        flush_();
        if (!gather_(bytes, count))
            write_(bytes, count);
    }
}

std::size_t tkArchive::take_(unsigned char* bytes, std::size_t count)
{
    try
    {
        if (state_->in->fail())
            fail_(L"The stream cannot be read");
        const auto wanted = static_cast<std::streamsize>(count);
        const std::streamsize got = state_->in->rdbuf()->sgetn(reinterpret_cast<char*>(bytes), wanted);
        return static_cast<std::size_t>(std::clamp<std::streamsize>(got, 0, wanted));
    }
    catch (const std::ios_base::failure&)
    {
        fail_(L"The stream cannot be read");
    }
    catch (...) // the stream may throw whatever it likes
    {
        setFailed_();
        throw;
    }
}

void tkArchive::write_(const unsigned char* bytes, std::size_t count)
{
    const auto wanted = static_cast<std::streamsize>(count);
    try
    {
        if (state_->out->fail())
            fail_(L"The stream cannot be written");
        const std::streamsize put = state_->out->rdbuf()->sputn(reinterpret_cast<const char*>(bytes), wanted);
        state_->position += static_cast<std::size_t>(std::clamp<std::streamsize>(put, 0, wanted));
        if (put != wanted)
            fail_(L"The stream cannot be written");
    }
    catch (const std::ios_base::failure&)
    {
        fail_(L"The stream cannot be written");
    }
    catch (...)
    {
        setFailed_();
        throw;
    }
}

void tkArchive::flush_()
{
    const auto count = static_cast<std::size_t>(next_ - state_->buffer.get());
    openBuffer_();
    if (count > 0)
        write_(state_->buffer.get(), count);
}

void tkArchive::exchangeWord_(Word& word)
{
    if (gatherWord_(word))
        return;
    unsigned char bytes[4];
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
    exchangeBytes_(bytes, 4);
    word = bytes[0] | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

void tkArchive::exchangeLong_(long& value)
{
    if (isStoring() &&
        (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()))
        fail_(L"The number " + std::to_wstring(value) + L" does not fit into 32 bits");
    Word word = isStoring() ? static_cast<Word>(value) : 0;
    exchangeWord_(word);
    if (isLoading())
        value = word <= 0x7FFFFFFF ? static_cast<long>(word) : -static_cast<long>(~word) - 1;
}

void tkArchive::exchangeUnsignedLong_(unsigned long& value)
{
    isStoring() ? *this << value : *this >> value;
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
    exchangeBools(&byte, 1);
    if (isLoading())
        value = byte != 0;
    return *this;
}

void tkArchive::exchangeBools_(unsigned char* flags, std::size_t count)
{
    if (isStoring())
        return exchangeBytes_(flags, count);
    requireSound_();
    const std::size_t got = take_(flags, count);
    if (std::accumulate(flags, flags + got, 0U, std::bit_or<>()) > 1)
    {
        const auto isDamaged = [](unsigned char flag) { return flag > 1; };
        state_->position += static_cast<std::size_t>(std::find_if(flags, flags + got, isDamaged) - flags) + 1;
        fail_(L"A truth value is neither 0 nor 1");
    }
    state_->position += got;
    if (got < count)
        fail_(L"The data end early");
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

unsigned char tkArchive::exchangeVersion_(const char* where, int number, unsigned char newest)
{
    unsigned char version = newest;
    *this || version;
    if (version > newest)
    {
        setFailed_();
        failVersion_(where, number);
    }
    return version;
}

void tkArchive::failVersion_(const char* where, int number)
{
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
        fail_(L"More than " + std::to_wstring(state_->nestingLimit) + L" objects are nested");
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
        fail_(L"Object " + std::to_wstring(number) + L" holds itself");
    nest_(height);
}

void tkArchive::storePointer_(tkPersistent* object, tkPersistent::Counted counted)
{
    Word number = nullNumber;
    if (!object)
    {
        exchangeWord_(number);
        return;
    }

    number = state_->numberOf(object);
    if (number != nullNumber)
    {
        meetAgain_(number);
        exchangeWord_(number);
        return;
    }

    std::string newTypeName;
    Word typeNumber = storedType_(typeid(*object), newTypeName);
    if (state_->objects.size() >= std::numeric_limits<Word>::max())
        fail_(L"Too many objects");

    // An object that no handle holds yet may be on the stack: taking hold of it would delete it.
    tkRepBase* const base = counted(*object);
    state_->add(object, tkPtrHandle<tkRepBase>(base && base->referenceCount() > 0 ? base : nullptr));
    number = static_cast<Word>(state_->objects.size());
    exchangeWord_(number);
    exchangeWord_(typeNumber);
    if (!newTypeName.empty())
        exchangeText_(newTypeName);
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
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
            fail_(L"The class " + shown(newName) + L" is not registered");
    }
    state_->latestType = &type;
    state_->latestTypeNumber = known->second;
    return known->second;
}

tkPersistent* tkArchive::loadPointer_(tkPersistent::Counted counted)
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
    tkPtrHandle<tkRepBase> kept(counted(*object));
    if (kept)
        static_cast<void>(uncounted.release());
    state_->add(object, std::move(kept));
    const long height = exchangeObject_(*object);
    state_->objects[number - 1].height = height;
    state_->unclaimed = uncounted.release();
    return object;
}

void tkArchive::expectPointers(std::size_t count)
{
    TK_ASSERT(isStoring());
    std::vector<State_::Object>& objects = state_->objects;
    const std::size_t size = objects.size() + count;
    if (size > objects.capacity())
        objects.reserve(std::max(size, 2 * objects.capacity())); // many small rooms must not cost a move each
}

void tkArchive::expectPointer(const tkPersistent* object) const
{
    tkPrefetch(object);
    state_->numbers.prefetch(object);
}

void tkArchive::discardLoaded(tkPersistent* object)
{
    if (object == state_->unclaimed)
    {
        state_->forget(object);
        delete object;
    }
}

void tkPersistent::serializePointer(tkArchive& archive, tkPersistent* stored, tkPersistent*& loaded, Counted counted)
{
    tkArchive::Exchange_ exchange(archive);
    archive.state_->unclaimed = nullptr;
    if (archive.isStoring())
        archive.storePointer_(stored, counted);
    else
        loaded = archive.loadPointer_(counted);
    exchange.finish();
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
    for (const tkArchive::State_::Level& level : static_cast<tkArchive::State_*>(running->state)->visitedLevels)
        if (level.object == object && level.extent == classExtent && (!type || !level.type || *type == *level.type))
            return true;
    return false;
}

void tkPersistent::setVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type)
{
    if (running)
        static_cast<tkArchive::State_*>(running->state)->visitedLevels.emplace_back(object, classExtent, type);
}

tkPersistent::~tkPersistent()
{
    for (const Running* r = running; r; r = r->enclosing)
        static_cast<tkArchive::State_*>(r->state)->forget(this);
}

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

TK_DEFINE_FACTORY_RECORD(tkArchive::Errors, 0, "tkArchive::Errors")

void tkArchive::Errors::serialize_(tkArchive& archive, unsigned char)
{
    tkExceptionWithString::dispatchSerialize(archive);
}

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

TK_DEFINE_FACTORY_RECORD(tkArchive::UnknownVersion, 0, "tkArchive::UnknownVersion")

void tkArchive::UnknownVersion::serialize_(tkArchive& archive, unsigned char)
{
    Errors::dispatchSerialize(archive);
    archive.exchangeText_(where_);
    archive || number_;
}
