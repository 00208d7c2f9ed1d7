#ifndef FOUNDATION_TKASSERT_H
#define FOUNDATION_TKASSERT_H

#include "foundation/tkExport.h"

#include <stdexcept>

/// A broken requirement: a bug in the calling code, never a consequence of bad input. Deliberately
/// not a tkException, so that code which handles the library's errors does not swallow bugs.
class TK_EXPORT tkAssertionFailure : public std::logic_error
{
public:
    /// what() names the expression and where it stands.
    tkAssertionFailure(const char* expression, const char* file, int line);
    tkAssertionFailure(const tkAssertionFailure&);
    ~tkAssertionFailure() override;
};

/// Called with every failed assertion before tkAssertionFailure is thrown, for a host that logs or
/// breaks into a debugger. It may throw an exception of its own, which then passes on instead.
using tkAssertionHandler = void (*)(const char* expression, const char* file, int line);

/// Installs `handler` (null: none, as at the start) for all threads; returns the one before.
TK_EXPORT tkAssertionHandler tkSetAssertionHandler(tkAssertionHandler handler);

/// Calls the handler, then throws tkAssertionFailure. The process is never ended.
[[noreturn]] TK_EXPORT void tkAssertionFailed(const char* expression, const char* file, int line);

/// Calls the handler and goes on; returns false.
TK_EXPORT bool tkAssertionReported(const char* expression, const char* file, int line);

/// Throws tkAssertionFailure unless `condition` holds; active in every build type.
#define TK_ASSERT(condition)                                                                                           \
    (static_cast<bool>(condition) ? static_cast<void>(0) : tkAssertionFailed(#condition, __FILE__, __LINE__))

/// Whether `condition` holds; if it does not, the handler has been told. For a state that no code of the library's own
/// brings about but bad data can, and for which the caller has an answer: nothing is thrown.
#define TK_VERIFY(condition) (static_cast<bool>(condition) || tkAssertionReported(#condition, __FILE__, __LINE__))

#endif
