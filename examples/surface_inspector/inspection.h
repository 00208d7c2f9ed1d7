#ifndef SURFACE_INSPECTOR_INSPECTION_H
#define SURFACE_INSPECTOR_INSPECTION_H

#include "decision.h"
#include "hand_rules.h"
#include "neighbours.h"
#include "sorting_tree.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace inspector
{

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
    bool equal;     ///< the tool from the file equals the one that was stored
    long differing; ///< test tiles with another result
};

/// What is called none of the surfaces, because it fits none.
struct Novelty
{
    std::vector<double> limits;  ///< of the fit, by surface, for a tile with all measurements valid
    std::vector<Decision> tests; ///< of dataset.test
    Confusion confusion;
    WindowMap windows;
};

/// Counts of the windows that lie wholly in one part of the mosaic.
struct WindowCounts
{
    long total = 0;
    std::vector<long> decided; ///< by label; the last counts those for which no surface was named
    long certain = 0;          ///< the best surface has a posterior probability above certainAbove
};

/// What passes for certain.
constexpr double certainAbove = 0.99;

/// All that the report tells. The main method is the Bayesian one with all measurements modelled jointly.
struct Findings
{
    Dataset dataset;
    Mosaic mosaic;
    std::vector<Decision> tests; ///< of dataset.test
    Confusion confusion;
    WindowMap windows;
    Novelty novelty;
    Confusion independent; ///< with the measurements modelled each by itself
    NeighbourFindings neighbours;
    std::vector<Exhibit> exhibits;
    CostChange costChange;
    Storage storage;
    Exhibit flatTile;                  ///< has an invalid measurement
    std::optional<TreeFindings> tree;  ///< if the surfaces are those it was built for
    std::optional<RuleFindings> rules; ///< likewise
};

/// Trains, classifies, and stores the classifier in the file `archivePath`, that of the neighbours beside it.
Findings inspect(Dataset dataset, Mosaic mosaic, const std::string& archivePath);

WindowCounts countWindows(const Findings& findings, const WindowMap& windows, const Mosaic::Part& part);

/// The share of the windows inside the parts that are decided rightly; of a part never trained, those for which no
/// surface was named.
double shareRight(const Findings& findings, const WindowMap& windows);

} // namespace inspector

#endif
