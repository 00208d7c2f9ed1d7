#ifndef NUMERICS_TKNMBESTINSTRUCTIONS_H
#define NUMERICS_TKNMBESTINSTRUCTIONS_H

#include "foundation/tkExport.h"

/// The instruction sets that kernels are compiled for; numerics/kernels/tkNMInstructions.h lists them.
enum class tkNMInstructions : int;

/// The best set of this processor and operating system. A cheap call.
TK_EXPORT tkNMInstructions tkNMBestInstructions();

#endif
