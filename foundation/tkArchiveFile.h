#ifndef FOUNDATION_TKARCHIVEFILE_H
#define FOUNDATION_TKARCHIVEFILE_H

#include "foundation/tkArchive.h"

#include <filesystem>
#include <functional>
#include <utility>

/// Saves an object to a file and loads it again: any object that an archive exchanges.
///
/// The file holds a mark, a format version, the length of the archive, the archive and a checksum.
/// Whatever goes wrong with a file throws tkArchive::Errors with its path and the cause; exceptions
/// of the object's own record that are not tkArchive::Errors pass on unchanged.
class TK_EXPORT tkArchiveFile
{
public:
    /// Writes a file beside `path`, flushes it to the disk and puts it in the place of `path`: after a
    /// failure, a crash or with a full disk the old file is there unchanged, or the whole new one. A
    /// failure removes the file beside; a crash may leave it (".tk-*.tmp"). Only a regular file that may be
    /// written is replaced, and its permissions are kept (on Windows the new file has those of its folder);
    /// where `path` is a symbolic link, the file that it leads to is replaced.
    template <class Object>
    static void save(const std::filesystem::path& path, const Object& object,
                     long nestingLimit = tkArchive::defaultNestingLimit)
    {
        // One operator serves both directions; storing only reads.
        save_(path, nestingLimit, [&](tkArchive& archive) { archive || const_cast<Object&>(object); });
    }

    /// Checks the whole file before any of it is made an object, loads a new object that must take all
    /// of the archive, and moves it into `object`, which keeps its value if anything throws.
    template <class Object>
    static void load(const std::filesystem::path& path, Object& object,
                     long nestingLimit = tkArchive::defaultNestingLimit)
    {
        Object loaded{};
        load_(path, nestingLimit, [&](tkArchive& archive) { archive || loaded; });
        object = std::move(loaded);
    }

private:
    using Exchange_ = std::function<void(tkArchive&)>;

    static void save_(const std::filesystem::path& path, long nestingLimit, const Exchange_& exchange);
    static void load_(const std::filesystem::path& path, long nestingLimit, const Exchange_& exchange);
};

#endif
