#ifndef NUMERICS_TKNMCHANGENUMBER_H
#define NUMERICS_TKNMCHANGENUMBER_H

#include "foundation/tkRepBase.h"

#include <cstdint>

/// A number that grows with every change of the objects that carry it.
///
/// Whoever derives data from these objects notes the number, and compares it when the data are used: if it is another
/// one, the data are stale. To grow excludes every other use, as a change of the objects does.
class tkNMChangeNumber : public tkRepBase
{
public:
    std::uint64_t value() const { return value_; }
    void grow() { ++value_; }

private:
    std::uint64_t value_ = 0;
};

#endif
