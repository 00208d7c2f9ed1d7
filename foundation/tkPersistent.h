#ifndef FOUNDATION_TKPERSISTENT_H
#define FOUNDATION_TKPERSISTENT_H

#include "foundation/tkRepBase.h"

#include <cstddef>
#include <string>
#include <typeinfo>
#include <vector>

class tkArchive;

/// Root of the classes that are stored in and loaded from a tkArchive.
///
/// Each level of a class chain writes one record, base levels first: its dispatchSerialize()
/// exchanges a version byte, calls its serialize_() and marks the level visited, so that several
/// paths to one level (virtual bases, members reached twice) write it once. Concrete classes register
/// a factory, so that an archive can create them. The macros below write all of that but serialize_().
class TK_EXPORT tkPersistent
{
public:
    tkPersistent() noexcept = default;
    tkPersistent(const tkPersistent&) noexcept = default;
    tkPersistent& operator=(const tkPersistent&) noexcept = default;
    virtual ~tkPersistent();

    /// Exchanges a pointer. Storing: writes the object that `stored` points to (its type and record; once per
    /// archive, a mere number when met again), or null. Loading: `loaded` becomes the object, which
    /// the archive created or has loaded before, or null. A reference-counted object belongs to the
    /// handles that hold it and to the archive; any other loaded one belongs to the first caller who
    /// receives it, and the archive knows it for the present outermost exchange only.
    /// Throws tkArchive::Errors for what cannot be stored (a cycle, an unregistered class, too deep
    /// nesting) and for damaged input.
    static void serializePointer(tkArchive& archive, tkPersistent* stored, tkPersistent*& loaded);

    /// Whether a level of size `classExtent` at `object` was marked in the running outermost exchange of
    /// this thread. False when none is running.
    static bool haveVisited(void* object, std::size_t classExtent);
    /// Marks that level. The mark lasts until the object's record ends, at the latest until the outermost
    /// exchange does, also by an exception; an object whose record is done is marked as a whole.
    static void setVisited(void* object, std::size_t classExtent);

    /// Name under which archives know the type: its qualified name, the same from every compiler.
    static std::string typeName(const std::type_info& type);

    /// Makes a concrete class known to archives for as long as it lives: one static object per class.
    /// *Requires* that no archive is in use on another thread while a plug-in's registrations come or go.
    class TK_EXPORT Registration
    {
    public:
        /// `make` gives a new default-constructed object of the class. Of several registrations under one name the
        /// latest counts as long as it lives.
        Registration(const std::type_info& type, tkPersistent* (*make)());
        ~Registration();
        Registration(const Registration&) = delete;
        Registration& operator=(const Registration&) = delete;

        /// The latest registration under this name, or null.
        static const Registration* find(const std::string& typeName);
        /// Whether objects of this very class come from create().
        bool isFor(const std::type_info& type) const;
        /// The names of all registrations, the latest first.
        static std::vector<std::string> typeNames();
        /// A new default-constructed object, owned by the caller.
        tkPersistent* create() const;

    private:
        const std::type_info* type_;
        std::string typeName_;
        tkPersistent* (*make_)();
        Registration* next_; // the one registered before this, or null
    };

    /// The registration of a class with TK_FACTORY_RECORD. A program that refers to it contains the class, also where
    /// it comes from a static library; typeid(Class) brings it on some platforms only.
    template <class Class>
    static const Registration& registrationOf()
    {
        return Class::registration_;
    }

protected:
    /// The record entry of the most derived class; this root's record is one version byte. Throws what the fields'
    /// operators throw: tkArchive::Errors for an archive that fails, tkArchive::UnknownVersion among them.
    virtual void dispatchSerialize(tkArchive& archive);
    /// Called when a record has been loaded whole, to rebuild what is not stored. Does nothing.
    virtual void reInit();
    /// Loads the record of this very object, then calls reInit(). If the record throws, reInit() is not called and the
    /// object is partly loaded.
    virtual void loadSimple(tkArchive& archive);

    /// The record of one level: nothing if the level was visited, else version byte, fields, mark. Storing writes
    /// the version `newest`; loading reads it and all older ones, and throws tkArchive::UnknownVersion(where, 0) for
    /// a newer one. `serialize` gets the version that it shall exchange. The mark also names the class, for another
    /// level may have the address and the size of this one.
    template <class Level>
    static void exchangeLevel_(tkArchive& archive, Level* level, void (Level::*serialize)(tkArchive&, unsigned char),
                               unsigned char newest = 0, const char* where = nullptr)
    {
        if (haveVisitedLevel_(level, sizeof(Level), &typeid(Level)))
            return;
        (level->*serialize)(archive, exchangeVersion_(archive, newest, where));
        setVisitedLevel_(level, sizeof(Level), &typeid(Level));
    }

private:
    friend class tkArchive;

    void serialize_(tkArchive& archive, unsigned char version);
    static unsigned char exchangeVersion_(tkArchive& archive, unsigned char newest, const char* where);
    // Without a type: any level of that extent.
    static bool haveVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type);
    static void setVisitedLevel_(void* object, std::size_t classExtent, const std::type_info* type);
};

/// Declares the record of a class that archives do not create, an abstract one for instance; what follows is protected.
/// The class defines `void serialize_(tkArchive& archive, unsigned char version)`: the base's dispatchSerialize(), by
/// its qualified name, then the fields in a fixed order. Storing, `version` is the newest; loading, what was stored.
#define TK_RECORD                                                                                                      \
protected:                                                                                                             \
    void dispatchSerialize(tkArchive& archive) override;                                                               \
    void serialize_(tkArchive& archive, unsigned char version)

/// The same for a concrete class, which archives create by make(); what follows is private.
#define TK_FACTORY_RECORD                                                                                              \
    TK_RECORD;                                                                                                         \
                                                                                                                       \
private:                                                                                                               \
    friend class tkPersistent;                                                                                         \
    static tkPersistent* make();                                                                                       \
    static const tkPersistent::Registration registration_

/// Defines what TK_RECORD declares. The further arguments are the newest version of the record and, if
/// tkArchive::UnknownVersion names the class, its name.
#define TK_DEFINE_RECORD(Class, ...)                                                                                   \
    void Class::dispatchSerialize(tkArchive& archive)                                                                  \
    {                                                                                                                  \
        exchangeLevel_(archive, this, &Class::serialize_, __VA_ARGS__);                                                \
    }

/// Defines what TK_FACTORY_RECORD declares, for a class with a default constructor.
#define TK_DEFINE_FACTORY_RECORD(Class, ...)                                                                           \
    TK_DEFINE_RECORD(Class, __VA_ARGS__)                                                                               \
    const tkPersistent::Registration Class::registration_(typeid(Class), &Class::make);                                \
    tkPersistent* Class::make()                                                                                        \
    {                                                                                                                  \
        return new Class;                                                                                              \
    }

#endif
