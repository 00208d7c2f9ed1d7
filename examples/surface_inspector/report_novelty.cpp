#include "bayes.h"
#include "maps.h"
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

void writeFitMap(std::ostream& out, const Findings& findings)
{
    const double threshold = findings.novelty.threshold;
    double best = threshold;
    for (const Decision& decision : findings.windows.decisions)
    {
        if (decision.refusal.empty())
            best = std::max(best, fitOf(decision));
    }
    const double reach = std::max(best - threshold, 1.0);
    writeOverMosaic(out, findings.mosaic,
                    valueMap(findings.mosaic, findings.windows,
                             [&](const Decision& decision)
                             { return (fitOf(decision) - threshold) / reach * 0.5 + 0.5; }),
                    "How well every window fits the surface that it fits best",
                    "<strong>Absolute fit</strong>: log likelihood under the best surface." +
                        scaleBar(fixed(threshold - reach, 0) + " or less", fixed(threshold, 1), fixed(best, 0)));
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
    if (std::isfinite(novelty.threshold))
    {
        out << "<p>What fits worse than <strong>" << fixed(novelty.threshold, 2)
            << "</strong> is called none of these. This threshold comes from the left halves alone: "
            << percent(noveltyLevel)
            << " of their tiles fit worse when a classifier judges them that was trained without them and their "
               "neighbours (five-fold cross-validation in bands across the pictures). On the right halves it turns "
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
    if (std::isfinite(novelty.threshold))
        writeFitMap(out, findings);
    out << "</div>\n";
    writePartTable(out, findings);
}

} // namespace inspector
