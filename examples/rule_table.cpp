#include "clss/clastool/clastool.h"

#include <exception>
#include <iostream>
#include <limits>
#include <vector>

namespace
{
enum Category : long
{
    damaged,
    longScrew,
    shortScrew,
};
const char* const categoryNames[] = {"damaged", "long", "short"};

// How well a value fits what a rule expects is a degree between 0 and 1.

/// Degree 1 from `from` to `to`, falling to 0 over `slope` on either side.
tkPtrHandle<tkClsFtSc> about(double from, double to, double slope)
{
    // First the corners of the low side, from the top outwards, and of the high side; then the degrees at them.
    tkClassifierFeatureScoreTwoSided trapezoid;
    trapezoid.init(from, from - slope, from - slope, to, to + slope, to + slope, 1.0, 0.0, 1.0, 0.0);
    return trapezoid.clone();
}

/// Degree 0 up to `from - slope`, rising to 1 at `from`, and 1 from there on.
tkPtrHandle<tkClsFtSc> atLeast(double from, double slope)
{
    // The two corners of the ramp, the end of the plateau behind it, and the degrees at the corners.
    tkClassifierFeatureScoreOneSided ramp;
    ramp.init(from - slope, from, std::numeric_limits<double>::infinity(), 0.0, 1.0);
    return ramp.clone();
}

/// Leaves the measurement out of the rule.
tkPtrHandle<tkClsFtSc> anything()
{
    return tkClassifierFeatureScoreIgnore().clone();
}

/// What is expected of each measurement of a category: length, width of the head, roughness of the surface.
tkClassifierRule rule(Category category, const std::vector<tkPtrHandle<tkClsFtSc>>& expected)
{
    tkClassifierRule r;
    r.init(expected, category);
    return r;
}
} // namespace

/// Sorts screws on a belt. Nothing is learned: rules written by hand say what is expected of each category.
int main()
{
    try
    {
        // The first rule that fits decides, also where a later one fits better. So the most specific comes first: a
        // rough surface is a damaged screw, whatever else was measured.
        tkClassifierRuleTable table;
        table.train({
            rule(damaged, {anything(), anything(), atLeast(0.5, 0.2)}),
            rule(longScrew, {about(39.5, 40.5, 2.0), about(7.8, 8.2, 0.5), anything()}),
            rule(shortScrew, {about(19.5, 20.5, 2.0), about(7.8, 8.2, 0.5), anything()}),
        });

        // The score of a rule is the geometric mean of its degrees: one degree of 0 makes it 0. A rule fits when its
        // score is greater than the threshold.
        const double threshold = 0.3;
        const std::vector<std::vector<double>> screws = {
            {40.1, 8.0, 0.1}, {20.9, 8.3, 0.2}, {38.0, 8.1, 0.1}, {30.0, 8.0, 0.1}, {40.0, 8.0, 0.7}};
        for (const std::vector<double>& measurements : screws)
        {
            const tkClassifierFeatureVector screw(measurements);
            std::cout << measurements[0] << " mm:";
            for (const tkClassifierRule& r : table.rules())
                std::cout << ' ' << categoryNames[r.label()] << ' ' << r.score(screw) << ',';
            const long label = table.classifyHardThreshold(screw, threshold); // -1: no rule fits
            std::cout << " decision: " << (label == -1 ? "none" : categoryNames[label]) << '\n';
        }

        tkArchiveFile::save("screws.tk", table);
        tkClassifierRuleTable loaded;
        tkArchiveFile::load("screws.tk", loaded);
        std::cout << (loaded == table ? "the loaded table is equal\n" : "the loaded table differs\n");
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
