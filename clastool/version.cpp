#include "clastool/version.h"

const char* tkVersion() noexcept
{
    return CLASTOOL_VERSION;
}
