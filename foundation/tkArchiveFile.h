#ifndef FOUNDATION_TKARCHIVEFILE_H
#define FOUNDATION_TKARCHIVEFILE_H

#include "foundation/tkArchiveErrors.h"

#include <filesystem>
#include <functional>
#include <type_traits>
#include <typeinfo>
#include <utility>

/// Saves an object to a file and loads it again: any object for which `archive || object` is declared.
///
/// The file holds a mark, a format version, the length of the archive, the name of the object's class, the archive and
/// a checksum. The name is left out where it depends on the compiler: that of a template's instance. Whatever goes
/// wrong with a file throws tkArchive::Errors with its path and the cause; exceptions of the object's own record that
/// are not tkArchive::Errors pass on unchanged.
///
/// On POSIX systems several threads and processes may save and load one path at the same time: who loads gets the whole
/// object of one of the savings, and the one that was put in its place last stays. docs/records.md has the bytes.
class TK_EXPORT tkArchiveFile
{
public:
    /// Writes a file beside `path`, flushes it to the disk and puts it in the place of `path`: after a
    /// failure, a crash or with a full disk the old file is there unchanged, or the whole new one. A
    /// failure removes the file beside; a crash may leave it (".tk-*.tmp"). Only a regular file that may be
    /// written is replaced, and its permissions are kept (on Windows the new file has those of its folder);
    /// where `path` is a symbolic link, the file that it leads to is replaced.
    ///
    /// Throws in this order: for links in a ring, for a directory, for what else is no regular file, for a folder or
    /// file that may not be written; then what the record of `object` throws; then for a disk that takes no more, and
    /// on Windows for an old file that somebody has open. Takes 128 KiB of memory besides what the record needs, and
    /// waits for the disk.
    template <class Object>
    static void save(const std::filesystem::path& path, const Object& object,
                     long nestingLimit = tkArchive::defaultNestingLimit)
    {
        // One operator serves both directions; storing only reads.
        save_(path, nestingLimit, {typeid(object), std::is_class_v<Object>},
              [&](tkArchive& archive) { archive || const_cast<Object&>(object); });
    }

    /// Checks the whole file before any of it is made an object, loads a new object that must take all of the archive,
    /// and swaps it with `object`, which keeps its value if anything throws. A file that holds an object of another
    /// class is refused and its class named; files without a name are loaded as what is asked for. *Requires*, when
    /// compiled, an object that has a default constructor and a swap that cannot throw. `nestingLimit`: see tkArchive.
    ///
    /// Throws in this order: for a path that is no regular file or cannot be read; for a file that is no archive, that
    /// a transfer in text mode has changed, that is cut short or of an unknown format, that is too long, or whose
    /// checksum does not match; for another class; what the record throws; for bytes that the record leaves over.
    /// Reads the file twice.
    template <class Object>
    static void load(const std::filesystem::path& path, Object& object,
                     long nestingLimit = tkArchive::defaultNestingLimit)
    {
        static_assert(std::is_nothrow_swappable_v<Object>, "loading must not fail once the object is there");
        Object loaded{};
        load_(path, nestingLimit, {typeid(Object), std::is_class_v<Object>},
              [&](tkArchive& archive) { archive || loaded; });
        using std::swap;
        swap(object, loaded);
    }

private:
    struct Type_
    {
        const std::type_info& info;
        bool isClass;
    };
    using Exchange_ = std::function<void(tkArchive&)>;

    static void save_(const std::filesystem::path& path, long nestingLimit, const Type_& type,
                      const Exchange_& exchange);
    static void load_(const std::filesystem::path& path, long nestingLimit, const Type_& type,
                      const Exchange_& exchange);
};

#endif
