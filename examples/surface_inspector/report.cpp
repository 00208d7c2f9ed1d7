#include "report.h"

#include "maps.h"
#include "png_address.h"
#include "text.h"

#include <algorithm>
#include <filesystem>
#include <ostream>

namespace inspector
{

namespace
{

const char* const style = R"(
:root {
  color-scheme: light dark;
  --page: #fbfaf8; --card: #ffffff; --ink: #1c1b19; --soft: #625e57; --line: #dedad3; --accent: #0072b2;
  --right: 0, 114, 178; --wrong: 213, 94, 0;
}
@media (prefers-color-scheme: dark) {
  :root { --page: #161719; --card: #1f2124; --ink: #ecebe8; --soft: #a5a29b; --line: #3a3c40; --accent: #56b4e9;
    --right: 86, 180, 233; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink); font: 16px/1.55 system-ui, sans-serif; }
main { max-width: 70rem; margin: 0 auto; padding: 2.5rem 1.25rem 4rem; }
h1 { font-size: 2.1rem; line-height: 1.15; margin: 0 0 .5rem; letter-spacing: -.02em; }
h2 { font-size: 1.35rem; margin: 3rem 0 .5rem; letter-spacing: -.01em; }
h3 { font-size: 1rem; margin: 0; }
p { max-width: 46rem; margin: .5rem 0; }
.soft, figcaption, caption { color: var(--soft); }
code, pre { font: .875rem/1.5 ui-monospace, "DejaVu Sans Mono", monospace; }
pre { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; padding: .8rem 1rem;
  overflow-x: auto; max-width: 46rem; }
.row { display: grid; gap: 1.25rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 20rem), 1fr));
  margin: 1rem 0; }
.row.wide { grid-template-columns: repeat(auto-fit, minmax(min(100%, 28rem), 1fr)); }
.key { display: grid; gap: 1px; grid-template-columns: repeat(auto-fit, minmax(12rem, 1fr)); margin: 1.5rem 0;
  background: var(--line); border: 1px solid var(--line); border-radius: .6rem; overflow: hidden; }
.key div { background: var(--card); padding: .9rem 1.1rem; }
.key strong { display: block; font-size: 1.7rem; line-height: 1.2; font-variant-numeric: tabular-nums; }
.key span { color: var(--soft); font-size: .875rem; }
.card { background: var(--card); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem 1.1rem; }
figure { margin: 0; }
figcaption { font-size: .875rem; margin-top: .5rem; }
.laid { position: relative; border-radius: .4rem; overflow: hidden; }
.laid img { display: block; width: 100%; height: auto; background-size: 100% 100%; print-color-adjust: exact;
  -webkit-print-color-adjust: exact; }
