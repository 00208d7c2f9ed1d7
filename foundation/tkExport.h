#ifndef FOUNDATION_TKEXPORT_H
#define FOUNDATION_TKEXPORT_H

#include <cfloat>

#if defined(_MSVC_LANG) ? _MSVC_LANG < 201703L : __cplusplus < 201703L
#error "clastool needs C++17: compile with -std=c++17 or /std:c++17, or a later standard"
#endif
#if !defined(__cpp_rtti) && !defined(__GXX_RTTI) && !defined(_CPPRTTI)
#error "clastool needs run-time type information: compile without -fno-rtti or /GR-"
#endif
// Doubles that are rounded when they are stored, and not when they are computed, would give other bits.
#if FLT_EVAL_METHOD == 2 || (FLT_EVAL_METHOD < 0 && !defined(__FAST_MATH__))
#error "clastool needs arithmetic of double precision: compile for x86 with -msse2 -mfpmath=sse"
#endif

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
