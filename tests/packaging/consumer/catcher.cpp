// Catches by class what another shared library throws, and converts an object that it made. The addresses of the
// type information are compared as well, since some platforms tell types apart by nothing else.
#include "thrower.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkPatternDistanceMetric.h"

#include <iostream>
#include <memory>
#include <typeinfo>

namespace
{
int failures = 0;

void expect(bool condition, const char* what, const char* className)
{
    if (!condition)
    {
        std::cerr << className << ": " << what << '\n';
        ++failures;
    }
}

template <class Error>
void catchError(int kind)
{
    const char* const name = typeid(Error).name();
    try
    {
        throwError(kind);
        expect(false, "was not thrown", name);
    }
    catch (const Error& error)
    {
        expect(&typeid(error) == &typeid(Error), "has type information twice", name);
        expect(error.message() == L"thrown", "has lost its message", name);
        const tkPersistent* const root = &error;
        expect(dynamic_cast<const Error*>(root) == &error, "is not found by dynamic_cast", name);
    }
    catch (...)
    {
        expect(false, "was not caught by its class", name);
    }
    try
    {
        throwError(kind);
    }
    catch (const tkClassifierDefs::Errors&)
    {
    }
    catch (...)
    {
        expect(false, "was not caught by its base class", name);
    }
}
} // namespace

int main()
{
    catchError<tkClassifierDefs::BadParams>(0);
    catchError<tkClassifierDefs::NotTrained>(1);
    catchError<tkClassifierDefs::BadIndex>(2);
    catchError<tkClassifierDefs::BadLabel>(3);
    catchError<tkClassifierDefs::BadMethod>(4);
    catchError<tkClassifierDefs::NotImplemented>(5);
    catchError<tkClassifierDefs::BadFeatures>(6);
    catchError<tkClassifierDefs::InsufficientTrainData>(7);

    const std::unique_ptr<tkPersistent> metric(newMetric());
    const char* const name = typeid(tkPatternDistanceMetricNorm).name();
    expect(dynamic_cast<tkPatternDistanceMetricNorm*>(metric.get()) != nullptr, "is not found by dynamic_cast", name);
    expect(dynamic_cast<tkPatternDistanceMetric*>(metric.get()) != nullptr, "is not found as its base class", name);
    expect(&typeid(*metric) == &typeid(tkPatternDistanceMetricNorm), "has type information twice", name);
    return failures == 0 ? 0 : 1;
}
