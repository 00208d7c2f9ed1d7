#include "hand_rules.h"

#include "known_surfaces.h"

#include "clss/clastool/clastool/tkClassifierFeatureScore.h"

#include <algorithm>
#include <limits>

namespace inspector
{

namespace
{

/// A trapezoid: 0 up to `start`, rising to 1 at `from`, 1 up to `to`, falling to 0 at `end`.
tkPtrHandle<tkClsFtSc> about(double start, double from, double to, double end)
{
    tkClassifierFeatureScoreTwoSided trapezoid;
    trapezoid.init(from, start, start, to, end, end, 1.0, 0.0, 1.0, 0.0);
    return trapezoid.clone();
}

tkPtrHandle<tkClsFtSc> anything()
{
    return tkClassifierFeatureScoreIgnore().clone();
}

tkClassifierRule rule(long label, const std::vector<tkPtrHandle<tkClsFtSc>>& expected)
{
    tkClassifierRule result;
    result.init(expected, label);
    return result;
}

/// Written by looking at the tiles of the left halves: the plateaus hold about nine tiles of ten, the slopes end a
/// little beyond the last. The mean is left out, it tells of the lamp more than of the surface; so is the skewness of
/// brick, which one joint in the tile throws about. The narrow rule for gravel stands before that for grass, which
/// fits many a tile of gravel, too.
tkClassifierRuleTable handRules(const KnownSurfaces& known)
{
    tkClassifierRuleTable table;
    table.train({
        rule(known.brick, {anything(), about(0.0, 1.0, 36.0, 44.0), about(0.0, 0.5, 8.0, 11.0),
                           about(0.0, 0.5, 6.0, 10.0), about(0.0, 1.5, 12.0, 22.0), anything()}),
        rule(known.gravel, {anything(), about(22.0, 31.0, 44.0, 54.0), about(7.0, 11.0, 16.0, 20.0),
                            about(7.0, 12.0, 16.0, 20.0), about(18.0, 25.0, 34.0, 38.0), about(-1.8, -1.2, -0.2, 0.6)}),
        rule(known.grass, {anything(), about(20.0, 28.0, 44.0, 52.0), about(9.0, 13.0, 25.0, 32.0),
                           about(9.0, 14.0, 26.0, 32.0), about(27.0, 36.0, 66.0, 80.0), about(-1.6, -0.8, 0.1, 1.0)}),
    });
    return table;
}

Decision decide(const tkClassifierRuleTable& table, const Measurements& measured)
{
    Decision decision;
    decision.label = table.classifyHardThreshold(featureVector(measured), ruleThreshold);
    return decision;
}

std::vector<Decision> decideAll(const tkClassifierRuleTable& table, const std::vector<Tile>& tiles)
{
    std::vector<Decision> decisions;
    decisions.reserve(tiles.size());
    for (const Tile& tile : tiles)
        decisions.push_back(decide(table, tile.measured));
    return decisions;
}

std::vector<double> scoresOf(const tkClassifierRuleTable& table, const Measurements& measured)
{
    std::vector<double> scores;
    for (const tkClassifierRule& one : table.rules())
        scores.push_back(one.score(featureVector(measured)));
    return scores;
}

double secondBest(std::vector<double> scores)
{
    std::sort(scores.rbegin(), scores.rend());
    return scores[1];
}

} // namespace

tkClassifierFeatureVector featureVector(const Measurements& measured)
{
    std::vector<double> values = measured.values;
    for (const long index : measured.invalid)
        values[static_cast<std::size_t>(index)] = std::numeric_limits<double>::quiet_NaN();
    return tkClassifierFeatureVector(values);
}

std::optional<RuleFindings> decideWithRules(const Dataset& dataset, const Measurements& flatTile)
{
    const std::optional<KnownSurfaces> known = knownSurfaces(dataset);
    if (!known)
        return std::nullopt;

    RuleFindings findings;
    findings.table = handRules(*known);
    findings.learned = confusionOf(dataset, dataset.train, decideAll(findings.table, dataset.train));
    findings.tests = decideAll(findings.table, dataset.test);
    findings.confusion = confusionOf(dataset, dataset.test, findings.tests);
    findings.flatTile = decide(findings.table, flatTile);

    findings.closest = 0;
    for (std::size_t i = 0; i < dataset.test.size(); ++i)
    {
        const std::vector<double> scores = scoresOf(findings.table, dataset.test[i].measured);
        if (findings.scores.empty() || secondBest(scores) > secondBest(findings.scores))
        {
            findings.closest = i;
            findings.scores = scores;
        }
    }
    return findings;
}

} // namespace inspector
