#include "numerics/tkNMMatrix.h"

#include "tkTest.h"

#include <sstream>
#include <string>

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
