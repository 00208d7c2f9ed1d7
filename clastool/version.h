#ifndef CLASTOOL_VERSION_H
#define CLASTOOL_VERSION_H

#include "foundation/tkExport.h"

/// Version of the headers that a program is compiled with, as numbers and as a text of three numbers with points
/// between them. It is written down here and nowhere else. Before 1.0 every minor version may change the interface.
#define CLASTOOL_VERSION_MAJOR 0
#define CLASTOOL_VERSION_MINOR 1
#define CLASTOOL_VERSION_PATCH 0
#define CLASTOOL_VERSION "0.1.0"

/// Version of the library that the program runs with, in the form of CLASTOOL_VERSION. The two differ where a shared
/// library was replaced by another one: a program that cannot do with any other compares them when it starts. The text
/// lasts as long as the library is loaded.
TK_EXPORT const char* tkVersion() noexcept;

#endif
