#include "foundation/tkPersistent.h"

#include "foundation/tkArchiveState.h"
#include "foundation/tkAssert.h"

#include <atomic>
#if defined(__GNUG__)
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#endif

namespace
{
// Registrations come during static initialisation, in any order between translation units: the head must
// need no constructor of its own.
std::atomic<tkPersistent::Registration*> latest{nullptr};
} // namespace

tkPersistent::Registration::Registration(const std::type_info& type, tkPersistent* (*make)())
    : type_(&type),
      typeName_(tkPersistent::typeName(type)),
      make_(make),
      next_(latest.load())
{
    while (!latest.compare_exchange_weak(next_, this))
    {
    }
}

tkPersistent::Registration::~Registration()
{
    Registration* first = this;
    if (latest.compare_exchange_strong(first, next_))
        return;
    for (Registration* r = first; r; r = r->next_)
        if (r->next_ == this)
        {
            r->next_ = next_;
            return;
        }
}

const tkPersistent::Registration* tkPersistent::Registration::find(const std::string& typeName)
{
    const Registration* r = latest.load();
    while (r && r->typeName_ != typeName)
        r = r->next_;
    return r;
}

bool tkPersistent::Registration::isFor(const std::type_info& type) const
{
    return *type_ == type;
}

std::vector<std::string> tkPersistent::Registration::typeNames()
{
    std::vector<std::string> names;
    for (const Registration* r = latest.load(); r; r = r->next_)
        names.push_back(r->typeName_);
    return names;
}

tkPersistent* tkPersistent::Registration::create() const
{
    tkPersistent* const object = make_();
    TK_ASSERT(object != nullptr);
    return object;
}

std::string tkPersistent::typeName(const std::type_info& type)
{
#if defined(__GNUG__)
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return name ? name.get() : type.name();
#else
    // Microsoft's compilers write the kind of type before the readable name.
    const std::string name = type.name();
    for (const std::string kind : {"class ", "struct "})
        if (name.compare(0, kind.size(), kind) == 0)
            return name.substr(kind.size());
    return name;
#endif
}

// At home here, where every object that dies asks for it.
thread_local const tkArchive::Exchange_* tkArchive::Exchange_::innermost_ = nullptr;

tkPersistent::~tkPersistent()
{
    for (const auto* exchange = tkArchive::Exchange_::innermost(); exchange; exchange = exchange->enclosing())
        exchange->state().forget(this);
}

void tkPersistent::serializePointer(tkArchive& archive, tkPersistent* stored, tkPersistent*& loaded)
{
    tkArchive::Exchange_ exchange(archive);
    exchange.state().unclaimed = nullptr;
    if (archive.isLoading())
        loaded = archive.loadPointer_();
    else
        archive.storePointer_(stored);
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
    const auto* const exchange = tkArchive::Exchange_::innermost();
    if (!exchange)
        return false;
    for (const tkArchive::State_::Level& level : exchange->state().visitedLevels)
        if (level.object == object && level.extent == classExtent && (!type || !level.type || *type == *level.type))
            return true;
    return false;
}

void tkPersistent::setVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type)
{
    if (const auto* const exchange = tkArchive::Exchange_::innermost())
        exchange->state().visitedLevels.push_back({object, classExtent, type});
}

void tkPersistent::dispatchSerialize(tkArchive& archive)
{
    exchangeLevel_(archive, this, &tkPersistent::serialize_);
}

void tkPersistent::serialize_(tkArchive&, unsigned char) {}

void tkPersistent::reInit() {}

void tkPersistent::loadSimple(tkArchive& archive)
{
    dispatchSerialize(archive);
    reInit();
}

unsigned char tkPersistent::exchangeVersion_(tkArchive& archive, unsigned char newest, const char* where)
{
    return archive.exchangeVersion(where, 0, newest);
}
