#include "clss/clastool/clastool.h"
#include "foundation/tkArchiveFile.h"

#include <exception>
#include <iomanip>
#include <iostream>

namespace
{
/// Degree 1 from `from` to `to`, falling to 0 over `slope` on either side.
tkPtrHandle<tkClsFtSc> about(double from, double to, double slope)
{
    tkClassifierFeatureScoreTwoSided trapezoid;
    trapezoid.init(from, from - slope, from - slope, to, to + slope, to + slope, 1.0, 0.0, 1.0, 0.0);
    return trapezoid.clone();
}

/// Degree 0 up to `from - slope`, 1 from `from` on.
tkPtrHandle<tkClsFtSc> atLeast(double from, double slope)
{
    tkClassifierFeatureScoreOneSided ramp;
    ramp.init(from - slope, from, 1e9, 0.0, 1.0);
    return ramp.clone();
}

tkPtrHandle<tkClsFtSc> anything()
{
    return tkClassifierFeatureScoreIgnore().clone();
}

tkClassifierRule rule(long label, tkPtrHandle<tkClsFtSc> length, tkPtrHandle<tkClsFtSc> head,
                      tkPtrHandle<tkClsFtSc> roughness)
{
    tkClassifierRule r;
    r.init({length, head, roughness}, label);
    return r;
}
} // namespace

/// Screws on a belt, measured in mm: length, diameter of the head, and roughness of the surface. Nothing is learned:
/// the rules say what is expected, and the first rule that fits well enough decides.
int main()
{
    enum Label : long
    {
        damaged = 9,
        longScrew = 1,
        shortScrew = 2
    };

    try
    {
        // The most specific rule first: a rough surface is a damaged screw, whatever else was measured.
        tkClassifierRuleTable table;
        table.train({rule(damaged, anything(), anything(), atLeast(0.5, 0.2)),
                     rule(longScrew, about(39.5, 40.5, 2.0), about(7.8, 8.2, 0.5), anything()),
                     rule(shortScrew, about(19.5, 20.5, 2.0), about(7.8, 8.2, 0.5), anything())});

        const std::vector<std::vector<double>> screws = {
            {40.1, 8.0, 0.1}, {20.9, 8.3, 0.2}, {38.0, 8.1, 0.1}, {30.0, 8.0, 0.1}, {40.0, 8.0, 0.7}};
        for (const std::vector<double>& measured : screws)
        {
            const tkClassifierFeatureVector screw(measured);
            std::cout << std::setw(5) << measured[0] << " mm:  scores";
            for (const tkClassifierRule& r : table.rules())
                std::cout << "  " << r.label() << " " << std::fixed << std::setprecision(2) << r.score(screw);
            const long label = table.classifyHardThreshold(screw, 0.3);
            std::cout << (label == -1 ? "  -> no rule fits" : "  -> category " + std::to_string(label)) << '\n';
            std::cout << std::defaultfloat << std::setprecision(6);
        }

        tkArchiveFile::save("screws.tk", table);
        tkClassifierRuleTable loaded;
        tkArchiveFile::load("screws.tk", loaded);
        std::cout << (loaded == table ? "the stored table is equal\n" : "the stored table differs\n");
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
