#ifndef NUMERICS_TKNMNORMALPRODUCTS_H
#define NUMERICS_TKNMNORMALPRODUCTS_H

#include "foundation/tkRepBase.h"
#include "numerics/tkNMMahalanobis.h"
#include "numerics/tkNMTriangle.h"

#include <cstddef>
#include <vector>

/// Products of normal densities, all evaluated at one point. Those of the same sets of measurements stand side by side,
/// a product in each lane of wide instructions: each takes the operations of one alone, in their order, and none waits
/// for another.
///
/// Each factor mirrors one distribution, a tkNMNormal that empties its place as soon as it changes: a place is never
/// out of date. Several threads may evaluate; filling and emptying a place excludes every other use, as changing the
/// distribution does.
class TK_EXPORT tkNMNormalProducts : public tkRepBase
{
public:
    /// The measurements of a factor, `size` from `first` on.
    struct Set
    {
        std::size_t first;
        std::size_t size;

        bool operator<(const Set& other) const
        {
            return first < other.first || (first == other.first && size < other.size);
        }
    };

    /// Sets of one size, each of which begins where the one before it ends.
    struct Run
    {
        Set first;
        std::size_t count;
        std::size_t firstFactor; // its number in the product
        std::size_t begin;       // elements of the factors before it

        bool isContinuedBy(const Set& set) const
        {
            return set.size == first.size && set.first == first.first + count * first.size;
        }
    };

    /// Empty places for the factors of each product, by the sets of these. *Requires* sizes > 0 and
    /// level <= tkNMBestInstructions().
    explicit tkNMNormalProducts(const std::vector<std::vector<Set>>& products,
                                tkNMInstructions level = tkNMBestInstructions());

    /// Number of products.
    std::size_t size() const { return places_.size(); }
    /// Whether the product takes part: one without factors does not, and of those with the same sets some are better
    /// evaluated elsewhere if they are few, or their sets large. *Requires* product < size().
    bool hasPlaces(std::size_t product) const { return places_[product].isThere; }
    /// Number of measurements of a point that are read.
    std::size_t reach() const { return reach_; }

    /// *Requires* a place that exists, and as many measurements as its set has.
    void fill(std::size_t product, std::size_t factor, const tkNMMahalanobis& distance, double logPeak);
    void empty(std::size_t product, std::size_t factor);

    /// logs[c] = ((0.0 + f_0) + f_1) + ... of product c, with f_i = logPeak - d²/2 at reach() measurements x, where
    /// d²/2 is rounded as in tkNMSingleNormal. NaN if a place is empty or the squared distances add up to more than
    /// tkNMSingleNormal::largestSquare or to NaN, and where hasPlaces() is false. There is room for size() values. The
    /// cost is that of the squares of the sets' sizes, for eight products about as much as for one.
    void logDensities(const double* x, double* logs) const;

private:
    /// Neighbours in the lanes of a register. Their factors follow one another in the stream.
    struct Lanes_
    {
        std::size_t width;
        std::vector<std::size_t> products;
        std::vector<Run> runs;
        std::size_t numFactors;
        std::size_t begin; // in the stream
    };
    struct Place_
    {
        bool isThere = false;
        std::size_t lanes = 0;
        std::size_t lane = 0;
    };
    /// Where the values of a factor stand, every `width` doubles one.
    struct Factor_
    {
        double* begin;
        std::size_t width;
        std::size_t size; // measurements
    };
    struct alignas(64) Eight_
    {
        double elements[8];
    };

    /// Gives places to products of the same sets, or to some of them, and returns the new end of the stream.
    std::size_t place_(const std::vector<Set>& sets, const std::vector<std::size_t>& products, std::size_t end);
    Factor_ factor_(std::size_t product, std::size_t factor);

    [[maybe_unused]] tkNMInstructions level_;
    std::size_t reach_ = 0;
    std::size_t largestSet_ = 0;
    std::vector<Lanes_> lanes_;
    std::vector<Place_> places_; // of each product
    std::vector<Eight_> stream_;
};

#endif
