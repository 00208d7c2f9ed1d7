#include "page.h"

#include "bayes.h"
#include "maps.h"
#include "text.h"

#include <cmath>
#include <ostream>

namespace inspector
{

namespace
{

std::string image(const std::string& address, const std::string& alt, long width, long height,
                  const std::string& className)
{
    return "<img class=\"" + className + "\" src=\"" + address + "\" alt=\"" + html(alt) + "\" width=\"" +
           std::to_string(width) + "\" height=\"" + std::to_string(height) + "\">";
}

std::string colourText(Colour colour)
{
    return "rgb(" + std::to_string(colour.red) + "," + std::to_string(colour.green) + "," +
           std::to_string(colour.blue) + ")";
}

} // namespace

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

std::string colourText(long label)
{
    return colourText(surfaceColour(label));
}

std::string swatch(long label)
{
    return "<span class=\"swatch\" style=\"background:" + colourText(label) + "\"></span>";
}

std::string tileImage(const Picture& tile, const std::string& alt, long side)
{
    return image(pngAddress(tile), alt, side, side, "pixels");
}

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

std::string scaleBar(const std::string& low, const std::string& middle, const std::string& high)
{
    std::string colours;
    for (int i = 0; i <= 8; ++i)
        colours += "," + colourText(valueColour(i / 8.0));
    return "<span class=\"scale\" style=\"background:linear-gradient(90deg" + colours +
           ")\"></span><span class=\"ends\"><span>" + low + "</span><span>" + middle + "</span><span>" + high +
           "</span></span>";
}

void writeLegend(std::ostream& out, const Dataset& dataset)
{
    out << "<ul class=\"legend\">";
    for (std::size_t i = 0; i < dataset.surfaces.size(); ++i)
        out << "<li>" << swatch(static_cast<long>(i)) << html(dataset.surfaces[i].name) << "</li>";
    out << "<li><span class=\"swatch\" style=\"background:#000\"></span>none of these</li></ul>\n";
}

void writeConfusion(std::ostream& out, const Dataset& dataset, const Confusion& confusion, const std::string& caption,
                    const std::string& none)
{
    const long numSurfaces = static_cast<long>(dataset.surfaces.size());
    out << "<div class=\"card scroll\"><table class=\"confusion\"><caption>" << caption
        << "</caption><thead><tr><th scope=\"col\">true \\ decided</th>";
    for (long label = 0; label < numSurfaces; ++label)
        out << "<th scope=\"col\">" << name(dataset, label) << "</th>";
    out << "<th scope=\"col\">" << none << "</th><th scope=\"col\">found</th></tr></thead><tbody>\n";
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

std::string fitText(const Decision& decision)
{
    const double fit = fitOf(decision);
    const std::string text = "Fit " + fixed(fit, 1);
    if (!std::isfinite(decision.limit))
        return text;
    return text + (fit < decision.limit
                       ? ", below the limit of " + fixed(decision.limit, 1) +
                             ": <strong>none of these</strong>, whatever the scores say"
                       : ", above the limit of " + fixed(decision.limit, 1) + ": it resembles what was learned");
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
    out << "</tbody></table></div><p>" << fitText(exhibit.decision) << ".</p></div>\n";
}

} // namespace inspector
