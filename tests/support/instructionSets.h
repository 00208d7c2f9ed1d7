#ifndef TESTS_SUPPORT_INSTRUCTIONSETS_H
#define TESTS_SUPPORT_INSTRUCTIONSETS_H

#include "numerics/kernels/tkNMInstructions.h"

#include <ostream>
#include <vector>

/// All instruction sets of this machine, `Definition` first.
inline std::vector<tkNMInstructions> instructionSets()
{
    std::vector<tkNMInstructions> sets;
    for (int set = 0; set <= static_cast<int>(tkNMBestInstructions()); ++set)
        sets.push_back(static_cast<tkNMInstructions>(set));
    return sets;
}

/// Those that kernels are written for: all but `Definition`.
inline std::vector<tkNMInstructions> kernelSets()
{
    std::vector<tkNMInstructions> sets = instructionSets();
    sets.erase(sets.begin());
    return sets;
}

inline std::ostream& operator<<(std::ostream& stream, tkNMInstructions set)
{
    const char* const names[] = {"Definition", "Portable", TK_HAS_NEON ? "Neon" : "Sse2", "Avx2", "Avx512"};
    return stream << names[static_cast<int>(set)];
}

#endif
