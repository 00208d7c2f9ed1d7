#include "foundation/tkAssert.h"

#include <atomic>
#include <string>

namespace
{
std::atomic<tkAssertionHandler> installedHandler{nullptr};
}

tkAssertionFailure::tkAssertionFailure(const char* expression, const char* file, int line)
    : std::logic_error("Assertion failed: " + std::string(expression) + " (" + file + ":" + std::to_string(line) + ")")
{
}

tkAssertionFailure::tkAssertionFailure(const tkAssertionFailure&) = default;

tkAssertionFailure::~tkAssertionFailure() = default;

tkAssertionHandler tkSetAssertionHandler(tkAssertionHandler handler)
{
    return installedHandler.exchange(handler);
}

bool tkAssertionReported(const char* expression, const char* file, int line)
{
    if (const tkAssertionHandler handler = installedHandler.load())
        handler(expression, file, line);
    return false;
}

void tkAssertionFailed(const char* expression, const char* file, int line)
{
    tkAssertionReported(expression, file, line);
    throw tkAssertionFailure(expression, file, line);
}
