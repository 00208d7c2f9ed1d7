#include "numerics/kernels/tkNMInstructions.h"

tkNMInstructions tkNMBestInstructions()
{
#if TK_HAS_X86_TARGETS
    if (!__builtin_cpu_supports("avx2"))
        return tkNMInstructions::Sse2;
    const bool hasAvx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
    return hasAvx512 ? tkNMInstructions::Avx512 : tkNMInstructions::Avx2;
#elif TK_HAS_NEON
    return tkNMInstructions::Neon;
#else
    return tkNMInstructions::Portable;
#endif
}
