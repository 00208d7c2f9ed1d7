#include "page.h"
#include "report_sections.h"
#include "text.h"

#include <algorithm>
#include <numeric>
#include <ostream>

namespace inspector
{

namespace
{

// In the units of the drawing.
constexpr double columnWidth = 140.0;
constexpr double levelHeight = 106.0;
constexpr double boxHeight = 58.0;
constexpr double leafWidth = 116.0;
constexpr double nodeWidth = 172.0;
constexpr double border = 8.0;

long total(const Branch& branch)
{
    return std::accumulate(branch.counts.begin(), branch.counts.end(), 0L);
}

long numLeaves(const Branch& branch)
{
    long count = branch.isLeaf() ? 1 : 0;
    for (const Branch& below : branch.branches)
        count += numLeaves(below);
    return count;
}

long depth(const Branch& branch)
{
    long deepest = 0;
    for (const Branch& below : branch.branches)
        deepest = std::max(deepest, 1 + depth(below));
    return deepest;
}

/// The middle of a branch whose leaves begin with the column `column`: halfway between what lies below.
double middleOf(const Branch& branch, long column)
{
    if (branch.isLeaf())
        return border + (static_cast<double>(column) + 0.5) * columnWidth;
    return 0.5 * (middleOf(branch.branches[0], column) +
                  middleOf(branch.branches[1], column + numLeaves(branch.branches[0])));
}

std::string leafName(const Dataset& dataset, const TreeFindings& tree, long label)
{
    return label == tree.measureAgain ? "measure again" : name(dataset, label);
}

class TreeDrawing
{
public:
    TreeDrawing(std::ostream& out, const Dataset& dataset, const TreeFindings& tree)
        : out_(out),
          dataset_(dataset),
          tree_(tree)
    {
    }

    void write()
    {
        const double width = 2.0 * border + columnWidth * static_cast<double>(numLeaves(tree_.root));
        const double height = 2.0 * border + boxHeight + levelHeight * static_cast<double>(depth(tree_.root));
        out_ << "<svg class=\"drawing\" role=\"img\" aria-label=\"The decision tree with the numbers of tiles at each "
                "node and leaf\" viewBox=\"0 0 "
             << fixed(width, 0) << ' ' << fixed(height, 0) << "\">\n";
        writeBranch_(tree_.root, 0, border);
        out_ << "</svg>\n";
    }

private:
    /// Lines to what lies below, as wide as tiles go there, and then the box over their beginnings.
    void writeBranch_(const Branch& branch, long column, double top)
    {
        const double middle = middleOf(branch, column);
        for (std::size_t i = 0; i < branch.branches.size(); ++i)
        {
            const Branch& below = branch.branches[i];
            const double end = middleOf(below, column);
            const double from = top + boxHeight;
            const double to = top + levelHeight;
            const double bend = 0.5 * (from + to);
            const double share = static_cast<double>(total(below)) / static_cast<double>(total(tree_.root));
            out_ << "<path class=\"branch\" style=\"stroke-width:" << fixed(1.5 + 16.0 * share, 1) << "\" d=\"M"
                 << fixed(middle, 1) << ' ' << fixed(from, 1) << 'C' << fixed(middle, 1) << ' ' << fixed(bend, 1) << ' '
                 << fixed(end, 1) << ' ' << fixed(bend, 1) << ' ' << fixed(end, 1) << ' ' << fixed(to, 1) << "\"/>";
            const bool left = i == 0;
            writeText_(end + (left ? -14.0 : 14.0), to - 10.0, left ? "yes" : "no", "faint", left ? "end" : "start");
            writeBranch_(below, column, to);
            column += numLeaves(below);
        }
        if (branch.isLeaf())
            writeLeaf_(branch, middle, top);
        else
            writeNode_(branch, middle, top);
    }

    void writeNode_(const Branch& branch, double middle, double top)
    {
        writeBox_(middle, top, nodeWidth, "question");
        writeText_(middle, top + 17.0, html(branch.question), "strong", "middle");
        writeText_(middle, top + 32.0, html(branch.condition), "", "middle");
        writeCounts_(branch, middle, top, nodeWidth);
    }

    void writeLeaf_(const Branch& branch, double middle, double top)
    {
        writeBox_(middle, top, leafWidth, "box");
        const std::string text = leafName(dataset_, tree_, branch.label);
        if (branch.label == tree_.measureAgain)
        {
            writeText_(middle, top + 17.0, text, "strong", "middle");
        }
        else
        {
            out_ << "<rect x=\"" << fixed(middle - 34.0, 1) << "\" y=\"" << fixed(top + 7.0, 1)
                 << "\" width=\"11\" height=\"11\" rx=\"2\" fill=\"" << colourText(branch.label) << "\"/>";
            writeText_(middle - 18.0, top + 17.0, text, "strong", "start");
        }
        const long count = total(branch);
        writeText_(middle, top + 32.0, std::to_string(count) + (count == 1 ? " tile" : " tiles"), "faint", "middle");
        writeCounts_(branch, middle, top, leafWidth);
    }

