#ifndef SURFACE_INSPECTOR_INSPECTION_H
#define SURFACE_INSPECTOR_INSPECTION_H

#include "decision.h"
#include "hand_rules.h"
#include "sorting_tree.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace inspector
{

/// How many neighbours vote.
constexpr long numNeighbours = 5;

/// Step from one window of the mosaic to the next, in pixels.
constexpr long windowStep = 8;

/// A decision on every window of the mosaic, row by row; windows are tiles that overlap.
struct WindowMap
{
    long columns;
    long rows;
    std::vector<Decision> decisions;
};

/// One tile with all that is known of it.
struct Exhibit
{
    std::string title;
    std::string origin;
    Picture picture;
    Measurements measured;
    Decision decision;
};

/// What becomes of the decisions when one confusion costs more.
struct CostChange
{
    long truth;    ///< to take a tile of this surface...
    long decision; ///< ...for this one
    double costBefore;
    double costAfter;
    std::vector<Decision> tests;
    Confusion confusion;
    WindowMap windows;
    double totalBefore; ///< what all confusions of test tiles cost at the new cost, decided as before
    double totalAfter;  ///< and decided with the new cost
    bool restored;      ///< with the old cost put back, every test tile has its old result again
};

/// How the classifier fares in a file.
struct Storage
{
    std::string path;
    std::uintmax_t bytes;
    bool equal;            ///< the tool from the file equals the one that was stored
    long differingAtFirst; ///< test tiles with another result, as it comes from the file
    long differingAtLast;  ///< and after it was retrained with its own parameters
};

/// All that the report tells.
struct Findings
{
    Dataset dataset;
    Mosaic mosaic;
    std::vector<Decision> tests; ///< of dataset.test
    Confusion confusion;
    WindowMap windows;
    std::vector<Exhibit> exhibits;
    CostChange costChange;
    Storage storage;
    Exhibit flatTile; ///< has an invalid measurement
    std::optional<TreeFindings> tree; ///< if the surfaces are those it was built for
    std::optional<RuleFindings> rules; ///< likewise
};

/// Trains, classifies, and stores the classifier in the file `archivePath`.
Findings inspect(Dataset dataset, Mosaic mosaic, const std::string& archivePath);

/// How many windows that lie wholly in one part of the mosaic were decided, by label; the last counts the refused.
std::vector<long> countWindows(const Findings& findings, const WindowMap& windows, const Mosaic::Part& part);

} // namespace inspector

#endif
