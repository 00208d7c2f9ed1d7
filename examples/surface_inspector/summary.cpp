#include "summary.h"

#include "bayes.h"
#include "text.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <ostream>

namespace inspector
{

namespace
{

/// `none` heads the column of the tiles for which no surface was named.
void writeConfusion(std::ostream& out, const Dataset& dataset, const Confusion& confusion,
                    const std::string& none = "refused")
{
    std::size_t width = none.size() + 2;
    for (const Surface& surface : dataset.surfaces)
        width = std::max(width, surface.name.size() + 2);
    const int column = static_cast<int>(width);

    out << "  " << std::left << std::setw(column + 7) << "true \\ decided" << std::right;
    for (const Surface& surface : dataset.surfaces)
        out << std::setw(column) << surface.name;
    out << std::setw(column) << none << '\n';
    for (std::size_t i = 0; i < dataset.surfaces.size(); ++i)
    {
        out << "  " << std::left << std::setw(column + 7) << dataset.surfaces[i].name << std::right;
        for (const long count : confusion.counts[i])
            out << std::setw(column) << count;
        out << '\n';
    }
    out << "  accuracy " << fixed(confusion.accuracy(), 3) << " (" << confusion.right << " of " << confusion.total
        << " tiles)\n";
}

void writeExhibit(std::ostream& out, const Dataset& dataset, const Exhibit& exhibit)
{
    out << "\n" << exhibit.title << " (" << exhibit.origin << ")\n ";
    for (std::size_t i = 0; i < numMeasurements; ++i)
        out << ' ' << measurementNames[i] << ' ' << measurementText(exhibit.measured, i)
            << (i + 1 < numMeasurements ? "," : "\n");
    if (exhibit.decision.label < 0)
    {
        out << "  refused: " << exhibit.decision.refusal << '\n';
        return;
    }
    out << "  fit " << fixed(fitOf(exhibit.decision), 2) << ", limit " << fixed(exhibit.decision.limit, 2) << ": "
        << (fitOf(exhibit.decision) < exhibit.decision.limit ? "none of these" : "like what was learned") << '\n';
    out << "  category    match score  class score  expected cost\n";
    for (const tkClassifierCategoryResult& category : exhibit.decision.result.categoryResults())
    {
        out << "  " << std::left << std::setw(10) << surfaceName(dataset, category.categoryLabel()) << std::right
            << std::setw(13) << fixed(category.matchScore(), 3) << std::setw(13) << fixed(category.classScore(), 3)
            << std::setw(15) << fixed(category.expectedCost(), 3) << '\n';
    }
}

/// What came to each leaf, from left to right.
void writeLeaves(std::ostream& out, const Dataset& dataset, const TreeFindings& tree, const Branch& branch)
{
    for (const Branch& below : branch.branches)
        writeLeaves(out, dataset, tree, below);
    if (!branch.isLeaf())
        return;
    out << "  leaf " << (branch.label == tree.measureAgain ? "measure again" : surfaceName(dataset, branch.label))
        << ':';
    for (std::size_t label = 0; label < branch.counts.size(); ++label)
        out << (label == 0 ? " " : ", ") << branch.counts[label] << " of " << dataset.surfaces[label].name;
    out << '\n';
}

void writeTree(std::ostream& out, const Dataset& dataset, const TreeFindings& tree)
{
    out << "\nDecision tree built by hand\n";
    writeConfusion(out, dataset, tree.confusion, "measure again");
    writeLeaves(out, dataset, tree, tree.root);
    out << "  on the left halves, which it was made for, it is right for " << fixed(tree.learned.accuracy(), 3)
        << "\n  a covered lens: "
        << (tree.flatTile.label == tree.measureAgain ? "measure again" : surfaceName(dataset, tree.flatTile.label))
        << '\n';
}

void writeRules(std::ostream& out, const Findings& findings, const RuleFindings& rules)
{
    const Dataset& dataset = findings.dataset;
    out << "\nRule table written by hand\n";
    writeConfusion(out, dataset, rules.confusion, "no rule fits");
    const Tile& tile = dataset.test[rules.closest];
    out << "  closest call: " << surfaceName(dataset, tile.label) << ", tile at (" << tile.x << ", " << tile.y
        << "), rules score";
    for (std::size_t i = 0; i < rules.scores.size(); ++i)
        out << (i == 0 ? " " : ", ") << surfaceName(dataset, rules.table.rules()[i].label()) << ' '
            << fixed(rules.scores[i], 2);
    out << "\n  the same decision as the trained method on "
        << static_cast<long>(rules.tests.size()) - countChanged(findings.tests, rules.tests) << " of "
        << rules.tests.size() << " tiles\n  on the left halves, which they were written for, they are right for "
        << fixed(rules.learned.accuracy(), 3) << "\n  a covered lens: "
        << (rules.flatTile.label < 0 ? "no rule fits" : surfaceName(dataset, rules.flatTile.label)) << '\n';
}

void writeNovelty(std::ostream& out, const Findings& findings)
{
    const Novelty& novelty = findings.novelty;
    out << "\nBayesian, none of these where the fit is below the limit of the best surface\n";
    writeConfusion(out, findings.dataset, novelty.confusion, "none");
    for (std::size_t label = 0; label < novelty.limits.size(); ++label)
    {
        out << (label == 0 ? "  limits: " : ", ") << findings.dataset.surfaces[label].name << ' '
            << (std::isfinite(novelty.limits[label]) ? fixed(novelty.limits[label], 2) : "none, too few tiles");
    }
    out << '\n';
    out << "  windows inside the parts of the mosaic: " << percent(shareRight(findings, novelty.windows))
        << " right, by posterior alone " << percent(shareRight(findings, findings.windows)) << '\n';
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        const WindowCounts plain = countWindows(findings, findings.windows, part);
        const WindowCounts fitting = countWindows(findings, novelty.windows, part);
        out << "  " << part.name << (part.label < 0 ? ", never trained" : "") << ": posterior above "
            << fixed(certainAbove, 2) << " on "
            << percent(static_cast<double>(plain.certain) / static_cast<double>(plain.total)) << ", none of these on "
            << percent(static_cast<double>(fitting.decided.back()) / static_cast<double>(fitting.total))
            << " of its windows\n";
    }
}

void writeCostChange(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    const CostChange& change = findings.costChange;
    out << "\nTo take " << surfaceName(dataset, change.truth) << " for " << surfaceName(dataset, change.decision)
        << " now costs " << change.costAfter << " (retrained, the densities untouched)\n";
    writeConfusion(out, dataset, change.confusion);
    out << "  changed: " << countChanged(findings.tests, change.tests) << " of " << change.tests.size() << " tiles, "
        << countChanged(findings.windows.decisions, change.windows.decisions) << " of "
        << change.windows.decisions.size() << " windows of the mosaic\n"
        << "  mistakes at the new cost: " << fixed(change.totalBefore, 0) << " as decided before, "
        << fixed(change.totalAfter, 0) << " now\n"
        << "  with the old cost put back, "
        << (change.restored ? "all results are as before" : "results are NOT as before") << '\n';
}

void writeStorage(std::ostream& out, const Findings& findings)
{
    const Storage& storage = findings.storage;
    const NeighbourFindings& neighbours = findings.neighbours;
    const auto equality = [](bool equal) { return equal ? "equals" : "does NOT equal"; };
    out << "\nStored in " << storage.path << ": " << storage.bytes << " bytes\n"
        << "  the tool loaded from it " << equality(storage.equal) << " the stored one, " << storage.differing << " of "
        << findings.tests.size() << " results differ\n"
        << "  the neighbours' tool from its file " << equality(neighbours.equal) << " the stored one\n"
        << "  as loaded it runs with default parameters (1 neighbour): " << neighbours.differingAtFirst << " of "
        << findings.tests.size() << " results differ\n"
        << "  after tool.retrain(*tool.trainParams()): " << neighbours.differingAtLast << " differ\n";
}

} // namespace

void writeSummary(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    out << dataset.surfaces.size() << " surfaces, " << dataset.train.size() << " tiles of the left halves learned";
    if (dataset.leftOut > 0)
        out << " (" << dataset.leftOut << " of one grey level left out)";
    out << ", " << dataset.test.size() << " of the right halves tried\n\n"
        << "Bayesian, all measurements jointly\n";
    writeConfusion(out, dataset, findings.confusion);
    out << "\nBayesian, each measurement by itself\n";
    writeConfusion(out, dataset, findings.independent);
    out << '\n' << numNeighbours << " nearest neighbours\n";
    writeConfusion(out, dataset, findings.neighbours.confusion);
    writeNovelty(out, findings);

    for (const Exhibit& exhibit : findings.exhibits)
        writeExhibit(out, dataset, exhibit);

    writeCostChange(out, findings);
    writeStorage(out, findings);

    writeExhibit(out, dataset, findings.flatTile);
    out << "  neighbours: " << findings.neighbours.flatTile.refusal << '\n';
    if (findings.tree)
        writeTree(out, dataset, *findings.tree);
    if (findings.rules)
        writeRules(out, findings, *findings.rules);
}

} // namespace inspector