    void writeBox_(double middle, double top, double width, const std::string& className)
    {
        out_ << "<rect class=\"" << className << "\" x=\"" << fixed(middle - 0.5 * width, 1) << "\" y=\""
             << fixed(top, 1) << "\" width=\"" << fixed(width, 1) << "\" height=\"" << fixed(boxHeight, 1)
             << "\" rx=\"8\"/>";
    }

    /// A bar of the surfaces whose tiles came here, in its parts, with their numbers where they are wide enough.
    void writeCounts_(const Branch& branch, double middle, double top, double width)
    {
        if (total(branch) == 0)
            return;
        const double whole = width - 20.0;
        double left = middle - 0.5 * whole;
        out_ << "<g>";
        for (std::size_t label = 0; label < branch.counts.size(); ++label)
        {
            const double part = whole * static_cast<double>(branch.counts[label]) / static_cast<double>(total(branch));
            if (branch.counts[label] > 0)
            {
                out_ << "<rect x=\"" << fixed(left, 2) << "\" y=\"" << fixed(top + 40.0, 1) << "\" width=\""
                     << fixed(part, 2) << "\" height=\"9\" fill=\"" << colourText(static_cast<long>(label))
                     << "\"><title>" << branch.counts[label] << " of " << name(dataset_, static_cast<long>(label))
                     << "</title></rect>";
            }
            left += part;
        }
        out_ << "</g>\n";
    }

    void writeText_(double x, double y, const std::string& text, const std::string& className,
                    const std::string& anchor)
    {
        out_ << "<text class=\"" << className << "\" x=\"" << fixed(x, 1) << "\" y=\"" << fixed(y, 1)
             << "\" text-anchor=\"" << anchor << "\">" << text << "</text>";
    }

    std::ostream& out_;
    const Dataset& dataset_;
    const TreeFindings& tree_;
};

/// A leaf's row for each leaf, from left to right.
void writeLeafRows(std::ostream& out, const Dataset& dataset, const TreeFindings& tree, const Branch& branch,
                   const std::string& path)
{
    if (!branch.isLeaf())
    {
        const char* const answers[] = {"yes", "no"};
        for (std::size_t i = 0; i < branch.branches.size(); ++i)
            writeLeafRows(out, dataset, tree, branch.branches[i], path + (path.empty() ? "" : ", ") + answers[i]);
        return;
    }
    out << "<tr><th scope=\"row\">" << path << "</th><td>" << leafName(dataset, tree, branch.label) << "</td>";
    for (const long count : branch.counts)
        out << "<td>" << count << "</td>";
    out << "</tr>\n";
}

} // namespace

void writeTreeSection(std::ostream& out, const Findings& findings, const TreeFindings& tree)
{
    const Dataset& dataset = findings.dataset;
    out << "<h2>Asked by hand: a decision tree</h2>\n<p>Nothing is trained here. Someone looked at the tiles of the "
           "left halves, wrote down four questions in grey levels, and built them into a tree. The first sends a tile "
           "with an invalid measurement to a category of its own, <em>measure again</em>; the others sort the rest. "
           "The lines are as wide as tiles of the right halves went that way, and the bars show which surfaces they "
           "really were.</p>\n<figure class=\"card scroll\">";
    TreeDrawing(out, dataset, tree).write();
    out << "</figure>\n<div class=\"card scroll\"><table class=\"spreads\"><caption>How the tiles fell: the answers "
           "that lead to each leaf</caption><thead><tr><th scope=\"col\">answers</th><th scope=\"col\">leaf</th>";
    for (std::size_t label = 0; label < dataset.surfaces.size(); ++label)
        out << "<th scope=\"col\">" << swatch(static_cast<long>(label)) << name(dataset, static_cast<long>(label))
            << "</th>";
    out << "</tr></thead><tbody>\n";
    writeLeafRows(out, dataset, tree, tree.root, "");
    out << "</tbody></table><p>On the left halves, which it was made for, the tree is right for <strong>"
        << percent(tree.learned.accuracy()) << "</strong>, on the right halves for <strong>"
        << percent(tree.confusion.accuracy()) << "</strong>.</p></div>\n";
}

} // namespace inspector
