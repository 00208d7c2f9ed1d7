#ifndef SURFACE_INSPECTOR_NEIGHBOURS_H
#define SURFACE_INSPECTOR_NEIGHBOURS_H

#include "decision.h"

#include <vector>

namespace inspector
{

/// How many neighbours vote.
constexpr long numNeighbours = 5;

/// What a vote of the nearest neighbours makes of the tiles.
struct NeighbourFindings
{
    std::vector<Decision> tests; ///< of dataset.test
    Confusion confusion;
    Decision flatTile;     ///< on the tile with an invalid measurement
    bool equal;            ///< the tool from its file equals the one that was stored
    long differingAtFirst; ///< test tiles with another result, as it comes from the file
    long differingAtLast;  ///< and after it was retrained with its own parameters
};

/// Trains on measurements scaled to unit deviation, decides on the tiles of the right halves and on one more that has
/// an invalid measurement, and stores the classifier in the file `archivePath`.
NeighbourFindings voteOfNeighbours(const Dataset& dataset, const Measurements& flatTile,
                                   const std::string& archivePath);

} // namespace inspector

#endif
