#include "foundation/tkRange.h"

#include "foundation/tkArchive.h"

tkArchive& operator||(tkArchive& archive, tkRange& range)
{
    archive.exchangeVersion("tkRange");
    double low = range.low();
    double high = range.high();
    archive || low || high;
    if (archive.isLoading())
        range = tkRange(low, high);
    return archive;
}