.laid span { position: absolute; margin: .5rem; padding: .05rem .5rem; border-radius: 1rem; font-size: .8rem;
  font-weight: 600; color: #fff; background: rgba(0, 0, 0, .72); }
.legend { display: flex; flex-wrap: wrap; gap: .3rem 1.2rem; padding: 0; margin: .75rem 0; list-style: none; }
.swatch { display: inline-block; width: .95em; height: .95em; margin-right: .45em; border-radius: .2em;
  vertical-align: -.1em; border: 1px solid rgba(128, 128, 128, .6); print-color-adjust: exact;
  -webkit-print-color-adjust: exact; }
.hatched { background: repeating-linear-gradient(135deg, #fff 0 3px, #000 3px 6px); }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; font-size: .94rem; }
caption { text-align: left; font-size: .875rem; padding-bottom: .5rem; }
th, td { padding: .35rem .7rem; text-align: right; border-bottom: 1px solid var(--line); white-space: nowrap; }
th { font-weight: 600; }
thead th { color: var(--soft); font-size: .82rem; vertical-align: bottom; }
th:first-child { text-align: left; padding-left: .2rem; }
.confusion { width: 100%; }
.confusion td { border: 2px solid var(--card); text-align: center; min-width: 3.6rem; }
.confusion thead th { text-align: center; }
.confusion thead th:first-child { text-align: left; }
.result th, .result td { padding: .35rem .3rem; }
.spreads { font-size: .86rem; width: 100%; }
.result { width: 100%; }
.spreads th, .spreads td { padding: .35rem .4rem; }
.tile { display: flex; gap: .8rem; align-items: flex-start; margin: .6rem 0 .9rem; }
.pixels { image-rendering: pixelated; border-radius: .3rem; border: 1px solid var(--line); display: block; }
.measured { font-size: .8rem; }
.measured th, .measured td { padding: .05rem .3rem; border: 0; }
.measured th { font-weight: 400; color: var(--soft); }
.bar { display: inline-block; height: .6em; border-radius: .2em; background: var(--accent); margin-right: .4em;
  print-color-adjust: exact; -webkit-print-color-adjust: exact; vertical-align: baseline; }
.strip { display: flex; flex-wrap: wrap; gap: .8rem; padding: 0; list-style: none; }
.strip li { font-size: .8rem; text-align: center; color: var(--soft); }
.strip img { margin: 0 auto .2rem; }
.error { border-left: 4px solid rgb(var(--wrong)); padding: .5rem .9rem; background: rgba(var(--wrong), .1);
  border-radius: 0 .4rem .4rem 0; max-width: 46rem; }
)";

/// The text with its special characters made harmless for HTML.
std::string html(const std::string& text)
{
    std::string result;
    for (const char c : text)
    {
        switch (c)
        {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string name(const Dataset& dataset, long label)
{
    return html(surfaceName(dataset, label));
}

std::string swatch(long label)
{
    const Colour colour = surfaceColour(label);
    return "<span class=\"swatch\" style=\"background:rgb(" + std::to_string(colour.red) + "," +
           std::to_string(colour.green) + "," + std::to_string(colour.blue) + ")\"></span>";
}

std::string image(const std::string& address, const std::string& alt, long width, long height,
                  const std::string& className)
{
    return "<img class=\"" + className + "\" src=\"" + address + "\" alt=\"" + html(alt) + "\" width=\"" +
           std::to_string(width) + "\" height=\"" + std::to_string(height) + "\">";
}

std::string tileImage(const Picture& tile, const std::string& alt, long side)
{
    return image(pngAddress(tile), alt, side, side, "pixels");
}

/// A picture laid over the mosaic, with the names of the mosaic's parts.
void writeOverMosaic(std::ostream& out, const Mosaic& mosaic, const ColourPicture& over, const std::string& alt,
                     const std::string& caption)
{
    out << "<figure><div class=\"laid\">" << image(pngAddress(over), alt, over.width, over.height, "mosaic");
    for (const Mosaic::Part& part : mosaic.parts)
    {
        const auto share = [](long position, long size)
        { return fixed(100.0 * static_cast<double>(position) / static_cast<double>(size), 2); };
        out << "<span aria-hidden=\"true\" style=\"left:" << share(part.x, over.width)
            << "%;top:" << share(part.y, over.height) << "%\">" << html(part.name) << "</span>";
    }
    out << "</div><figcaption>" << caption << "</figcaption></figure>\n";
}

void writeLegend(std::ostream& out, const Dataset& dataset)
{
    out << "<ul class=\"legend\">";
    for (std::size_t i = 0; i < dataset.surfaces.size(); ++i)
        out << "<li>" << swatch(static_cast<long>(i)) << html(dataset.surfaces[i].name) << "</li>";
    out << "<li><span class=\"swatch hatched\"></span>refused: a measurement is invalid</li></ul>\n";
}

void writeConfusion(std::ostream& out, const Dataset& dataset, const Confusion& confusion, const std::string& caption)
{
    const long numSurfaces = static_cast<long>(dataset.surfaces.size());
    out << "<div class=\"card scroll\"><table class=\"confusion\"><caption>" << caption
        << "</caption><thead><tr><th scope=\"col\">true \\ decided</th>";
    for (long label = 0; label < numSurfaces; ++label)
        out << "<th scope=\"col\">" << name(dataset, label) << "</th>";
    out << "<th scope=\"col\">refused</th><th scope=\"col\">found</th></tr></thead><tbody>\n";
    for (long truth = 0; truth < numSurfaces; ++truth)
    {
        const std::vector<long>& counts = confusion.counts[static_cast<std::size_t>(truth)];
        long total = 0;
        for (const long count : counts)
            total += count;
        out << "<tr><th scope=\"row\">" << swatch(truth) << name(dataset, truth) << "</th>";
        for (std::size_t i = 0; i < counts.size(); ++i)
        {
            const double share = static_cast<double>(counts[i]) / static_cast<double>(total);
            out << "<td";
            if (counts[i] > 0)
            {
                const bool right = i == static_cast<std::size_t>(truth);
                out << " style=\"background:rgba(var(--" << (right ? "right" : "wrong") << "),"
                    << fixed(right ? 0.08 + 0.4 * share : 0.15 + 0.4 * share, 2) << ")\"";
            }
            out << '>' << counts[i] << "</td>";
        }
        out << "<td>"
            << percent(static_cast<double>(counts[static_cast<std::size_t>(truth)]) / static_cast<double>(total))
            << "</td></tr>\n";
    }
    out << "</tbody></table><p><strong>" << percent(confusion.accuracy()) << "</strong> right (" << confusion.right
        << " of " << confusion.total << " tiles)</p></div>\n";
}

void writeMeasured(std::ostream& out, const Measurements& measured)
{
    out << "<table class=\"measured\"><tbody>";
    for (std::size_t i = 0; i < numMeasurements; ++i)
    {
        out << "<tr><th scope=\"row\">" << html(measurementNames[i]) << "</th><td>" << measurementText(measured, i)
            << "</td></tr>";
    }
    out << "</tbody></table>";
}

void writeExhibit(std::ostream& out, const Dataset& dataset, const Exhibit& exhibit)
{
    out << "<div class=\"card\"><h3>" << html(exhibit.title) << "</h3><span class=\"soft\">" << html(exhibit.origin)
        << "</span><div class=\"tile\">" << tileImage(exhibit.picture, exhibit.origin, 112);
    writeMeasured(out, exhibit.measured);
    out << "</div>\n";
    if (exhibit.decision.label < 0)
    {
        out << "<p class=\"error\">" << html(exhibit.decision.refusal) << "</p></div>\n";
        return;
    }
    out << "<div class=\"scroll\"><table class=\"result\"><thead><tr><th scope=\"col\">category</th><th "
           "scope=\"col\">match<br>score</th>"
           "<th scope=\"col\">class<br>score</th><th scope=\"col\">expected<br>cost</th></tr></thead><tbody>";
    for (const tkClassifierCategoryResult& category : exhibit.decision.result.categoryResults())
    {
        out << "<tr><th scope=\"row\">" << swatch(category.categoryLabel()) << name(dataset, category.categoryLabel())
            << "</th><td>" << fixed(category.matchScore(), 2)
            << "</td><td><span class=\"bar\" style=\"width:" << fixed(2.5 * category.classScore(), 2) << "rem\"></span>"
            << fixed(category.classScore(), 2) << "</td><td>" << fixed(category.expectedCost(), 2) << "</td></tr>";
    }
    out << "</tbody></table></div></div>\n";
}

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
        << style << ".mosaic { background-image: url(" << pngAddress(findings.mosaic.picture)
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
    writeConfusion(out, dataset, findings.confusion, "Every confusion costs " + fixed(change.costBefore, 0));
    writeConfusion(out, dataset, change.confusion,
                   truth + " taken for " + decision + " costs " + fixed(change.costAfter, 0));
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

} // namespace

void writeReport(std::ostream& out, const Findings& findings)
{
    writeHead(out, findings);
    writeMosaic(out, findings);

    out << "<h2>How often it is right</h2>\n<p>Every tile of the right halves was decided once. Surfaces whose "
           "measurements overlap are confused most.</p>\n<div class=\"row wide\">\n";
    writeConfusion(out, findings.dataset, findings.confusion,
                   std::to_string(numNeighbours) + " nearest neighbours, every confusion costs 1");
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

    out << "<h2>A tile that cannot be measured</h2>\n<p>A tile of one grey level has no skewness. The measurement is "
           "marked invalid, and the library answers with an error of its own instead of a guess:</p>\n"
           "<div class=\"row\">\n";
    writeExhibit(out, findings.dataset, findings.flatTile);
    out << "</div>\n</main>\n</body>\n</html>\n";
}

} // namespace inspector
