#include "report.h"

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
    out << "<th scope=\"col\">refused</th></tr></thead><tbody>\n";
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        const std::vector<long> counts = countWindows(findings, findings.windows, part);
        long total = 0;
        for (const long count : counts)
            total += count;
        out << "<tr><th scope=\"row\">" << html(part.name)
            << (part.label < 0 ? " <span class=\"soft\">(never trained)</span>" : "") << "</th>";
        for (const long count : counts)
            out << "<td>" << percent(static_cast<double>(count) / static_cast<double>(total)) << "</td>";
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
    out << "</span></div>\n<div><strong>" << numNeighbours
        << "</strong><span>nearest neighbours vote, Euclidean distance</span></div>\n<div><strong>"
        << findings.storage.bytes << "</strong><span>bytes: the trained classifier in a file</span></div>\n</div>\n"
        << "<p>Each tile of " << tileSize << " × " << tileSize << " pixels is described by " << numMeasurements
        << " numbers: the mean and standard deviation of its grey levels, the mean change to the next pixel across "
           "(|dx|) and down (|dy|), the mean |Laplacian|, which is high where detail is fine, and the skewness, which "
           "tells bright specks from dark cracks. Before learning, each number is divided by its standard deviation "
           "over the learned tiles, so that none outweighs the others.</p>\n";
}

void writeMosaic(std::ostream& out, const Findings& findings)
{
    const Mosaic& mosaic = findings.mosaic;
    std::string parts;
    bool unknown = false;
    for (const Mosaic::Part& part : mosaic.parts)
    {
        parts += (parts.empty() ? "" : ", ") + part.name;
        unknown = unknown || part.label < 0;
    }
    out << "<h2>What it sees on the mosaic</h2>\n<div class=\"row wide\">\n";
    writeOverMosaic(out, mosaic, seams(mosaic), "Mosaic of grey-level pictures: " + parts,
                    "The mosaic. Of learned surfaces it shows the right halves only.");
    writeOverMosaic(
        out, mosaic, classMap(mosaic, findings.windows),
        "The same mosaic with the decision at every spot laid over it in colour; the table below counts them",
        "The decision at the middle of each window of " + std::to_string(tileSize) + " × " + std::to_string(tileSize) +
            " pixels, every " + std::to_string(windowStep) + " pixels." +
            (mosaic.parts.size() > 1 ? " Along a seam a window holds two materials." : ""));
    out << "</div>\n";
    writeLegend(out, findings.dataset);
    writeWindowTable(out, findings);
    if (unknown)
    {
        out << "<p>A vote of neighbours always names one of the surfaces that were learned, for material never "
               "trained, too: there are always nearest neighbours, however far away they are. The class score tells "
               "how they agree, not whether the tile resembles them.</p>\n";
    }
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
        << ". The tool is retrained with the new cost, which leaves the stored tiles untouched and measures nothing "
           "again. A tile is now called "
        << decision << " only where hardly a neighbour speaks for " << truth << ".</p>\n<div class=\"row wide\">\n";
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
    out << "<div class=\"row wide\">\n";
    writeOverMosaic(out, findings.mosaic, classMap(findings.mosaic, findings.windows),
                    "The decisions on the mosaic while every confusion costs the same",
                    "Every confusion costs " + fixed(change.costBefore, 0));
    writeOverMosaic(out, findings.mosaic, classMap(findings.mosaic, change.windows),
                    "The decisions on the mosaic with the new cost: more of it is called " +
                        surfaceName(dataset, change.truth),
                    truth + " taken for " + decision + " costs " + fixed(change.costAfter, 0));
    out << "</div>\n";
}

void writeStorage(std::ostream& out, const Findings& findings)
{
    const Storage& storage = findings.storage;
    out << "<h2>In a file and back</h2>\n<p>The trained tool takes <strong>" << storage.bytes
        << " bytes</strong> in <code>" << html(storage.path) << "</code>. Loaded into a new tool, it "
        << (storage.equal ? "equals the stored one" : "<strong>does not equal</strong> the stored one")
        << ". But a nearest-neighbour classifier comes out of a file with the default parameters, one neighbour and "
           "equal costs: <strong>"
        << storage.differingAtFirst << "</strong> of " << findings.tests.size()
        << " results differ at first. The parameters it was trained with are still in the file, and retraining with "
           "them puts them to work without reading any training data:</p>\n"
           "<pre>tkClassifierTool tool;\n"
           "tkArchiveFile::load(path, tool);    // runs with k = 1\n"
           "tool.retrain(*tool.trainParams());  // runs with k, metric and costs as trained</pre>\n"
           "<p>After that, <strong>"
        << storage.differingAtLast << "</strong> results differ.</p>\n";
}

void writeUnmeasured(std::ostream& out, const Findings& findings)
{
    out << "<h2>A tile that cannot be measured</h2>\n<p>A tile of one grey level has no skewness. The measurement is "
           "marked invalid, and the nearest neighbours answer with an error of the library's own instead of a "
           "guess:</p>\n<div class=\"row\">\n";
    writeExhibit(out, findings.dataset, findings.flatTile);
    out << "</div>\n";
}

} // namespace

void writeReport(std::ostream& out, const Findings& findings)
{
    writeHead(out, findings);
    writeMosaic(out, findings);

    out << "<h2>How often it is right</h2>\n<p>Every tile of the right halves was decided once. Surfaces whose "
           "measurements overlap are confused most.</p>\n<div class=\"row wide\">\n";
    writeConfusion(out, findings.dataset, findings.confusion,
                   std::to_string(numNeighbours) + " nearest neighbours, every confusion costs 1", "refused");
    writeMeasurementTable(out, findings.dataset);
    out << "</div>\n";

    out << "<h2>Some tiles in full</h2>\n<p>The match score of a category is its share of the " << numNeighbours
        << " votes, the class score its share of all match scores. The expected cost is what deciding for it would "
           "cost on average, and the cheapest category comes first. A category without a vote is not listed.</p>\n"
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
