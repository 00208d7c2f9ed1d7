#include "known_surfaces.h"

namespace inspector
{

std::optional<KnownSurfaces> knownSurfaces(const Dataset& dataset)
{
    KnownSurfaces known = {-1, -1, -1};
    for (std::size_t i = 0; i < dataset.surfaces.size(); ++i)
    {
        const std::string& name = dataset.surfaces[i].name;
        long* const label = name == "brick"    ? &known.brick
                            : name == "grass"  ? &known.grass
                            : name == "gravel" ? &known.gravel
                                               : nullptr;
        if (!label)
            return std::nullopt;
        *label = static_cast<long>(i);
    }
    if (dataset.surfaces.size() < 3) // no name occurs twice
        return std::nullopt;
    return known;
}

} // namespace inspector
