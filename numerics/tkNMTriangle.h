#ifndef NUMERICS_TKNMTRIANGLE_H
#define NUMERICS_TKNMTRIANGLE_H

#include "foundation/tkExport.h"

#include <cstddef>
#include <vector>

enum class tkNMInstructions : int;
TK_EXPORT tkNMInstructions tkNMBestInstructions();

/// A lower triangular matrix W, laid out for the addition of outer products, which learning takes, and for its product
/// with a vector.
///
/// Eight rows form a block, stored column by column, so that eight elements are added to, or multiplied, side by side.
/// Zeros fill what is above the diagonal or below the last row within a block.
class TK_EXPORT tkNMTriangle
{
public:
    explicit tkNMTriangle(std::size_t dimension = 0);

    std::size_t dimension() const { return dimension_; }

    /// Element in row i, column j <= i. *Requires* i < dimension().
    double operator()(std::size_t i, std::size_t j) const { return blocks_[offset_(i / 8) + j].rows[i % 8]; }
    double& operator()(std::size_t i, std::size_t j) { return blocks_[offset_(i / 8) + j].rows[i % 8]; }

    /// The elements of rows 8 block, 8 block + 1, ..., 8 block + 7 in column j. *Requires* that one of them is an
    /// element.
    const double* column(std::size_t block, std::size_t j) const { return blocks_[offset_(block) + j].rows; }

    /// W_ij += a_i b_j for j <= i, for `count` pairs of vectors a and b one after the other, each `stride` doubles
    /// behind the one before it. They have dimension() rounded up to a multiple of 8 elements, those beyond
    /// dimension() 0.0. *Requires* instructions <= tkNMBestInstructions().
    void addProducts(const double* a, const double* b, std::size_t count, std::size_t stride)
    {
        addProducts(a, b, count, stride, tkNMBestInstructions());
    }
    void addProducts(const double* a, const double* b, std::size_t count, std::size_t stride,
                     tkNMInstructions instructions);

    bool operator==(const tkNMTriangle& other) const;
    bool operator!=(const tkNMTriangle& other) const { return !(*this == other); }

private:
    struct alignas(64) Column_
    {
        double rows[8] = {};
    };

    static std::size_t offset_(std::size_t block) { return block * (block + 1) * 4; } // 8 + 16 + ... + 8 block

    std::size_t dimension_;
    std::vector<Column_> blocks_;
};

#endif
