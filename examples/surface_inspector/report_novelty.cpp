#include "bayes.h"
#include "maps.h"
#include "novelty.h"
#include "page.h"
#include "report_sections.h"
#include "text.h"

#include <algorithm>
#include <cmath>
#include <ostream>

namespace inspector
{

namespace
{

double shareOf(long count, long total)
{
    return static_cast<double>(count) / static_cast<double>(total);
}

/// What posterior and fit say of each part.
void writePartTable(std::ostream& out, const Findings& findings)
{
    out << "<div class=\"card scroll\"><table class=\"spreads\"><caption>Windows that lie wholly in one part</caption>"
           "<thead><tr><th scope=\"col\">part</th><th scope=\"col\">windows</th><th scope=\"col\">posterior<br>above "
        << fixed(certainAbove, 2)
        << "</th><th scope=\"col\">none of<br>these</th><th scope=\"col\">right by<br>posterior</th><th scope=\"col\">"
           "right<br>with fit</th></tr></thead><tbody>\n";
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        const WindowCounts plain = countWindows(findings, findings.windows, part);
        const WindowCounts fitting = countWindows(findings, findings.novelty.windows, part);
        const std::size_t wanted = part.label < 0 ? plain.decided.size() - 1 : static_cast<std::size_t>(part.label);
        out << "<tr><th scope=\"row\">" << html(part.name)
            << (part.label < 0 ? " <span class=\"soft\">(never trained)</span>" : "") << "</th><td>" << plain.total
            << "</td><td>" << percent(shareOf(plain.certain, plain.total)) << "</td><td>"
            << percent(shareOf(fitting.decided.back(), fitting.total)) << "</td><td>"
            << percent(shareOf(plain.decided[wanted], plain.total)) << "</td><td>"
            << percent(shareOf(fitting.decided[wanted], fitting.total)) << "</td></tr>\n";
    }
    out << "<tr><th scope=\"row\">all together</th><td></td><td></td><td></td><td>"
        << percent(shareRight(findings, findings.windows)) << "</td><td><strong>"
        << percent(shareRight(findings, findings.novelty.windows)) << "</strong></td></tr>\n</tbody></table></div>\n";
}

/// How far above its limit the tile of a decision fits; plus infinity where there is no limit.
double marginOf(const Decision& decision)
{
    return fitOf(decision) - decision.limit;
}

void writeFitMap(std::ostream& out, const Findings& findings)
{
    const WindowMap& windows = findings.novelty.windows;
    double reach = 1.0;
    for (const Decision& decision : windows.decisions)
    {
        if (decision.refusal.empty() && std::isfinite(marginOf(decision)))
            reach = std::max(reach, marginOf(decision));
    }
    writeOverMosaic(out, findings.mosaic,
                    valueMap(findings.mosaic, windows,
                             [&](const Decision& decision) { return marginOf(decision) / reach * 0.5 + 0.5; }),
                    "How far above the limit of the surface that it fits best every window fits",
                    "<strong>Absolute fit</strong>: log likelihood under the best surface, less the limit of that "
                    "surface." +
                        scaleBar("−" + fixed(reach, 0) + " or less", "the limit", "+" + fixed(reach, 0)));
}

bool hasLimit(const Findings& findings)
{
    const std::vector<double>& limits = findings.novelty.limits;
    return std::any_of(limits.begin(), limits.end(), [](double limit) { return std::isfinite(limit); });
}

/// "brick −19.5, grass −24.0 and gravel −21.1".
std::string limitsText(const Findings& findings)
{
    const std::vector<double>& limits = findings.novelty.limits;
    std::string text;
    for (std::size_t label = 0; label < limits.size(); ++label)
    {
        text += label == 0 ? "" : label + 1 < limits.size() ? ", " : " and ";
        text += html(findings.dataset.surfaces[label].name) + " ";
        text += std::isfinite(limits[label]) ? fixed(limits[label], 1) : "none (too few tiles)";
    }
    return text;
}

} // namespace

void writeNoveltySection(std::ostream& out, const Findings& findings)
{
    const Novelty& novelty = findings.novelty;
    out << "<h2>Certain is not the same as known</h2>\n";
    for (const Mosaic::Part& part : findings.mosaic.parts)
    {
        if (part.label >= 0)
            continue;
        const WindowCounts plain = countWindows(findings, findings.windows, part);
        const WindowCounts fitting = countWindows(findings, novelty.windows, part);
        out << "<p class=\"point\">No tile of " << html(part.name)
            << " was learned. Still the posterior probability of the "
            << "best surface exceeds " << fixed(certainAbove, 2) << " on <strong>"
            << percent(shareOf(plain.certain, plain.total)) << "</strong> of its windows. By the absolute fit, <strong>"
            << percent(shareOf(fitting.decided.back(), fitting.total)) << "</strong> of them are none of these.</p>\n";
    }
    out << "<p>A posterior probability compares the learned surfaces with one another: far away from all of them, the "
           "nearest still takes nearly everything. The absolute fit, the log likelihood under the best surface, tells "
           "whether the tile resembles any. The result carries it: <code>matchScoreFactorLog()</code> is its negated "
           "value.</p>\n";
    if (hasLimit(findings))
    {
        out << "<p>What fits worse than the limit of its best surface is called none of these. The limits, <strong>"
            << limitsText(findings) << "</strong>, come from the left halves alone: " << percent(noveltyLevel)
            << " of a surface's tiles fit worse when a classifier judges them that was trained without them and their "
               "neighbours (ten-fold cross-validation in bands across the pictures). Where a measurement is invalid, "
               "the limits are those of the same tiles without this measurement, since likelihoods of five "
               "measurements and of six cannot be compared. On the right halves it turns "
            << countChanged(findings.tests, novelty.tests) << " of " << novelty.tests.size() << " tiles away.</p>\n";
    }
    out << "<div class=\"row wide\">\n";
    const double chance = 1.0 / static_cast<double>(findings.dataset.surfaces.size());
    writeOverMosaic(
        out, findings.mosaic,
        valueMap(findings.mosaic, findings.windows,
                 [&](const Decision& decision) { return (certaintyOf(decision) - chance) / (1.0 - chance); }),
        "The posterior probability of the best surface at every window",
        "<strong>Certainty</strong>: posterior probability of the best surface." + scaleBar(fixed(chance, 2), "", "1"));
    if (hasLimit(findings))
        writeFitMap(out, findings);
    out << "</div>\n";
    writePartTable(out, findings);
}

} // namespace inspector
