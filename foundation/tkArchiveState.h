#ifndef FOUNDATION_TKARCHIVESTATE_H
#define FOUNDATION_TKARCHIVESTATE_H

#include "foundation/tkAddressTable.h"
#include "foundation/tkArchive.h"
#include "foundation/tkArchiveStream.h"
#include "foundation/tkPtrHandle.h"

#include <cstdint>
#include <typeindex>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

/// What an archive knows besides its direction: the objects and types that it has met, and what it has exchanged in
/// the running outermost exchange.
struct tkArchive::State_
{
    using Word = std::uint32_t;

    /// Number that means "no object".
    static constexpr Word nullNumber = 0;

    /// An object that was stored or loaded; its number in the archive is its index + 1.
    struct Object
    {
        tkPersistent* object = nullptr; // null: no longer known
        tkPtrHandle<tkRepBase> kept;    // null: cannot be kept, known while it lives and the outermost exchange lasts
        long height = 0;                // nesting of objects in it, itself included; 0: still being exchanged
    };

    /// A level of an object whose record is done; without a type: marked from outside.
    struct Level
    {
        void* object;
        std::size_t extent;
        const std::type_info* type;
    };

    template <class Stream>
    explicit State_(Stream& target) : stream(target)
    {
    }

    tkArchiveStream stream;

    long nestingLimit = defaultNestingLimit;
    long nesting = 0; // of the object being exchanged
    long deepest = 0; // nesting that was reached in it

    std::vector<Object> objects;
    tkAddressTable numbers;            // of the stored objects and of those not kept
    std::vector<Word> notKept;         // numbers of those of the running outermost exchange
    tkPersistent* unclaimed = nullptr; // not kept, created by the latest exchange of a pointer

    std::unordered_map<std::type_index, Word> storedTypes;
    const std::type_info* latestType = nullptr; // of the object stored last, which is often that of the next one
    Word latestTypeNumber = nullNumber;
    std::vector<const tkPersistent::Registration*> loadedTypes;

    // Of the running outermost exchange: levels of the objects being exchanged, and objects done. Those done
    // by pointer stand in `objects` from `firstObject` on and enter `visited` when it is next consulted.
    long exchanges = 0;
    std::vector<Level> visitedLevels;
    std::unordered_set<const tkPersistent*> visited;
    std::size_t firstObject = 0;
    std::size_t consulted = 0;

    /// Registers an object under the next number. An archive finds an object that it has stored by its address; one
    /// that is loaded it finds by its number alone, unless it cannot keep it: such an object may die.
    Word add(tkPersistent* object, tkPtrHandle<tkRepBase> kept, bool isLoading);

    bool haveVisited(const tkPersistent* object);

    /// Forgets an object that dies: an address that is free again says nothing about the next object there.
    void forget(tkPersistent* object);

    /// Ends an outermost exchange.
    void forgetExchange();

    /// Text for messages; of a long name the beginning.
    static std::wstring shown(const std::string& typeName);
};

/// One exchange of an object by value or by pointer. The outermost one gives the visited marks their life;
/// while it runs, they are those of the thread. Archives may be used within each other's exchanges.
class tkArchive::Exchange_
{
public:
    explicit Exchange_(tkArchive& archive);

    /// To be called when all is exchanged; without that the exchange has failed, and the archive with it.
    void finish();

    ~Exchange_();
    Exchange_(const Exchange_&) = delete;
    Exchange_& operator=(const Exchange_&) = delete;

    /// The exchanges that run on this thread, innermost first.
    static const Exchange_* innermost() { return innermost_; }
    const Exchange_* enclosing() const { return enclosing_; }
    State_& state() const { return state_; }

private:
    State_& state_;
    const Exchange_* const enclosing_;
    bool finished_ = false;

    static thread_local const Exchange_* innermost_;
};

#endif
