#ifndef SURFACE_INSPECTOR_KNOWN_SURFACES_H
#define SURFACE_INSPECTOR_KNOWN_SURFACES_H

#include "dataset.h"

#include <optional>

namespace inspector
{

/// The surfaces for which trees and rules were written by hand, with their labels in a dataset.
struct KnownSurfaces
{
    long brick;
    long grass;
    long gravel;
};

/// Nothing unless the surfaces are these three by name, in any order.
std::optional<KnownSurfaces> knownSurfaces(const Dataset& dataset);

} // namespace inspector

#endif
