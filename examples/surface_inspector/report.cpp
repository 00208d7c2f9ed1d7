#include "report.h"

#include "bayes.h"
#include "maps.h"
#include "page.h"
#include "report_sections.h"
#include "text.h"

#include <algorithm>
#include <filesystem>
#include <ostream>

namespace inspector
{

namespace
{

/// How the windows inside each part of the mosaic were decided.
void writeWindowTable(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    const long numSurfaces = static_cast<long>(dataset.surfaces.size());
    out << "<div class=\"scroll\"><table><caption>Windows that lie wholly in one part of the "
           "mosaic</caption><thead><tr>"
           "<th scope=\"col\">part \\ decided</th>";
    for (long label = 0; label < numSurfaces; ++label)
        out << "<th scope=\"col\">" << name(dataset, label) << "</th>";
    out << "<th scope=\"col\">none of these</th></tr></thead><tbody>\n";
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        const WindowCounts counts = countWindows(findings, findings.novelty.windows, part);
        out << "<tr><th scope=\"row\">" << html(part.name)
            << (part.label < 0 ? " <span class=\"soft\">(never trained)</span>" : "") << "</th>";
        for (const long count : counts.decided)
            out << "<td>" << percent(static_cast<double>(count) / static_cast<double>(counts.total)) << "</td>";
        out << "</tr>\n";
    }
    out << "</tbody></table></div>\n";
}

/// The measurements of the learned tiles, surface by surface.
void writeMeasurementTable(std::ostream& out, const Dataset& dataset)
{
    out << "<div class=\"card scroll\"><table class=\"spreads\"><caption>Learned tiles: mean ± standard deviation of "
           "each measurement"
           "</caption><thead><tr><th scope=\"col\">measurement</th>";
    for (std::size_t label = 0; label < dataset.surfaces.size(); ++label)
        out << "<th scope=\"col\">" << swatch(static_cast<long>(label)) << html(dataset.surfaces[label].name)
            << "</th>";
    out << "</tr></thead><tbody>\n";
    for (std::size_t i = 0; i < numMeasurements; ++i)
    {
        out << "<tr><th scope=\"row\">" << html(measurementNames[i]) << "</th>";
        for (std::size_t label = 0; label < dataset.surfaces.size(); ++label)
        {
            std::vector<double> values;
            for (const Tile& tile : dataset.train)
            {
                if (tile.label == static_cast<long>(label))
                    values.push_back(tile.measured.values[i]);
            }
            const Spread spread = spreadOf(values);
            out << "<td>" << fixed(spread.mean, 1) << " ± " << fixed(spread.deviation, 1) << "</td>";
        }
        out << "</tr>\n";
    }
    out << "</tbody></table></div>\n";
}

void writeHead(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<title>Surface inspection</title>\n<style>"
        << styleSheet << ".mosaic { background-image: url(" << pngAddress(findings.mosaic.picture)
        << "); }\n</style>\n</head>\n<body>\n<main>\n<h1>Surface inspection</h1>\n"
           "<p>A classifier learned ";
    for (std::size_t i = 0; i < dataset.surfaces.size(); ++i)
        out << (i == 0 ? "" : i + 1 < dataset.surfaces.size() ? ", " : " and ") << html(dataset.surfaces[i].name);
    out << " from the left halves of their pictures, tile by tile. It was then asked what it sees on the right halves, "
           "which it had never met, and on every spot of a mosaic.</p>\n<div class=\"key\">\n<div><strong>"
        << percent(findings.confusion.accuracy()) << "</strong><span>of " << findings.confusion.total
        << " tiles of the right halves named rightly</span></div>\n<div><strong>" << dataset.train.size()
        << "</strong><span>tiles of the left halves learned";
    if (dataset.leftOut > 0)
        out << "; " << dataset.leftOut << " of one grey level left out";
    out << "</span></div>\n<div><strong>" << percent(shareRight(findings, findings.novelty.windows))
        << "</strong><span>of the windows inside the parts of the mosaic decided rightly, &ldquo;none of these&rdquo; "
           "included</span></div>\n<div><strong>"
        << findings.storage.bytes << "</strong><span>bytes: the trained classifier in a file</span></div>\n</div>\n"
        << "<p>Each tile of " << tileSize << " × " << tileSize << " pixels is described by " << numMeasurements
        << " numbers: the mean and standard deviation of its grey levels, the mean change to the next pixel across "
           "(|dx|) and down (|dy|), the mean |Laplacian|, which is high where detail is fine, and the skewness, which "
           "tells bright specks from dark cracks. The main method is Bayesian: the six numbers of a "
           "surface are taken for jointly normal, so that it knows which of them go together.</p>\n";
}

void writeMosaic(std::ostream& out, const Findings& findings)
{
    const Mosaic& mosaic = findings.mosaic;
    std::string parts;
    for (const Mosaic::Part& part : mosaic.parts)
        parts += (parts.empty() ? "" : ", ") + part.name;
    out << "<h2>What it sees on the mosaic</h2>\n<div class=\"row wide\">\n";
    writeOverMosaic(out, mosaic, seams(mosaic), "Mosaic of grey-level pictures: " + parts,
                    "The mosaic. Of learned surfaces it shows the right halves only.");
    writeOverMosaic(
        out, mosaic, classMap(mosaic, findings.novelty.windows),
        "The same mosaic with the decision at every spot laid over it in colour; the table below counts them",
        "The decision at the middle of each window of " + std::to_string(tileSize) + " × " + std::to_string(tileSize) +
            " pixels, every " + std::to_string(windowStep) + " pixels." +
            (mosaic.parts.size() > 1 ? " Along a seam a window holds two materials." : ""));
    out << "</div>\n";
    writeLegend(out, findings.dataset);
    writeWindowTable(out, findings);
}

/// What the decision is expected to cost, the least of all.
double expectedCostOf(const Decision& decision)
{
    return decision.result.categoryResults().front().expectedCost();
}

/// The tiles of the right halves that the new cost decides otherwise, or the first of them.
void writeChangedTiles(std::ostream& out, const Findings& findings)
{
    const CostChange& change = findings.costChange;
    const Dataset& dataset = findings.dataset;
    constexpr long shownAtMost = 16;
    out << "<p>"
        << (countChanged(findings.tests, change.tests) > shownAtMost
                ? "The first " + std::to_string(shownAtMost) + " of the tiles"
                : "The tiles")
        << " whose decision changed (✓ for the better, ✗ for the worse):</p>\n<ul class=\"strip\">";

    long shown = 0;
    for (std::size_t i = 0; i < change.tests.size() && shown < shownAtMost; ++i)
    {
        const long before = findings.tests[i].label;
        const long after = change.tests[i].label;
        if (before == after)
            continue;
        const Tile& tile = dataset.test[i];
        const std::string is = surfaceName(dataset, tile.label);
        out << "<li>"
            << tileImage(crop(dataset.surfaces[static_cast<std::size_t>(tile.label)].picture, tile.x, tile.y, tileSize,
                              tileSize),
                         "A tile of " + is, 80)
            << (after == tile.label ? "✓ " : "✗ ") << name(dataset, before) << " → " << name(dataset, after)
            << "<br>is " << html(is) << "</li>\n";
        ++shown;
    }
    out << "</ul>\n";
}

void writeCosts(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    const CostChange& change = findings.costChange;
    const std::string truth = name(dataset, change.truth);
    const std::string decision = name(dataset, change.decision);
    out << "<h2>When one mistake costs more</h2>\n<p>Suppose that taking " << truth << " for " << decision << " costs "
        << fixed(change.costAfter, 0) << " instead of " << fixed(change.costBefore, 0)
        << ". The tool is retrained with the new cost, which leaves the densities untouched and measures nothing "
           "again. A tile is now called "
        << decision << " only where it can hardly be " << truth << ".</p>\n<div class=\"row wide\">\n";
    writeConfusion(out, dataset, findings.confusion, "Every confusion costs " + fixed(change.costBefore, 0), "refused");
    writeConfusion(out, dataset, change.confusion,
                   truth + " taken for " + decision + " costs " + fixed(change.costAfter, 0), "refused");
    const long changed = countChanged(findings.tests, change.tests);
    out << "</div>\n<p>"
        << (change.confusion.right < findings.confusion.right
                ? "There are more mistakes than before, but cheaper ones. "
                : "")
        << "At the new cost the mistakes add up to <strong>" << fixed(change.totalBefore, 0)
        << "</strong> with the old decisions and to <strong>" << fixed(change.totalAfter, 0)
        << "</strong> with the new ones. <strong>" << changed << "</strong> of " << change.tests.size()
        << " tiles and <strong>" << countChanged(findings.windows.decisions, change.windows.decisions)
        << "</strong> of " << change.windows.decisions.size()
        << " windows of the mosaic are decided otherwise. With the old cost put back, "
        << (change.restored ? "every result is what it was before"
                            : "<strong>some results are not what they were before</strong>")
        << ".</p>\n";

    if (changed > 0)
        writeChangedTiles(out, findings);
    double dearest = 0.0;
    for (const Decision& window : change.windows.decisions)
    {
        if (window.label >= 0)
            dearest = std::max(dearest, expectedCostOf(window));
    }
    out << "<div class=\"row\">\n";
    writeOverMosaic(out, findings.mosaic, classMap(findings.mosaic, findings.windows),
                    "The decisions on the mosaic while every confusion costs the same",
                    "Every confusion costs " + fixed(change.costBefore, 0) + ". Here the fit is not looked at.");
    writeOverMosaic(out, findings.mosaic, classMap(findings.mosaic, change.windows),
                    "The decisions on the mosaic with the new cost: more of it is called " +
                        surfaceName(dataset, change.truth),
                    truth + " taken for " + decision + " costs " + fixed(change.costAfter, 0));
    writeOverMosaic(out, findings.mosaic,
                    valueMap(findings.mosaic, change.windows,
                             [&](const Decision& window)
                             { return dearest > 0.0 ? expectedCostOf(window) / dearest : 0.0; }),
                    "The expected cost of the decision at every window, with the new cost",
                    "<strong>Expected cost</strong> of each decision at the new cost, were the mosaic made of learned "
                    "surfaces only." +
                        scaleBar("0", "", fixed(dearest, 2)));
    out << "</div>\n";
}

void writeStorage(std::ostream& out, const Findings& findings)
{
    const Storage& storage = findings.storage;
    const NeighbourFindings& neighbours = findings.neighbours;
    out << "<h2>In a file and back</h2>\n<p>The trained tool takes <strong>" << storage.bytes
        << " bytes</strong> in <code>" << html(storage.path) << "</code>. Loaded into a new tool, it "
        << (storage.equal ? "equals the stored one" : "<strong>does not equal</strong> the stored one") << ", and "
        << storage.differing << " of " << findings.tests.size()
        << " results differ. A nearest-neighbour classifier comes out of a file with all tiles, but with the default "
           "parameters, one neighbour and equal costs: <strong>"
        << neighbours.differingAtFirst << "</strong> of " << findings.tests.size()
        << " of its results differ at first. The parameters it was trained with are still in the file, and retraining "
           "with them puts them to work without reading any training data:</p>\n"
           "<pre>tkClassifierTool tool;\n"
           "tkArchiveFile::load(path, tool);    // neighbours: runs with k = 1\n"
           "tool.retrain(*tool.trainParams());  // runs with k, metric and costs as trained</pre>\n"
           "<p>After that, <strong>"
        << neighbours.differingAtLast << "</strong> results differ.</p>\n";
}

void writeUnmeasured(std::ostream& out, const Findings& findings)
{
    const Exhibit& flat = findings.flatTile;
    const auto answer = [&](const Decision& decision)
    { return decision.label < 0 ? html(decision.refusal) : name(findings.dataset, decision.label); };
    out << "<h2>A tile that cannot be measured</h2>\n<p>A tile of one grey level has no skewness. The measurement is "
           "marked invalid, and every method has its own way with it. The Bayesian one decides by the distribution of "
           "the valid measurements, and its fit is compared with limits that were learned with the same measurements "
           "left "
           "out; the nearest neighbours answer with an error of the library's own instead of a guess.</p>\n<div "
           "class=\"card\"><h3>"
        << html(flat.title) << "</h3><span class=\"soft\">" << html(flat.origin) << "</span><div class=\"tile\">"
        << tileImage(flat.picture, flat.origin, 112);
    writeMeasured(out, flat.measured);
    out << "</div>\n<dl class=\"answers\"><dt>Bayesian</dt><dd>"
        << (flat.decision.refusal.empty()
                ? "Best: " + answer(flat.decision) + ", class score " + fixed(certaintyOf(flat.decision), 3) + ". " +
                      fitText(flat.decision) + "."
                : answer(flat.decision))
        << "</dd><dt>Neighbours</dt><dd>" << answer(findings.neighbours.flatTile) << "</dd>";
    if (findings.tree)
    {
        const Decision& decision = findings.tree->flatTile;
        out << "<dt>Decision tree</dt><dd>"
            << (decision.label == findings.tree->measureAgain ? "measure again" : answer(decision)) << "</dd>";
    }
    if (findings.rules)
    {
        const Decision& decision = findings.rules->flatTile;
        out << "<dt>Rule table</dt><dd>" << (decision.label < 0 ? "no rule fits" : answer(decision)) << "</dd>";
    }
    out << "</dl></div>\n";
}

/// The confusion matrices of all methods, side by side.
void writeConfusions(std::ostream& out, const Findings& findings)
{
    const Dataset& dataset = findings.dataset;
    out << "<h2>How often it is right</h2>\n<p>Every tile of the right halves was decided once by every method. "
           "Surfaces whose measurements overlap are confused most.</p>\n<div class=\"row wide\">\n";
    writeConfusion(out, dataset, findings.confusion, "<strong>Bayesian</strong>, all measurements jointly", "refused");
    writeConfusion(out, dataset, findings.novelty.confusion, "The same, turning away what fits none", "none of these");
    writeConfusion(out, dataset, findings.independent, "Bayesian, each measurement by itself", "refused");
    writeConfusion(out, dataset, findings.neighbours.confusion,
                   std::to_string(numNeighbours) + " nearest neighbours, scaled measurements", "refused");
    if (findings.tree)
        writeConfusion(out, dataset, findings.tree->confusion, "Decision tree, built by hand", "measure again");
    if (findings.rules)
        writeConfusion(out, dataset, findings.rules->confusion, "Rule table, written by hand", "no rule fits");
    out << "</div>\n";
    writeMeasurementTable(out, dataset);
}

} // namespace

void writeReport(std::ostream& out, const Findings& findings)
{
    writeHead(out, findings);
    writeMosaic(out, findings);
    writeNoveltySection(out, findings);
    writeConfusions(out, findings);

    out << "<h2>Some tiles in full</h2>\n<p>The match score of a category is its likelihood in units of the best, the "
           "class score its posterior probability. The expected cost is what deciding for it would cost on average, "
           "and the cheapest category comes first. The fit is the log likelihood of the best category.</p>\n"
           "<div class=\"row\">\n";
    for (const Exhibit& exhibit : findings.exhibits)
        writeExhibit(out, findings.dataset, exhibit);
    out << "</div>\n";

    writeCosts(out, findings);
    writeStorage(out, findings);
    writeUnmeasured(out, findings);
    if (findings.tree)
        writeTreeSection(out, findings, *findings.tree);
    if (findings.rules)
        writeRuleSection(out, findings, *findings.rules);
    out << "</main>\n</body>\n</html>\n";
}

} // namespace inspector
