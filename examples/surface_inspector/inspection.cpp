#include "inspection.h"

#include "bayes.h"
#include "novelty.h"
#include "progress.h"

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkArchiveFile.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace inspector
{

namespace
{

/// As many windows as fit into `size` pixels.
long countSteps(long size)
{
    return (size - tileSize) / windowStep + 1;
}

std::vector<Measurements> measureWindows(const Picture& picture)
{
    const long rows = countSteps(picture.height);
    const long columns = countSteps(picture.width);
    Progress progress("Measuring the mosaic", static_cast<std::size_t>(rows));
    std::vector<Measurements> measured;
    for (long row = 0; row < rows; ++row)
    {
        for (long column = 0; column < columns; ++column)
            measured.push_back(measureTile(picture, column * windowStep, row * windowStep));
        progress.advance();
    }
    return measured;
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
std::vector<Exhibit> chooseExhibits(const Findings& findings, const tkClassifierTool& tool)
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
         crop(findings.mosaic.picture, x, y, tileSize, tileSize), measured, decide(tool, *patternOf(measured))});
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

    // Retraining replaces the parameters and leaves the densities alone: nothing is measured or trained anew.
    tkClassifierCosts costs(change.costBefore);
    costs.misclassificationCostOverride(change.truth, change.decision, change.costAfter);
    tool.retrain(bayesParams(findings.dataset, true, costs));
    change.tests = decideAll(tool, tests, "Right halves, new cost");
    change.confusion = confusionOf(findings.dataset, findings.dataset.test, change.tests);
    change.windows.decisions = decideAll(tool, windows, "Mosaic, new cost");
    change.totalBefore = totalCost(before, costs);
    change.totalAfter = totalCost(change.confusion, costs);

    tool.retrain(bayesParams(findings.dataset, true, tkClassifierCosts(change.costBefore)));
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
    storage.differing = countDiffering(decisions, decideAll(loaded, tests, "Right halves, as loaded"));
    return storage;
}

/// A tile of one grey level, as a covered lens gives it: its skewness is not defined.
Exhibit flatTile(const tkClassifierTool& tool)
{
    Picture picture;
    picture.width = tileSize;
    picture.height = tileSize;
    picture.pixels.assign(tileSize * tileSize, 96);
    const Measurements measured = measureTile(picture, 0, 0);
    return {"A covered lens", "made up: every pixel is 96", picture, measured, decide(tool, *patternOf(measured))};
}

tkClassifierTool train(const Dataset& dataset, bool jointly)
{
    const std::vector<Pattern> patterns = patternsOf(dataset.train);
    tkClassifierDataProviderMemory provider;
    provider.setName(L"surfaces");
    for (std::size_t i = 0; i < patterns.size(); ++i)
        provider.addData(patterns[i], dataset.train[i].label);
    tkClassifierTool tool;
    tool.train(provider, bayesParams(dataset, jointly));
    return tool;
}

Novelty findNovelty(const Findings& findings, NoveltyLimits& limits, const std::vector<Measurements>& windows)
{
    std::vector<Measurements> tests;
    for (const Tile& tile : findings.dataset.test)
        tests.push_back(tile.measured);
    Novelty novelty;
    novelty.limits = limits.limits({});
    novelty.tests = limits.refuseUnlike(findings.tests, tests);
    novelty.confusion = confusionOf(findings.dataset, findings.dataset.test, novelty.tests);
    novelty.windows = findings.windows;
    novelty.windows.decisions = limits.refuseUnlike(findings.windows.decisions, windows);
    return novelty;
}

void setLimit(Exhibit& exhibit, NoveltyLimits& limits)
{
    if (exhibit.decision.refusal.empty())
        limits.setLimit(exhibit.decision, exhibit.measured.invalid);
}

} // namespace

Findings inspect(Dataset dataset, Mosaic mosaic, const std::string& archivePath)
{
    Findings findings;
    findings.dataset = std::move(dataset);
    findings.mosaic = std::move(mosaic);

    tkClassifierTool tool = train(findings.dataset, true);
    const std::vector<Pattern> tests = patternsOf(findings.dataset.test);
    findings.tests = decideAll(tool, tests, "Right halves");
    findings.confusion = confusionOf(findings.dataset, findings.dataset.test, findings.tests);

    const std::vector<Measurements> measuredWindows = measureWindows(findings.mosaic.picture);
    std::vector<Pattern> windows;
    for (const Measurements& window : measuredWindows)
        windows.push_back(patternOf(window));
    findings.windows.columns = countSteps(findings.mosaic.picture.width);
    findings.windows.rows = countSteps(findings.mosaic.picture.height);
    findings.windows.decisions = decideAll(tool, windows, "Mosaic");
    NoveltyLimits limits(findings.dataset);
    findings.novelty = findNovelty(findings, limits, measuredWindows);

    findings.exhibits = chooseExhibits(findings, tool);
    for (Exhibit& exhibit : findings.exhibits)
        setLimit(exhibit, limits);
    findings.costChange = changeCost(findings, tool, tests, windows);
    findings.storage = storeAndLoad(tool, tests, findings.tests, archivePath);
    findings.flatTile = flatTile(tool);
    setLimit(findings.flatTile, limits);

    const Measurements& flat = findings.flatTile.measured;
    findings.independent =
        confusionOf(findings.dataset, findings.dataset.test,
                    decideAll(train(findings.dataset, false), tests, "Right halves, independent measurements"));
    findings.neighbours = voteOfNeighbours(findings.dataset, flat, archivePath + ".neighbours");
    findings.tree = sortWithTree(findings.dataset, flat);
    findings.rules = decideWithRules(findings.dataset, flat);
    return findings;
}

WindowCounts countWindows(const Findings& findings, const WindowMap& windows, const Mosaic::Part& part)
{
    WindowCounts counts;
    counts.decided.resize(findings.dataset.surfaces.size() + 1);
    for (long row = 0; row < windows.rows; ++row)
    {
        for (long column = 0; column < windows.columns; ++column)
        {
            if (findings.mosaic.partAround(column * windowStep, row * windowStep, tileSize) != &part)
                continue;
            const Decision& decision = windows.decisions[static_cast<std::size_t>(row * windows.columns + column)];
            ++counts.total;
            ++counts.decided[decision.label < 0 ? counts.decided.size() - 1 : static_cast<std::size_t>(decision.label)];
            counts.certain += decision.refusal.empty() && certaintyOf(decision) > certainAbove;
        }
    }
    return counts;
}

double shareRight(const Findings& findings, const WindowMap& windows)
{
    long right = 0;
    long total = 0;
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        const WindowCounts counts = countWindows(findings, windows, part);
        total += counts.total;
        right += part.label < 0 ? counts.decided.back() : counts.decided[static_cast<std::size_t>(part.label)];
    }
    return static_cast<double>(right) / static_cast<double>(total);
}

} // namespace inspector
