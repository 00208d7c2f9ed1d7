#include "page.h"
#include "report_sections.h"
#include "text.h"

#include <algorithm>
#include <ostream>

namespace inspector
{

namespace
{

// In the units of the drawing.
constexpr double drawingWidth = 320.0;
constexpr double drawingHeight = 150.0;
constexpr double left = 26.0;
constexpr double right = drawingWidth - 10.0;
constexpr double top = 12.0;
constexpr double bottom = drawingHeight - 26.0;

/// One measurement's membership functions, and the range in which they differ from 0.
struct Panel
{
    std::size_t measurement;
    double low;
    double high;

    double x(double value) const { return left + (right - left) * (value - low) / (high - low); }
    static double y(double degree) { return bottom - (bottom - top) * degree; }
};

/// Null if the rule leaves the measurement out.
const tkClassifierFeatureScoreTwoSided* trapezoid(const tkClassifierRule& rule, std::size_t measurement)
{
    return dynamic_cast<const tkClassifierFeatureScoreTwoSided*>(&*rule.scoringMethods()[measurement]);
}

std::string point(double x, double y)
{
    return fixed(x, 1) + "," + fixed(y, 1);
}

void writeCurve(std::ostream& out, const Panel& panel, const tkClassifierRule& rule)
{
    constexpr int steps = 142; // two units of the drawing each
    std::string line;
    for (int i = 0; i <= steps; ++i)
    {
        const double value = panel.low + (panel.high - panel.low) * i / steps;
        line += point(panel.x(value), Panel::y(trapezoid(rule, panel.measurement)->score(value))) + " ";
    }
    out << "<polygon class=\"member\" fill=\"" << colourText(rule.label()) << "\" points=\"" << point(left, bottom)
        << ' ' << line << point(right, bottom) << "\"/><polyline class=\"edge\" points=\"" << line
        << "\"/><polyline class=\"member\" stroke=\"" << colourText(rule.label()) << "\" points=\"" << line << "\"/>\n";
}

/// The curves of one measurement, and the tile's value on each of them.
void writePanel(std::ostream& out, const Panel& panel, const std::vector<tkClassifierRule>& rules, double value)
{
    const std::string measurement = html(measurementNames[panel.measurement]);
    out << "<figure class=\"card\"><h3>" << measurement
        << "</h3><svg class=\"drawing small\" role=\"img\" aria-label=\"Membership functions of " << measurement
        << "\" viewBox=\"0 0 " << fixed(drawingWidth, 0) << ' ' << fixed(drawingHeight, 0)
        << "\">\n<path class=\"frame\" d=\"M" << point(left, top) << 'H' << fixed(right, 1) << 'M'
        << point(left, bottom) << 'H' << fixed(right, 1) << "\"/>";
    const auto text = [&](double x, double y, const std::string& anchor, const std::string& words)
    {
        out << "<text class=\"faint\" x=\"" << fixed(x, 1) << "\" y=\"" << fixed(y, 1) << "\" text-anchor=\"" << anchor
            << "\">" << words << "</text>";
    };
    text(left - 6.0, top + 4.0, "end", "1");
    text(left - 6.0, bottom + 4.0, "end", "0");
    const int digits = panel.high - panel.low < 10.0 ? 1 : 0;
    text(left, bottom + 18.0, "start", fixed(panel.low, digits));
    text(right, bottom + 18.0, "end", fixed(panel.high, digits));
    out << '\n';

    for (const tkClassifierRule& rule : rules)
    {
        if (trapezoid(rule, panel.measurement))
            writeCurve(out, panel, rule);
    }

    const double x = std::clamp(panel.x(value), left, right);
    out << "<path class=\"mark\" d=\"M" << point(x, top - 8.0) << 'V' << fixed(bottom + 5.0, 1) << "\"/>";
    for (const tkClassifierRule& rule : rules)
    {
        if (const auto* function = trapezoid(rule, panel.measurement))
        {
            out << "<circle class=\"mark\" cx=\"" << fixed(x, 1) << "\" cy=\""
                << fixed(Panel::y(function->score(value)), 1) << "\" r=\"4.5\" fill=\"" << colourText(rule.label())
                << "\"/>";
        }
    }
    text(x, bottom + 18.0, "middle", fixed(value, 2));
    out << "</svg></figure>\n";
}

void writePanels(std::ostream& out, const std::vector<tkClassifierRule>& rules, const Measurements& measured)
{
    for (std::size_t i = 0; i < numMeasurements; ++i)
    {
        std::vector<double> ends;
        for (const tkClassifierRule& rule : rules)
        {
            if (const auto* function = trapezoid(rule, i))
                ends.insert(ends.end(), {function->x1(), function->x1h()});
        }
        if (!ends.empty())
        {
            const auto range = std::minmax_element(ends.begin(), ends.end());
            writePanel(out, {i, *range.first, *range.second}, rules, measured.values[i]);
        }
    }
}

/// The tile whose values are marked, and what the rules say to it.
void writeMarkedTile(std::ostream& out, const Dataset& dataset, const RuleFindings& rules)
{
    const Tile& tile = dataset.test[rules.closest];
    const std::string is = surfaceName(dataset, tile.label);
    out << "<div class=\"card\"><h3>The marked tile</h3><span class=\"soft\">" << html(is) << ", at (" << tile.x << ", "
        << tile.y << ")</span><div class=\"tile\">"
        << tileImage(
               crop(dataset.surfaces[static_cast<std::size_t>(tile.label)].picture, tile.x, tile.y, tileSize, tileSize),
               "A tile of " + is, 96)
        << "<table class=\"result\"><thead><tr><th scope=\"col\">rule</th><th scope=\"col\">score</th></tr></thead>"
           "<tbody>";
    for (std::size_t i = 0; i < rules.scores.size(); ++i)
    {
        const long label = rules.table.rules()[i].label();
        out << "<tr><th scope=\"row\">" << swatch(label) << name(dataset, label)
            << "</th><td><span class=\"bar\" style=\"width:" << fixed(3.0 * rules.scores[i], 2) << "rem\"></span>"
            << fixed(rules.scores[i], 2) << "</td></tr>";
    }
    const long decided = rules.tests[rules.closest].label;
    out << "</tbody></table></div><p>The first rule above " << fixed(ruleThreshold, 2) << ": <strong>"
        << (decided < 0 ? "none" : name(dataset, decided)) << "</strong>.</p></div>\n";
}

} // namespace

void writeRuleSection(std::ostream& out, const Findings& findings, const RuleFindings& rules)
{
    const Dataset& dataset = findings.dataset;
    const long agreeing = static_cast<long>(rules.tests.size()) - countChanged(findings.tests, rules.tests);
    out << "<h2>Said by hand: a rule table</h2>\n<p>For each surface someone wrote down what its tiles are like, as a "
           "trapezoid per measurement: degree 1 where a value is as expected, falling to 0 where it is out of the "
           "question. A rule's score is the geometric mean of its degrees, so that a single 0 is a veto. The first "
           "rule that scores above "
        << fixed(ruleThreshold, 2)
        << " decides; if there is none, no rule fits, and none is made to. The mean grey level is left out, it tells "
           "of "
           "the lamp more than of the surface.</p>\n<div class=\"row\">\n";
    writePanels(out, rules.table.rules(), dataset.test[rules.closest].measured);
    writeMarkedTile(out, dataset, rules);
    out << "</div>\n<p>The tile that is marked is the closest call of all, the one for which the second rule speaks "
           "most. The rules make the same decision as the Bayesian method on <strong>"
        << percent(static_cast<double>(agreeing) / static_cast<double>(rules.tests.size()))
        << "</strong> of the tiles. On the left halves, which they were written for, they are right for <strong>"
        << percent(rules.learned.accuracy()) << "</strong>, on the right halves for <strong>"
        << percent(rules.confusion.accuracy()) << "</strong>.</p>\n";
}

} // namespace inspector
