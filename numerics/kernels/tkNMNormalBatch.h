#ifndef NUMERICS_KERNELS_TKNMNORMALBATCH_H
#define NUMERICS_KERNELS_TKNMNORMALBATCH_H

#include "numerics/tkNMFactorisation.h"

#include <cstddef>
#include <vector>

/// Computes tkNMFactorisation::logDensity for densities of many categories at one point, summed for each category.
///
/// It holds copies of the factorisations, which it takes when it is constructed and never writes afterwards. Categories
/// whose densities have the same sets of measurements stand side by side, one in each lane of a vector register: every
/// lane takes the operations of one category alone, in their order. Categories for which that does not pay are computed
/// one after the other. An evaluation costs about as much for eight categories as for one, and as long as the
/// factorisations are read from a far cache, as much as reading them. tkNMNormalBatch_test.cpp holds it to the bits.
class TK_EXPORT tkNMNormalBatch
{
public:
    /// A density of the measurements from `first` on. The factorisation is copied.
    struct Density
    {
        std::size_t first;
        const tkNMFactorisation* factorisation;
    };

    /// Densities whose sum goes by this number.
    struct Category
    {
        std::size_t number;
        std::vector<Density> densities;
    };

    /// *Requires* distinct categories, a dimension > 0 of each density, and instructions <= tkNMBestInstructions().
    explicit tkNMNormalBatch(const std::vector<Category>& categories,
                             tkNMInstructions instructions = tkNMBestInstructions());

    /// Number of measurements of a point that are read.
    std::size_t reach() const { return reach_; }

    /// sums[c] = ((sums[c] + f_0) + f_1) + ..., the log densities of each category c at the reach() measurements x.
    /// NaN, for not computed, where the squared distances of a category add up to more than
    /// tkNMFactorisation::largestSquare or to NaN. So it may be where a measurement that has no term is not finite.
    void addLogDensities(const double* x, double* sums) const;

    /// The same with tkNMFactorisation::logMarginal over the measurements with `valid` set. *Requires* reach() values
    /// and flags. NaN, or another value that is not finite, may stand for a sum that is not computed.
    void addLogMarginals(const double* x, const bool* valid, double* sums) const;

    /// The measurements of a density, `size` from `first` on.
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
    struct Range
    {
        Set first;
        std::size_t count;

        bool isContinuedBy(const Set& set) const
        {
            return set.size == first.size && set.first == first.first + count * first.size;
        }
    };

private:
    /// Categories that share the lanes of a register. Their factorisations follow one another in the stream.
    struct Lanes_
    {
        std::size_t width;
        std::vector<std::size_t> categories;
        std::vector<Range> ranges;
        std::size_t begin;        // in the stream
        std::size_t beginOfTerms; // in the terms
    };
    /// A category that is computed by itself.
    struct Single_
    {
        std::size_t category;
        std::vector<std::size_t> firsts;
        std::vector<tkNMFactorisation> factorisations; // parallel
    };

    using Alike_ = std::vector<const Category*>;

    void place_(const std::vector<Set>& sets, const Alike_& alike);
    void fill_(Lanes_& lanes, Alike_::const_iterator category);
    void addInLanes_(const double* x, const bool* valid, double* scratch, std::size_t* invalid, double* sums) const;
    void addLogDensities_(const Single_& single, const double* x, double& sum) const;

    tkNMInstructions instructions_;
    std::size_t reach_ = 0;
    std::size_t largestSet_ = 0;
    std::vector<Lanes_> lanes_;
    std::vector<Single_> singles_;
    tkNMAlignedDoubles stream_;
    tkNMAlignedDoubles terms_; // what marginals take besides
};

#endif
