#include "numerics/tkNMMatrix.h"

#include "foundation/tkArchiveErrors.h"
#include "foundation/tkAssert.h"
#include "tkTest.h"

#include <limits>
#include <sstream>
#include <string>
#include <utility>

TEST(tkNMMatrix, comesBackFromItsRecordWithItsCompensations)
{
    tkNMMatrix matrix(2, 3);
    matrix(0, 1) = 1.5;
    matrix(1, 2) = -2.0;
    tkNMMatrix loaded;
    loadFromBytes(storeToBytes(matrix), loaded);
    EXPECT_EQ(loaded, matrix);
    matrix.compensation(1, 0, 1e-20);
    EXPECT_NE(loaded, matrix);
    loadFromBytes(storeToBytes(matrix), loaded);
    EXPECT_EQ(loaded, matrix);
    EXPECT_EQ(loaded.compensation(1, 0), 1e-20);
    EXPECT_EQ(loaded.compensation(1, 1), 0.0);
}

TEST(tkNMMatrix, damagedRecordsAreRefused)
{
    std::string bytes = storeToBytes(tkNMMatrix(2, 3));
    tkNMMatrix matrix(1, 1);
    const auto load = [&]
    {
        std::istringstream stream(bytes);
        tkArchive archive(stream);
        archive || matrix;
    };
    bytes[1] = 3; // rows
    EXPECT_TK_THROW(load(), tkArchive::Errors,
                    L"A stored matrix has another number of elements than its size says (reading, at byte 67)");
    bytes[1] = 2;
    bytes[0] = 1;
    EXPECT_THROW(load(), tkArchive::UnknownVersion);
    EXPECT_EQ(matrix, tkNMMatrix(1, 1));
}

TEST(tkNMMatrix, startsWithZerosAndWithoutCompensations)
{
    const tkNMMatrix empty;
    EXPECT_EQ(empty.rows(), 0);
    EXPECT_EQ(empty.cols(), 0);
    const tkNMMatrix matrix(2, 3);
    EXPECT_EQ(matrix.rows(), 2);
    EXPECT_EQ(matrix.cols(), 3);
    for (long i = 0; i < 2; ++i)
        for (long j = 0; j < 3; ++j)
        {
            EXPECT_EQ(matrix(i, j), 0.0);
            EXPECT_EQ(matrix.compensation(i, j), 0.0);
        }
}

TEST(tkNMMatrix, elementsAreStoredRowByRow)
{
    tkNMMatrix matrix(2, 2);
    matrix(0, 1) = 1.0;
    matrix(1, 0) = -2.0;
    EXPECT_EQ(storeToBytes(matrix), literalBytes("\0\2\0\0\0\2\0\0\0" // version, rows, columns
                                                 "\0\4\0\0\0"         // elements: version, 4 of them
                                                 "\0\0\0\0\0\0\0\0"   // (0, 0)
                                                 "\0\0\0\0\0\0\xf0?"  // (0, 1)
                                                 "\0\0\0\0\0\0\0\xc0" // (1, 0)
                                                 "\0\0\0\0\0\0\0\0"   // (1, 1)
                                                 "\0\0\0\0\0"));      // compensations: version, none
}

TEST(tkNMMatrix, sizesOfOneSideMayBeZeroButNotNegative)
{
    const tkNMMatrix rows(3, 0);
    EXPECT_EQ(rows.rows(), 3);
    EXPECT_NE(rows, tkNMMatrix(0, 3));
    EXPECT_NE(rows, tkNMMatrix());
    tkNMMatrix loaded(1, 1);
    loadFromBytes(storeToBytes(rows), loaded);
    EXPECT_EQ(loaded, rows);
    EXPECT_THROW(tkNMMatrix(-1, 1), tkAssertionFailure);
    EXPECT_THROW(tkNMMatrix(1, -1), tkAssertionFailure);
}

TEST(tkNMMatrix, elementsThatAreNotThereAreABug)
{
    tkNMMatrix matrix(2, 3);
    const tkNMMatrix& constant = matrix;
    for (const auto& [i, j] : {std::pair{-1L, 0L}, {0L, -1L}, {2L, 0L}, {0L, 3L}})
    {
        EXPECT_THROW(matrix(i, j) = 1.0, tkAssertionFailure);
        EXPECT_THROW(constant(i, j), tkAssertionFailure);
        EXPECT_THROW(matrix.compensation(i, j), tkAssertionFailure);
        EXPECT_THROW(matrix.compensation(i, j, 0.0), tkAssertionFailure);
    }
}

TEST(tkNMMatrix, equalityComparesSizesElementsAndCompensations)
{
    tkNMMatrix a(2, 2);
    tkNMMatrix b(a);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, tkNMMatrix(2, 1));
    EXPECT_NE(tkNMMatrix(1, 4), tkNMMatrix(4, 1));
    a(1, 1) = 1.0;
    EXPECT_NE(a, b);
    b(1, 1) = 1.0;
    a.compensation(0, 0, 0.0); // as it was
    EXPECT_EQ(a, b);
    a.compensation(0, 0, 1e-20);
    EXPECT_NE(a, b);
    a.compensation(0, 0, 0.0); // stored all the same from now on, but equal
    EXPECT_EQ(a, b);
    EXPECT_EQ(b, a);
    EXPECT_LT(storeToBytes(b).size(), storeToBytes(a).size());
    a(0, 0) = b(0, 0) = std::numeric_limits<double>::quiet_NaN();
    EXPECT_NE(a, b);
}

TEST(tkNMMatrix, recordsWithTooFewCompensationsAreRefused)
{
    tkNMMatrix stored(1, 2);
    stored.compensation(0, 1, 1.0);
    std::string bytes = storeToBytes(stored);
    const std::size_t head = 9 + 5 + 16; // version, sizes, elements
    bytes[head + 1] = 1;                 // one compensation for two elements
    tkNMMatrix matrix(3, 3);
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    EXPECT_THROW(archive || matrix, tkArchive::Errors);
    EXPECT_EQ(matrix, tkNMMatrix(3, 3));
    EXPECT_THROW(archive || matrix, tkArchive::Errors); // the archive has failed
}

TEST(tkNMMatrix, negativeSizesInARecordAreRefused)
{
    std::string bytes = storeToBytes(tkNMMatrix(1, 1));
    for (const std::size_t place : {std::size_t(1), std::size_t(5)})
        bytes.replace(place, 4, "\xff\xff\xff\xff"); // -1 times -1 elements
    tkNMMatrix matrix(2, 2);
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    EXPECT_THROW(archive || matrix, tkArchive::Errors);
    EXPECT_EQ(matrix, tkNMMatrix(2, 2));
}
