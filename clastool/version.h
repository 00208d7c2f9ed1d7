#ifndef CLASTOOL_VERSION_H
#define CLASTOOL_VERSION_H

#include "foundation/tkExport.h"

/// Version of the headers that a program is compiled with. It is written down here and nowhere else. Before 1.0 every
/// minor version may change the interface.
#define CLASTOOL_VERSION_MAJOR 0
#define CLASTOOL_VERSION_MINOR 1
#define CLASTOOL_VERSION_PATCH 0
#define CLASTOOL_VERSION "0.1.0"

/// Version of the library that the program runs with, in the form of CLASTOOL_VERSION. The two differ where a shared
/// library was replaced by another one.
TK_EXPORT const char* tkVersion() noexcept;

#endif
