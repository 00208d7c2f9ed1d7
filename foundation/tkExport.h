#ifndef FOUNDATION_TKEXPORT_H
#define FOUNDATION_TKEXPORT_H

/// Marks what the shared library shows to its users. The library is built with hidden visibility;
/// a class marked here also shows its type information, so that exceptions and dynamic_cast work
/// across shared libraries. A static build defines CLASTOOL_STATIC for itself and its users.
#if defined(_WIN32)
#if defined(CLASTOOL_STATIC)
#define TK_EXPORT
#elif defined(CLASTOOL_BUILDING)
#define TK_EXPORT __declspec(dllexport)
#else
#define TK_EXPORT __declspec(dllimport)
#endif
#else
#define TK_EXPORT __attribute__((visibility("default")))
#endif

#endif
