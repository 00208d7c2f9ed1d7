#ifndef SURFACE_INSPECTOR_SORTING_TREE_H
#define SURFACE_INSPECTOR_SORTING_TREE_H

#include "decision.h"

#include <optional>
#include <string>
#include <vector>

namespace inspector
{

/// A node or a leaf of the tree, with the tiles that came to it.
struct Branch
{
    std::string question;         ///< of a node, about what it asks...
    std::string condition;        ///< ...and what
    long label = -1;              ///< of a leaf
    std::vector<long> counts;     ///< tiles by surface
    std::vector<Branch> branches; ///< of a node: where the answer is yes, then where it is no

    bool isLeaf() const { return branches.empty(); }
};

/// What a decision tree built by hand makes of the tiles.
struct TreeFindings
{
    Branch root; ///< with the tiles of the right halves
    Confusion learned;
    Confusion confusion;
    long measureAgain; ///< the category of tiles with an invalid measurement: one more than there are surfaces
    Decision flatTile; ///< on the tile with an invalid measurement
};

/// Sorts the tiles of the right halves, and one more that has an invalid measurement. Nothing unless the surfaces are
/// brick, grass and gravel by name, in any order: what the tree asks was chosen for them.
std::optional<TreeFindings> sortWithTree(const Dataset& dataset, const Measurements& flatTile);

} // namespace inspector

#endif
