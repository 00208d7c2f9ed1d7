#ifndef FOUNDATION_TKEXPORT_H
#define FOUNDATION_TKEXPORT_H

// What the library requires of the compiler and the options of whoever includes one of its headers. What does not meet
// it is refused here, with the option to change, and not by errors in the middle of a header or by other results.

// For FLT_EVAL_METHOD: in how many bits the processor computes.
#include <cfloat>

// The headers use std::filesystem, fold expressions and inline variables.
#if defined(_MSVC_LANG) ? _MSVC_LANG < 201703L : __cplusplus < 201703L
#error "clastool needs C++17: compile with -std=c++17 or /std:c++17, or a later standard"
#endif
// Archives name objects by their run-time class, and comparisons look at it.
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
// Mark classes whole, and functions outside of classes; not templates, nor functions defined in a header.
#if defined(_WIN32)
// Windows tells exported names from imported ones. A static library has neither: it shows all it has.
#if defined(CLASTOOL_STATIC)
#define TK_EXPORT
// Defined while the shared library itself is compiled, and nowhere else.
#elif defined(CLASTOOL_BUILDING)
#define TK_EXPORT __declspec(dllexport)
#else
#define TK_EXPORT __declspec(dllimport)
#endif
// Elsewhere a class needs one mark, the same for the library and its users.
#else
#define TK_EXPORT __attribute__((visibility("default")))
#endif

#endif
