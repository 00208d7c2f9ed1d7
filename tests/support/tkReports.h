#ifndef TESTS_SUPPORT_TKREPORTS_H
#define TESTS_SUPPORT_TKREPORTS_H

#include "foundation/tkAssert.h"

/// Counts what the assertion handler is told while it lives.
class CountedReports
{
public:
    CountedReports() : before_(tkSetAssertionHandler(&note_)) { count_ = 0; }
    ~CountedReports() { tkSetAssertionHandler(before_); }
    CountedReports(const CountedReports&) = delete;
    CountedReports& operator=(const CountedReports&) = delete;

    int count() const { return count_; }

private:
    static void note_(const char*, const char*, int) { ++count_; }

    static inline int count_ = 0;
    tkAssertionHandler before_;
};

#endif
