#ifndef NUMERICS_KERNELS_TKNMMARGINALLANES_H
#define NUMERICS_KERNELS_TKNMMARGINALLANES_H

#include "numerics/kernels/tkNMElementaryKernel.h"
#include "numerics/kernels/tkNMLanes.h"
#include "numerics/tkNMCovarianceFactor.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

/// Computes tkNMCovarianceFactor::marginal for distributions of the same measurements, one in each lane of a register,
/// in the order of the plain function.
///
/// Each value stands `width` times, once per lane. Of each distribution are taken its terms, see putTerms; the columns
/// of W at the invalid measurements in ascending order, each divided by its unit, from the eight rows on that have its
/// diagonal to a multiple of eight rows, with zeros where W has no element; and W_A v_A as one more column, from row 0
/// on. tkNMNormalBatch lays them out. tkNMMarginalLanes_test.cpp holds the results to the bits.
template <std::size_t width>
struct tkNMMarginalLanes
{
    using Register = typename RegisterOf<double, width>::Type;

    static constexpr std::size_t block = 8 * width; // doubles of eight rows

    /// Blocks of column j of `size` ones.
    static std::size_t blocksOf(std::size_t j, std::size_t size) { return (size + 7) / 8 - j / 8; }

    /// Terms of a distribution of `size` measurements, per lane.
    static constexpr std::size_t numTerms(std::size_t size) { return 1 + 3 * size; }
    /// Calls put(value) for the terms: ln det C; then of each measurement whether it is without a term, as 1.0 or 0.0,
    /// the exponent of its unit, and what divides by its unit. A lane of ones is one without a distribution.
    template <class Put>
    static void putTerms(const tkNMCovarianceFactor& covariance, Put put)
    {
        put(covariance.lnDeterminant);
        for (const tkNMCovarianceFactor::Measurement& m : covariance.measurements)
        {
            put(m.role == tkNMCovarianceFactor::eSameEverywhere ? 1.0 : 0.0);
            put(static_cast<double>(m.exponent));
            put(std::ldexp(1.0, -m.exponent));
        }
    }
    static const double* divisorOf(const double* terms, std::size_t j) { return terms + width * (3 + 3 * j); }

    /// *Requires* an invalid measurement and a valid one, and room for a register per invalid one, and for a multiple
    /// of eight, at `squares`. What is computed is without meaning if a lane is not finite. The columns are
    /// overwritten.
    TK_ALWAYS_INLINE static void compute(const double* terms, const bool* valid, std::size_t size,
                                         const std::size_t* invalid, std::size_t numInvalid, double* columns,
                                         double* squares, tkNMInstructions instructions, Register& logPeak,
                                         Register& square)
    {
        const double* const residual = orthogonalise_(terms, size, invalid, numInvalid, columns, squares);
        addProducts_(residual, residual, blocksOf(0, size), square);
        const std::size_t numSquares = width * numInvalid;
        const std::size_t numWhole = (numSquares + 7) / 8 * 8; // the kernel is slower with a part of a register
        std::fill(squares + numSquares, squares + numWhole, 1.0);
        tkNMElementaryKernel::log(squares, squares, numWhole, instructions);

        Register ln;
        loadRegister(ln, terms);
        for (std::size_t k = numInvalid; k-- > 0;)
        {
            Register lnSquare;
            loadRegister(lnSquare, squares + width * k);
            ln = ln + lnSquare;
        }
        Register count = {};
        Register exponents = {};
        for (std::size_t j = 0; j < size; ++j)
            if (valid[j])
            {
                Register isAbsent;
                Register exponent;
                loadRegister(isAbsent, terms + width * (1 + 3 * j));
                loadRegister(exponent, terms + width * (2 + 3 * j));
                count = count + (1.0 - isAbsent);
                exponents = exponents + exponent;
            }
        using Factor = tkNMCovarianceFactor;
        Register peak = (-0.5 * (count * Factor::lnTwoPi + ln)) * Factor::perGridStep;
        round_(peak);
        logPeak = peak / Factor::perGridStep + exponents * Factor::gridLn2;
        logPeak = count > 0.0 ? logPeak : Register{};
    }

private:
    /// sum = the sum of a_i b_i.
    TK_ALWAYS_INLINE static void addProducts_(const double* a, const double* b, std::size_t blocks, Register& sum)
    {
        Register q[8] = {};
        for (; blocks > 0; --blocks, a += block, b += block)
            for (std::size_t l = 0; l < 8; ++l)
            {
                Register x;
                Register y;
                loadRegister(x, a + width * l);
                loadRegister(y, b + width * l);
                q[l] = q[l] + x * y;
            }
        sum = ((q[0] + q[4]) + (q[2] + q[6])) + ((q[1] + q[5]) + (q[3] + q[7]));
    }

    /// Makes `other` orthogonal to the column, whose square is known.
    TK_ALWAYS_INLINE static void project_(const double* column, const Register& square, std::size_t blocks,
                                          double* other)
    {
        Register factor;
        addProducts_(column, other, blocks, factor);
        factor = factor / square;
        for (std::size_t i = 0; i < 8 * blocks; ++i, column += width, other += width)
        {
            Register x;
            Register y;
            loadRegister(x, column);
            loadRegister(y, other);
            storeRegister(y - factor * x, other);
        }
    }

    /// Makes the columns orthogonal from the last one to the first. Returns the residual.
    TK_ALWAYS_INLINE static const double* orthogonalise_(const double* terms, std::size_t size,
                                                         const std::size_t* invalid, std::size_t numInvalid,
                                                         double* columns, double* squares)
    {
        double* residual = columns;
        for (std::size_t k = 0; k < numInvalid; ++k)
            residual += block * blocksOf(invalid[k], size);
        double* column = residual;
        for (std::size_t k = numInvalid; k-- > 0;)
        {
            const std::size_t blocks = blocksOf(invalid[k], size);
            column -= block * blocks;
            Register square;
            Register isAbsent;
            addProducts_(column, column, blocks, square);
            loadRegister(isAbsent, terms + width * (1 + 3 * invalid[k]));
            square = square + isAbsent; // 1.0 instead of 0.0, so that its projections and its logarithm are 0.0
            storeRegister(square, squares + width * k);
            double* end = columns; // of the columns before: all end with the last row
            for (std::size_t other = 0; other < k; ++other)
            {
                end += block * blocksOf(invalid[other], size);
                project_(column, square, blocks, end - block * blocks);
            }
            project_(column, square, blocks, residual + block * (blocksOf(0, size) - blocks));
        }
        return residual;
    }

    /// std::round: halves away from zero. The sign of a zero is lost.
    TK_ALWAYS_INLINE static void round_(Register& x)
    {
        const Register magnitude = x < 0.0 ? -x : x;
        const Register even = (magnitude + 0x1p52) - 0x1p52;
        const Register away = magnitude - even == 0.5 ? even + 1.0 : even;
        const Register rounded = magnitude < 0x1p52 ? away : magnitude;
        x = x < 0.0 ? -rounded : rounded;
    }
};

#endif
