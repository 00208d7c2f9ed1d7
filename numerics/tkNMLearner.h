#ifndef NUMERICS_TKNMLEARNER_H
#define NUMERICS_TKNMLEARNER_H

#include "numerics/tkNMNormal.h"

#include <cstddef>
#include <vector>

/// Normal distributions that learn many patterns together, each its own measurements: faster than each on its own with
/// tkNMNormal::add(), and with the same bits.
///
/// From add() to finish() it stands in for the distributions, which are not to be used meanwhile. All means stand side
/// by side in the order of the measurements, and follow each pattern at once. The sums of products are much more than
/// the pattern; they wait for a block of patterns, so that each is read and written once for all of them.
class TK_EXPORT tkNMLearner
{
public:
    struct Part
    {
        tkNMNormal* normal;
        std::size_t first; // of its measurements
    };

    /// For patterns of `size` measurements, of which there are at most `patternCount`. *Requires* level <=
    /// tkNMBestInstructions().
    tkNMLearner(std::size_t size, std::size_t patternCount, tkNMInstructions level = tkNMBestInstructions());
    tkNMLearner(tkNMLearner&& other) noexcept;
    tkNMLearner& operator=(tkNMLearner&&) = delete;
    ~tkNMLearner() { finish(); }

    /// Will learn for these distributions. False, and nothing done, unless they have the pattern's measurements once
    /// each, have learned a pattern, and can count all those to come; and for patterns of no or more than 1,024
    /// measurements.
    bool start(const std::vector<Part>& parts);
    bool isStarted() const { return !parts_.empty(); }

    /// Learns one pattern. False, and nothing learned, if a measurement is NaN or beyond
    /// tkNMNormal::largestMagnitude(). *Requires* isStarted().
    bool add(const double* pattern);

    /// Lets the distributions have what was learned. They may then learn on their own before the next add().
    void finish() noexcept;

private:
    /// What belongs to eight neighbouring measurements.
    struct alignas(64) Group_
    {
        double counts[8] = {};
        double means[8] = {};
        double remainders[8] = {}; // means + remainders are the means
        double squares[8] = {};    // sums of squares, of use for a distribution of one measurement
    };
    struct alignas(64) Eight_
    {
        double values[8] = {};
    };

    static bool follow_(Group_* groups, std::size_t size, const double* x, double* deviationsOrNull,
                        tkNMInstructions level);
    void standIn_();
    void addProducts_() noexcept;

    std::size_t size_;
    std::size_t patternCount_;
    tkNMInstructions level_;
    std::vector<Part> parts_;
    bool standsIn_ = false;
    std::vector<Group_> groups_;
    std::vector<Eight_> row_;        // a pattern with zeros behind it, where its size is no multiple of eight
    std::vector<Eight_> deviations_; // of the patterns that wait: before and after, pattern by pattern
    std::size_t capacity_ = 0;       // patterns that may wait; 0 if all distributions are of one measurement
    std::size_t count_ = 0;          // patterns that wait
};

#endif
