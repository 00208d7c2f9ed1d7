#include "numerics/kernels/tkNMMahalanobis.h"

#include "foundation/tkScratch.h"
#include "numerics/kernels/tkNMInstructions.h"
#include "numerics/kernels/tkNMLanes.h"

#include <algorithm>
#include <cmath>

namespace
{
/// Adds columns j to end - 1 to the sums of block c and those below it, then the columns of these blocks.
template <std::size_t blocks, std::size_t c, class Eight>
TK_ALWAYS_INLINE void addColumns(const tkNMTriangle& w, std::size_t first, std::size_t j, std::size_t end,
                                 const double* v, Eight* y)
{
    for (; j < end; ++j)
        for (std::size_t b = c; b < blocks; ++b)
        {
            Eight part;
            part.load(w.column(first + b, j));
            y[b].addProduct(part, v[j]);
        }
    if constexpr (c + 1 < blocks)
        addColumns<blocks, c + 1>(w, first, end, end + 8, v, y);
}

/// Calls use(y, block) for these blocks of rows y of W v. Four sums of eight lanes hide the latency of an addition, and
/// share each v_j.
template <std::size_t blocks, class Eight, class Use>
TK_ALWAYS_INLINE void multiplyBlocks(const tkNMTriangle& w, std::size_t first, const double* v, Use& use)
{
    Eight y[blocks];
    for (Eight& sum : y)
        sum.clear();
    addColumns<blocks, 0>(w, first, 0, 8 * first + 8, v, y);
    for (std::size_t b = 0; b < blocks; ++b)
        use(y[b], first + b);
}

/// Calls use(y, block) for all eights of rows of W v. `v` ends with 0.0 up to a multiple of eight.
template <class Eight, class Use>
TK_ALWAYS_INLINE void multiply(const tkNMTriangle& w, const double* v, Use& use)
{
    const std::size_t blockCount = (w.dimension() + 7) / 8;
    std::size_t block = 0;
    for (; block + 4 <= blockCount; block += 4)
        multiplyBlocks<4, Eight>(w, block, v, use);
    for (; block + 2 <= blockCount; block += 2)
        multiplyBlocks<2, Eight>(w, block, v, use);
    if (block < blockCount)
        multiplyBlocks<1, Eight>(w, block, v, use);
}

template <class Eight>
struct SumOfSquares
{
    Eight squares;

    TK_ALWAYS_INLINE void operator()(const Eight& y, std::size_t) { squares.addSquare(y); }
};

struct SquaredDistance
{
    const tkNMTriangle& w;
    const double* v;
    double& result;

    template <class Eight>
    TK_ALWAYS_INLINE void compute() const
    {
        SumOfSquares<Eight> sum;
        sum.squares.clear();
        multiply<Eight>(w, v, sum);
        result = sum.squares.sum();
    }
};

struct StoreRows
{
    double* rows;

    template <class Eight>
    TK_ALWAYS_INLINE void operator()(const Eight& y, std::size_t block)
    {
        y.store(rows + 8 * block);
    }
};

/// The sum of a_i b_i.
template <class Eight>
TK_ALWAYS_INLINE double dot(const double* a, const double* b, std::size_t blocks)
{
    Eight sum;
    sum.clear();
    for (std::size_t i = 0; i < 8 * blocks; i += 8)
    {
        Eight x;
        Eight y;
        x.load(a + i);
        y.load(b + i);
        sum.addProducts(x, y);
    }
    return sum.sum();
}

/// Makes `other` orthogonal to the column, whose square is known.
template <class Eight>
TK_ALWAYS_INLINE void project(const double* column, double square, std::size_t blocks, double* other)
{
    const double factor = dot<Eight>(column, other, blocks) / square;
    for (std::size_t i = 0; i < 8 * blocks; i += 8)
    {
        Eight x;
        Eight y;
        x.load(column + i);
        y.load(other + i);
        y.subtractProduct(x, factor);
        y.store(other + i);
    }
}

/// Columns are kept from the eight rows on that have the diagonal, one after the other.
struct Projections
{
    const tkNMCovarianceFactor& factor;
    const double* v;
    const std::size_t* invalid;
    std::size_t numInvalid;
    double* columns;
    double* squares;
    double& residualSquare;

