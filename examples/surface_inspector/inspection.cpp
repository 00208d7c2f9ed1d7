#include "inspection.h"

#include "progress.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkArchiveFile.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace inspector
{

namespace
{

Scaling scalingOf(const std::vector<Tile>& tiles)
{
    std::vector<Measurements> measured;
    measured.reserve(tiles.size());
    for (const Tile& tile : tiles)
        measured.push_back(tile.measured);
    return Scaling(measured);
}

std::vector<Pattern> patternsOf(const std::vector<Tile>& tiles, const Scaling& scaling)
{
    std::vector<Pattern> patterns;
    patterns.reserve(tiles.size());
    for (const Tile& tile : tiles)
        patterns.push_back(scaling.pattern(tile.measured));
    return patterns;
}

/// As many windows as fit into `size` pixels.
long countSteps(long size)
{
    return (size - tileSize) / windowStep + 1;
}

std::vector<Pattern> windowPatterns(const Picture& picture, const Scaling& scaling)
{
    const long rows = countSteps(picture.height);
    const long columns = countSteps(picture.width);
    Progress progress("Measuring the mosaic", static_cast<std::size_t>(rows));
    std::vector<Pattern> patterns;
    for (long row = 0; row < rows; ++row)
    {
        for (long column = 0; column < columns; ++column)
            patterns.push_back(scaling.pattern(measureTile(picture, column * windowStep, row * windowStep)));
        progress.advance();
    }
    return patterns;
}

long countDiffering(const std::vector<Decision>& one, const std::vector<Decision>& other)
{
    long count = 0;
    for (std::size_t i = 0; i < one.size(); ++i)
        count += one[i] != other[i];
    return count;
}

/// The class score by which the best category leads; 1 if it is alone.
double lead(const Decision& decision)
{
    const std::vector<tkClassifierCategoryResult>& ranked = decision.result.categoryResults();
    return ranked.size() < 2 ? 1.0 : ranked[0].classScore() - ranked[1].classScore();
}

std::string placeText(long x, long y)
{
    return "(" + std::to_string(x) + ", " + std::to_string(y) + ")";
}

Exhibit testExhibit(const Dataset& dataset, const std::vector<Decision>& decisions, std::size_t index,
                    const std::string& title)
{
    const Tile& tile = dataset.test[index];
    const Surface& surface = dataset.surfaces[static_cast<std::size_t>(tile.label)];
    return {title, surface.name + ", tile at " + placeText(tile.x, tile.y),
            crop(surface.picture, tile.x, tile.y, tileSize, tileSize), tile.measured, decisions[index]};
}

/// The clearest and the least clear of the test tiles, and one from the middle of the mosaic's last part.
std::vector<Exhibit> chooseExhibits(const Findings& findings, const Scaling& scaling, const tkClassifierTool& tool)
{
    std::vector<std::size_t> decided;
    for (std::size_t i = 0; i < findings.tests.size(); ++i)
    {
        if (findings.tests[i].label >= 0)
            decided.push_back(i);
    }

    std::vector<Exhibit> exhibits;
    if (!decided.empty())
    {
        const auto leadsLess = [&](std::size_t one, std::size_t other)
        { return lead(findings.tests[one]) < lead(findings.tests[other]); };
        const std::size_t clear = *std::max_element(decided.begin(), decided.end(), leadsLess);
        const std::size_t close = *std::min_element(decided.begin(), decided.end(), leadsLess);
        exhibits.push_back(testExhibit(findings.dataset, findings.tests, clear, "A clear case"));
        if (close != clear)
            exhibits.push_back(testExhibit(findings.dataset, findings.tests, close, "A close call"));
    }

    const Mosaic::Part& part = findings.mosaic.parts.back();
    const long x = part.x + (findings.mosaic.partWidth - tileSize) / 2;
    const long y = part.y + (findings.mosaic.partHeight - tileSize) / 2;
    const Measurements measured = measureTile(findings.mosaic.picture, x, y);
    exhibits.push_back(
        {part.label < 0 ? "Never trained" : "From the mosaic", part.name + ", tile of the mosaic at " + placeText(x, y),
         crop(findings.mosaic.picture, x, y, tileSize, tileSize), measured, decide(tool, *scaling.pattern(measured))});
    return exhibits;
}

/// What all confusions cost together.
double totalCost(const Confusion& confusion, const tkClassifierCosts& costs)
{
    const long numSurfaces = static_cast<long>(confusion.counts.size());
    double total = 0.0;
    for (long truth = 0; truth < numSurfaces; ++truth)
    {
        for (long decision = 0; decision < numSurfaces; ++decision)
        {
            if (truth != decision)
                total += costs.misclassificationCost(truth, decision) *
                         static_cast<double>(confusion.count(truth, decision));
        }
    }
    return total;
}

/// Sets the confusion that happened most often to a cost of 20, where every confusion costs 1.
CostChange changeCost(const Findings& findings, tkClassifierTool& tool, const std::vector<Pattern>& tests,
                      const std::vector<Pattern>& windows)
{
    CostChange change = {0, 1, 1.0, 20.0, {}, {}, findings.windows, 0.0, 0.0, false};
    const Confusion& before = findings.confusion;
    const long numSurfaces = static_cast<long>(findings.dataset.surfaces.size());
    for (long truth = 0; truth < numSurfaces; ++truth)
    {
        for (long decision = 0; decision < numSurfaces; ++decision)
        {
            if (truth != decision && before.count(truth, decision) > before.count(change.truth, change.decision))
            {
                change.truth = truth;
                change.decision = decision;
            }
        }
    }

    // Retraining replaces the parameters and leaves the stored tiles alone: nothing is measured or trained anew.
    tkClassifierTrainParamsKNN params(numNeighbours);
    tkClassifierCosts costs(change.costBefore);
    costs.misclassificationCostOverride(change.truth, change.decision, change.costAfter);
    params.misclassificationCosts(costs);
    tool.retrain(params);
    change.tests = decideAll(tool, tests, "Right halves, new cost");
    change.confusion = confusionOf(findings.dataset, findings.dataset.test, change.tests);
    change.windows.decisions = decideAll(tool, windows, "Mosaic, new cost");
    change.totalBefore = totalCost(before, costs);
    change.totalAfter = totalCost(change.confusion, costs);

    params.misclassificationCosts(tkClassifierCosts(change.costBefore));
    tool.retrain(params);
    change.restored = decideAll(tool, tests, "Right halves, old cost") == findings.tests;
    return change;
}

Storage storeAndLoad(const tkClassifierTool& tool, const std::vector<Pattern>& tests,
                     const std::vector<Decision>& decisions, const std::string& path)
{
    tkArchiveFile::save(path, tool);
    tkClassifierTool loaded;
    tkArchiveFile::load(path, loaded);

    Storage storage;
    storage.path = path;
    storage.bytes = std::filesystem::file_size(path);
    storage.equal = loaded == tool;
    // A nearest-neighbour classifier comes out of its file with the training data, but runs with the parameters of a
    // new one (one neighbour, Euclidean distance, equal costs). Those it was trained with are still in trainParams():
    // retraining with them, which reads no training data, brings back k, metric and costs.
    storage.differingAtFirst = countDiffering(decisions, decideAll(loaded, tests, "Right halves, as loaded"));
    loaded.retrain(*loaded.trainParams());
    storage.differingAtLast = countDiffering(decisions, decideAll(loaded, tests, "Right halves, retrained"));
    return storage;
}

/// A tile of one grey level, as a covered lens gives it: its skewness is not defined.
Exhibit flatTile(const Scaling& scaling, const tkClassifierTool& tool)
{
    Picture picture;
    picture.width = tileSize;
    picture.height = tileSize;
    picture.pixels.assign(tileSize * tileSize, 96);
    const Measurements measured = measureTile(picture, 0, 0);
    return {"A covered lens", "made up: every pixel is 96", picture, measured,
            decide(tool, *scaling.pattern(measured))};
}

} // namespace

Findings inspect(Dataset dataset, Mosaic mosaic, const std::string& archivePath)
{
    Findings findings;
    findings.dataset = std::move(dataset);
    findings.mosaic = std::move(mosaic);

    const Scaling scaling = scalingOf(findings.dataset.train);
    const std::vector<Pattern> trainPatterns = patternsOf(findings.dataset.train, scaling);
    tkClassifierDataProviderMemory provider;
    provider.setName(L"surfaces");
    for (std::size_t i = 0; i < trainPatterns.size(); ++i)
        provider.addData(trainPatterns[i], findings.dataset.train[i].label);

    tkClassifierTool tool;
    tool.train(provider, tkClassifierTrainParamsKNN(numNeighbours));

    const std::vector<Pattern> tests = patternsOf(findings.dataset.test, scaling);
    findings.tests = decideAll(tool, tests, "Right halves");
    findings.confusion = confusionOf(findings.dataset, findings.dataset.test, findings.tests);

    const std::vector<Pattern> windows = windowPatterns(findings.mosaic.picture, scaling);
    findings.windows.columns = countSteps(findings.mosaic.picture.width);
    findings.windows.rows = countSteps(findings.mosaic.picture.height);
    findings.windows.decisions = decideAll(tool, windows, "Mosaic");

    findings.exhibits = chooseExhibits(findings, scaling, tool);
    findings.costChange = changeCost(findings, tool, tests, windows);
    findings.storage = storeAndLoad(tool, tests, findings.tests, archivePath);
    findings.flatTile = flatTile(scaling, tool);
    findings.tree = sortWithTree(findings.dataset, findings.flatTile.measured);
    findings.rules = decideWithRules(findings.dataset, findings.flatTile.measured);
    return findings;
}

std::vector<long> countWindows(const Findings& findings, const WindowMap& windows, const Mosaic::Part& part)
{
    std::vector<long> counts(findings.dataset.surfaces.size() + 1);
    for (long row = 0; row < windows.rows; ++row)
    {
        for (long column = 0; column < windows.columns; ++column)
        {
            if (findings.mosaic.partAround(column * windowStep, row * windowStep, tileSize) != &part)
                continue;
            const long label = windows.decisions[static_cast<std::size_t>(row * windows.columns + column)].label;
            ++counts[label < 0 ? counts.size() - 1 : static_cast<std::size_t>(label)];
        }
    }
    return counts;
}

} // namespace inspector
