#ifndef CLSS_CLASTOOL_CLASTOOL_TK_PERSISTENTCLASSES_H
#define CLSS_CLASTOOL_CLASTOOL_TK_PERSISTENTCLASSES_H

#include "foundation/tkExport.h"

#include <typeinfo>
#include <vector>

/// Every class of the library that an archive can create.
///
/// A linker takes from a static library only what is referred to, and nothing refers to a class that is
/// created by name alone: its registration would be missing from the program. The records of the base classes
/// whose derived classes live in other files call this list, and the list refers to them all.
TK_EXPORT const std::vector<const std::type_info*>& tk_persistentClasses();

#endif