    std::size_t blocksOf(std::size_t j) const { return (factor.w.dimension() + 7) / 8 - j / 8; }

    template <class Eight>
    TK_ALWAYS_INLINE void compute() const
    {
        double* residual = columns;
        for (std::size_t k = 0; k < numInvalid; ++k)
        {
            const std::size_t j = invalid[k];
            const double unit = std::ldexp(1.0, -factor.measurements[j].exponent);
            for (std::size_t block = j / 8; 8 * block < factor.w.dimension(); ++block, residual += 8)
            {
                Eight rows;
                rows.load(factor.w.column(block, j));
                rows.multiply(unit);
                rows.store(residual);
            }
        }
        StoreRows store{residual};
        multiply<Eight>(factor.w, v, store);

        const double* column = residual;
        for (std::size_t k = numInvalid; k-- > 0;)
        {
            const std::size_t blocks = blocksOf(invalid[k]);
            column -= 8 * blocks;
            squares[k] = dot<Eight>(column, column, blocks);
            double* end = columns; // of the columns before: all end with the last row
            for (std::size_t other = 0; other < k; ++other)
            {
                end += 8 * blocksOf(invalid[other]);
                project<Eight>(column, squares[k], blocks, end - 8 * blocks);
            }
            project<Eight>(column, squares[k], blocks, residual + 8 * (blocksOf(0) - blocks));
        }
        residualSquare = dot<Eight>(residual, residual, blocksOf(0));
    }
};

#if TK_HAS_X86_TARGETS
template <class Task>
TK_TARGET_AVX2 void computeAvx2(const Task& task)
{
    task.template compute<LanesOf<4>>();
}

template <class Task>
TK_TARGET_AVX512 void computeAvx512(const Task& task)
{
    task.template compute<LanesOf<8>>();
}
#endif

template <class Task>
void compute(const Task& task, tkNMInstructions instructions)
{
#if TK_HAS_X86_TARGETS
    if (instructions == tkNMInstructions::Avx512)
        return computeAvx512(task);
    if (instructions == tkNMInstructions::Avx2)
        return computeAvx2(task);
#endif
    static_cast<void>(instructions);
    task.template compute<LanesOf<plainWidth>>();
}
} // namespace

double tkNMSquaredMahalanobis(const tkNMFactorisation& factorisation, const double* x, tkNMInstructions instructions)
{
    const std::size_t d = factorisation.dimension();
    tkScratch<double, 256> v((d + 7) / 8 * 8);
    for (std::size_t j = 0; j < d; ++j)
        v[j] = (x[j] - factorisation.mean[j]) - factorisation.compensation[j];
    std::fill(v.begin() + d, v.end(), 0.0);
    double square = 0.0;
    compute(SquaredDistance{factorisation.covariance.w, v.data(), square}, instructions);
    // A measurement without a term adds its deviation times 0.0, which is 0.0 unless the deviation is not finite.
    return std::isnan(square) ? factorisation.squaredDistance(x, tkNMInstructions::Definition) : square;
}

double tkNMProject(const tkNMCovarianceFactor& factor, const double* v, const std::size_t* invalid,
                   std::size_t numInvalid, double* squares, tkNMInstructions instructions)
{
    const std::size_t rows = (factor.w.dimension() + 7) / 8 * 8;
    tkScratch<double, 2048> columns(rows * (numInvalid + 1));
    double residualSquare = 0.0;
    compute(Projections{factor, v, invalid, numInvalid, columns.data(), squares, residualSquare}, instructions);
    return residualSquare;
}
