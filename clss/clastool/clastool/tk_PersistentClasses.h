#ifndef CLSS_CLASTOOL_CLASTOOL_TK_PERSISTENTCLASSES_H
#define CLSS_CLASTOOL_CLASTOOL_TK_PERSISTENTCLASSES_H

#include "foundation/tkPersistent.h"

#include <vector>

/// Every class of the library that an archive can create.
TK_EXPORT const std::vector<const tkPersistent::Registration*>& tk_persistentClasses();

/// Makes every program that uses the caller contain all of these classes. A linker takes from a static library only
/// the object files that are referred to, and nothing refers to a class that is created by name alone: without this
/// reference its registration would be missing. Called by the records of base classes whose derived classes live in
/// other files.
inline void tk_linkPersistentClasses()
{
    static_cast<void>(tk_persistentClasses());
}

#endif
