#ifndef TESTS_SUPPORT_FOREIGNMACROS_H
#define TESTS_SUPPORT_FOREIGNMACROS_H

// Macros that widely used headers define, with the names of ordinary variables, types and functions: those of
// <X11/Xlib.h> and <X11/X.h>, then those of <windows.h>.

#define Always 2
#define Above 0
#define AllValues 0x000F
#define Below 1
#define Bool int
#define Button1 1
#define Complex 0
#define Convex 2
#define CurrentTime 0L
#define DestroyAll 0
#define Expose 12
#define False 0
#define FocusIn 9
#define None 0L
#define NoSymbol 0L
#define NotUseful 0
#define Nonconvex 1
#define ParentRelative 1L
#define RetainPermanent 1
#define Status int
#define Success 0
#define True 1
#define Unsorted 0
#define WhenMapped 1
#define WindingRule 1
#define YSorted 1

#define ABSOLUTE 1
#define CALLBACK
#define CONST const
#define DELETE (0x00010000L)
#define DIFFERENCE 11
#define DOMAIN 1
#define ERROR 0
#define FALSE 0
#define IGNORE 0
#define IN
#define INFINITE 0xFFFFFFFF
#define INPUT 1
#define NO_ERROR 0L
#define OPAQUE 2
#define OPTIONAL
#define OUT
#define OVERFLOW 3
#define Yield()
#define RELATIVE 2
#define STRICT 1
#define TRANSPARENT 1
#define TRUE 1
#define UNDERFLOW 4
#define VOID void
#define far
#define interface struct
#define max(a, b) (((a) > (b)) ? (a) : (b))
#define min(a, b) (((a) < (b)) ? (a) : (b))
#define near
#define small char

#endif
