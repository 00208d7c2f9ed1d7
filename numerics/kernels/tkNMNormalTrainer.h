#ifndef NUMERICS_KERNELS_TKNMNORMALTRAINER_H
#define NUMERICS_KERNELS_TKNMNORMALTRAINER_H

#include "numerics/tkNMAligned.h"
#include "numerics/tkNMStatistics.h"

#include <cstddef>
#include <vector>

/// Computes tkNMStatistics::add for several statistics at once, each of its own measurements of the same patterns.
///
/// Between add() and finish() it keeps what it has learned: the statistics are not to be used meanwhile. The means of
/// all measurements stand side by side, eight in a group, and one pattern updates a register of them at a time.
/// Deviations wait in a buffer of up to 16 patterns, so that each cross product is read and written once for all of
/// these. Cost per pattern in proportion to the squares of the dimensions. tkNMNormalTrainer_test.cpp holds it to the
/// bits.
class TK_EXPORT tkNMNormalTrainer
{
public:
    struct Part
    {
        tkNMStatistics* statistics;
        std::size_t first; // of its measurements in the pattern
    };

    /// For patterns of `size` measurements, of which there are at most `patternCount`.
    /// *Requires* instructions <= tkNMBestInstructions().
    tkNMNormalTrainer(std::size_t size, std::size_t patternCount,
                      tkNMInstructions instructions = tkNMBestInstructions());
    tkNMNormalTrainer(tkNMNormalTrainer&& other) noexcept;
    tkNMNormalTrainer& operator=(tkNMNormalTrainer&&) = delete;
    ~tkNMNormalTrainer() { finish(); }

    /// Takes these parts, which stay where they are. False, and nothing done, if there is none, if one reaches beyond
    /// the pattern or into another, has a count of 0 or cannot count all patterns to come, and for patterns of no or
    /// more than 1,024 measurements. *Requires* that it is not started.
    bool start(const std::vector<Part>& parts);
    bool isStarted() const { return !parts_.empty(); }

    /// Adds one pattern. False, and nothing added, if a measurement, in a part or not, is NaN or beyond
    /// tkNMStatistics::largestMagnitude. *Requires* isStarted().
    bool add(const double* pattern);
    /// Whether add() would add it.
    bool canAdd(const double* pattern) const;

    /// Writes what was learned into the statistics. These may then change before the next add(), but keep their sizes.
    void finish() noexcept;

private:
    /// Eight measurements.
    struct alignas(64) Group_
    {
        double counts[8] = {};
        double means[8] = {};
        double compensations[8] = {};
        double squares[8] = {}; // sums of squares, for parts of one measurement
    };

    static bool addToMeans_(Group_* groups, std::size_t size, const double* x, double* deviationsOrNull,
                            tkNMInstructions instructions);
    bool canTrain_(const std::vector<Part>& parts) const;
    void load_();
    void addCrossProducts_() noexcept;

    std::size_t size_;
    std::size_t patternCount_;
    tkNMInstructions instructions_;
    std::vector<Part> parts_;
    bool isLoaded_ = false; // whether the statistics are in groups_
    std::vector<Group_> groups_;
    tkNMAlignedDoubles deviations_; // of the buffered patterns: from the mean before, then after, pattern by pattern
    std::size_t capacity_ = 0;      // of the buffer, in patterns; 0 if all parts have one measurement
    std::size_t count_ = 0;         // buffered patterns
};

#endif
