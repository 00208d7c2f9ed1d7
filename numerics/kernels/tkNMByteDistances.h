#ifndef NUMERICS_KERNELS_TKNMBYTEDISTANCES_H
#define NUMERICS_KERNELS_TKNMBYTEDISTANCES_H

#include "foundation/tkExport.h"
#include "numerics/kernels/tkNMInstructions.h"

#include <cstdint>

/// Distances between a query and blocks of 64 rows that hold one byte per column: the inner loops of
/// tkNMNeighborSearch, once per instruction set. No part of the interface that the library promises to keep.
///
/// A block is `columns` lines of 64 bytes, in pairs of columns: the two lines of a pair hold its first and second
/// column in turn, row by row. The last column of an odd number has a line to itself. The bytes are signed and
/// never -128. For a row x and a query q the *sum* is, in 16 bits without sign, with d = min(|q - x|, 127):
///
///   sum = (g_0 >> s) + (g_1 >> s) + ...,   g_i = min(65535, sum of d^m over the columns of group i),   m = 1 or 2
///
/// A group is 8 pairs; the first one also takes the column without a partner. The shift s is the smallest for which
/// no sum of groups overflows. Every step rounds down, so sum * 2^s never exceeds the true sum of |q - x|^m; and
/// every instruction set gives the same sums.
class TK_EXPORT tkNMByteDistances
{
public:
    static constexpr long blockRows = 64;
    static constexpr long maxColumns = 4096;

    struct alignas(64) Line
    {
        std::int8_t bytes[64];
    };

    struct Query
    {
        std::int8_t bytes[maxColumns];
        std::uint32_t pairs[maxColumns / 2]; // columns 2i, 2i + 1 in the first two bytes and again in the last two
    };

    /// Sums for rows of `columns` measurements (1 to maxColumns) and the exponent m = `power` (1 or 2), by
    /// `instructions`, or by the best there are if the processor has not got them.
    tkNMByteDistances(long columns, int power, tkNMInstructions instructions);

    /// The s above.
    int shift() const { return shape_.shift; }

    /// Fills `query.pairs` from `query.bytes`.
    void prepare(Query& query) const;

    /// Where the byte of `row` and `column` stands in a block of `columns` lines.
    static long offset(long columns, long row, long column)
    {
        const bool paired = column < columns - columns % 2;
        return paired ? column / 2 * 128 + row * 2 + column % 2 : column * 64 + row;
    }

    /// The 64 sums of a block.
    void sums(const Line* block, const Query& query, std::uint16_t* sums) const { sums_(shape_, block, query, sums); }

    /// The smallest sum of each of `count` consecutive blocks.
    void minima(const Line* blocks, long count, const Query& query, std::uint16_t* minima) const
    {
        minima_(shape_, blocks, count, query, minima);
    }

    /// The rows of a block whose sums do not exceed `highest`, a bit for each.
    static std::uint64_t rowsUpTo(std::uint16_t highest, const std::uint16_t* sums);

    struct Shape
    {
        long columns;
        int shift;
    };

private:
    using SumsFunction = void (*)(const Shape&, const Line*, const Query&, std::uint16_t*);
    using MinimaFunction = void (*)(const Shape&, const Line*, long, const Query&, std::uint16_t*);

    Shape shape_;
    SumsFunction sums_;
    MinimaFunction minima_;
};

#endif
