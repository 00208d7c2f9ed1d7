#include "neighbours.h"

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkClassifierTrainParamsKNN.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkArchiveFile.h"

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

std::vector<Pattern> scaledPatterns(const std::vector<Tile>& tiles, const Scaling& scaling)
{
    std::vector<Pattern> patterns;
    patterns.reserve(tiles.size());
    for (const Tile& tile : tiles)
        patterns.push_back(scaling.pattern(tile.measured));
    return patterns;
}

} // namespace

NeighbourFindings voteOfNeighbours(const Dataset& dataset, const Measurements& flatTile, const std::string& archivePath)
{
    const Scaling scaling = scalingOf(dataset.train);
    const std::vector<Pattern> learned = scaledPatterns(dataset.train, scaling);
    tkClassifierDataProviderMemory provider;
    for (std::size_t i = 0; i < learned.size(); ++i)
        provider.addData(learned[i], dataset.train[i].label);
    tkClassifierTool tool;
    tool.train(provider, tkClassifierTrainParamsKNN(numNeighbours));

    NeighbourFindings findings;
    const std::vector<Pattern> tests = scaledPatterns(dataset.test, scaling);
    findings.tests = decideAll(tool, tests, "Right halves, neighbours");
    findings.confusion = confusionOf(dataset, dataset.test, findings.tests);
    findings.flatTile = decide(tool, *scaling.pattern(flatTile));

    tkArchiveFile::save(archivePath, tool);
    tkClassifierTool loaded;
    tkArchiveFile::load(archivePath, loaded);
    findings.equal = loaded == tool;
    // A nearest-neighbour classifier comes out of its file with the training data, but runs with the parameters of a
    // new one (one neighbour, Euclidean distance, equal costs). Those it was trained with are still in trainParams():
    // retraining with them, which reads no training data, brings back k, metric and costs.
    findings.differingAtFirst = countDiffering(findings.tests, decideAll(loaded, tests, "Neighbours, as loaded"));
    loaded.retrain(*loaded.trainParams());
    findings.differingAtLast = countDiffering(findings.tests, decideAll(loaded, tests, "Neighbours, retrained"));
    return findings;
}

} // namespace inspector
