#include "clss/clastool/clastool/tkClassifierFrequencies.h"

#include "tests/golden/dataModel.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace
{
const wchar_t frequenciesPositive[] = L"Category frequencies must be > 0.0";
const wchar_t labelsNotNegative[] = L"Category labels must be >= 0";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Default 2, category 4 has 0.5 and category 0 has 10.
tkClassifierFrequencies example()
{
    tkClassifierFrequencies frequencies(2.0);
    frequencies.categoryFrequencyOverride(4, 0.5);
    frequencies.categoryFrequencyOverride(0, 10.0);
    return frequencies;
}

/// The record of example().
const std::string exampleRecord = literalBytes("\0"
                                               "\0\0\0\0\0\0\0\x40"
                                               "\0\2\0\0\0"
                                               "\4\0\0\0\0\0\0\0"
                                               "\0\2\0\0\0"
                                               "\0\0\0\0\0\0\xe0\x3f"
                                               "\0\0\0\0\0\0\x24\x40");

/// The record of frequencies with any contents.
std::string recordOf(double defaultFrequency, std::vector<long> labels, std::vector<double> frequencies)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive.exchangeVersion();
    archive || defaultFrequency || labels || frequencies;
    return stream.str();
}
} // namespace

TEST(tkClassifierFrequencies, allCategoriesAreEquallyFrequentAtFirst)
{
    const tkClassifierFrequencies frequencies;
    EXPECT_EQ(1.0, frequencies.defaultCategoryFrequency());
    EXPECT_EQ(1.0, frequencies.categoryFrequency(0));
    EXPECT_EQ(1.0, frequencies.categoryFrequency(2147483647));
    EXPECT_EQ(0, frequencies.numFrequencyOverrides());
}

TEST(tkClassifierFrequencies, defaultMustBePositive)
{
    EXPECT_EQ(5e-324, tkClassifierFrequencies(5e-324).categoryFrequency(1));
    EXPECT_EQ(infinity, tkClassifierFrequencies(infinity).categoryFrequency(1));
    EXPECT_TRUE(std::isnan(tkClassifierFrequencies(notANumber).categoryFrequency(1)));
    EXPECT_TK_THROW(tkClassifierFrequencies(0.0), tkClassifierDefs::BadParams, frequenciesPositive);

    tkClassifierFrequencies frequencies = example();
    for (const double frequency : {0.0, -0.0, -5e-324, -1.0, -infinity})
        EXPECT_TK_THROW(frequencies.defaultCategoryFrequency(frequency), tkClassifierDefs::BadParams,
                        frequenciesPositive);
    EXPECT_TRUE(frequencies == example());
    frequencies.defaultCategoryFrequency(7.5);
    EXPECT_EQ(7.5, frequencies.defaultCategoryFrequency());
    EXPECT_EQ(7.5, frequencies.categoryFrequency(1));
    EXPECT_EQ(0.5, frequencies.categoryFrequency(4));
    frequencies.defaultCategoryFrequency(notANumber);
    EXPECT_TRUE(std::isnan(frequencies.categoryFrequency(1)));
}

TEST(tkClassifierFrequencies, overridesHoldForTheirCategory)
{
    const tkClassifierFrequencies frequencies = example();
    EXPECT_EQ(0.5, frequencies.categoryFrequency(4));
    EXPECT_EQ(10.0, frequencies.categoryFrequency(0));
    EXPECT_EQ(2.0, frequencies.categoryFrequency(1));
    EXPECT_EQ(2.0, frequencies.categoryFrequency(5));
}

TEST(tkClassifierFrequencies, secondOverrideOfALabelReplacesTheValueInPlace)
{
    tkClassifierFrequencies frequencies = example();
    frequencies.categoryFrequencyOverride(4, 3.0);
    frequencies.categoryFrequencyOverride(7, notANumber);
    ASSERT_EQ(3, frequencies.numFrequencyOverrides());
    EXPECT_EQ(4, frequencies.frequencyOverride(0).label);
    EXPECT_EQ(3.0, frequencies.frequencyOverride(0).frequency);
    EXPECT_EQ(0, frequencies.frequencyOverride(1).label);
    EXPECT_EQ(10.0, frequencies.frequencyOverride(1).frequency);
    EXPECT_EQ(7, frequencies.frequencyOverride(2).label);
    EXPECT_TRUE(std::isnan(frequencies.frequencyOverride(2).frequency));
    EXPECT_EQ(3.0, frequencies.categoryFrequency(4));
}

TEST(tkClassifierFrequencies, listedOverrideMustExist)
{
    const tkClassifierFrequencies frequencies = example();
    EXPECT_THROW(frequencies.frequencyOverride(-1), tkAssertionFailure);
    EXPECT_THROW(frequencies.frequencyOverride(2), tkAssertionFailure);
}

TEST(tkClassifierFrequencies, overrideChecksFrequencyBeforeLabel)
{
    tkClassifierFrequencies frequencies = example();
    EXPECT_TK_THROW(frequencies.categoryFrequencyOverride(-1, 0.0), tkClassifierDefs::BadParams, frequenciesPositive);
    EXPECT_TK_THROW(frequencies.categoryFrequencyOverride(4, 0.0), tkClassifierDefs::BadParams, frequenciesPositive);
    EXPECT_TK_THROW(frequencies.categoryFrequencyOverride(4, -1.0), tkClassifierDefs::BadParams, frequenciesPositive);
    EXPECT_TK_THROW(frequencies.categoryFrequencyOverride(-1, 0.5), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TRUE(frequencies == example());
}

TEST(tkClassifierFrequencies, frequencyIsAskedOfKnownCategories)
{
    EXPECT_TK_THROW(example().categoryFrequency(-1), tkClassifierDefs::BadLabel, labelsNotNegative);
    EXPECT_TK_THROW(tkClassifierFrequencies().categoryFrequency(std::numeric_limits<long>::min()),
                    tkClassifierDefs::BadLabel, labelsNotNegative);
}

TEST(tkClassifierFrequencies, clearingLeavesTheDefault)
{
    tkClassifierFrequencies frequencies = example();
    frequencies.clearFrequencyOverrides();
    EXPECT_EQ(0, frequencies.numFrequencyOverrides());
    EXPECT_EQ(2.0, frequencies.categoryFrequency(4));
    EXPECT_TRUE(frequencies == tkClassifierFrequencies(2.0));
}

TEST(tkClassifierFrequencies, equalityIsExactAndInOrder)
{
    const tkClassifierFrequencies frequencies = example();
    EXPECT_TRUE(frequencies == example());
    EXPECT_FALSE(frequencies != example());

    std::vector<tkClassifierFrequencies> others(5, example());
    others[0].defaultCategoryFrequency(std::nextafter(2.0, 3.0));
    others[1].categoryFrequencyOverride(4, std::nextafter(0.5, 1.0));
    others[2].categoryFrequencyOverride(1, 2.0);
    others[3].clearFrequencyOverrides();
    others[3].categoryFrequencyOverride(0, 10.0);
    others[3].categoryFrequencyOverride(4, 0.5);
    others[4].clearFrequencyOverrides();
    others[4].categoryFrequencyOverride(4, 0.5);
    others[4].categoryFrequencyOverride(1, 10.0);
    for (const tkClassifierFrequencies& other : others)
    {
        EXPECT_FALSE(frequencies == other);
        EXPECT_TRUE(frequencies != other);
    }
    const tkClassifierFrequencies withNaN(notANumber);
    EXPECT_FALSE(withNaN == withNaN);
}

TEST(tkClassifierFrequencies, copiesAreIndependent)
{
    const tkClassifierFrequencies original = example();
    tkClassifierFrequencies copy(original);
    tkClassifierFrequencies assigned;
    assigned = original;
    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
    copy.categoryFrequencyOverride(4, 1.0);
    assigned.clearFrequencyOverrides();
    EXPECT_TRUE(original == example());
}

TEST(tkClassifierFrequencies, settersWithoutMemoryChangeNothing)
{
    expectUnchangedWithoutMemory(example(), [](tkClassifierFrequencies& frequencies)
                                 { frequencies.categoryFrequencyOverride(8, 1.0); });
    tkClassifierFrequencies other(3.0);
    for (long label = 0; label < 50; ++label)
        other.categoryFrequencyOverride(label, 1.0);
    expectUnchangedWithoutMemory(example(), [&](tkClassifierFrequencies& frequencies) { frequencies = other; });
}

TEST(tkClassifierFrequencies, recordHasFixedBytesAndComesBackEqual)
{
    EXPECT_EQ(exampleRecord, storeToBytes(example()));
    tkClassifierFrequencies loaded(9.0);
    for (long label = 0; label < 6; ++label)
        loaded.categoryFrequencyOverride(label, 1.0);
    loadFromBytes(exampleRecord, loaded);
    EXPECT_TRUE(loaded == example());

    const std::string empty = literalBytes("\0\0\0\0\0\0\0\xf0\x3f") + std::string(5 + 5, '\0');
    EXPECT_EQ(empty, storeToBytes(tkClassifierFrequencies()));
    loadFromBytes(empty, loaded);
    EXPECT_TRUE(loaded == tkClassifierFrequencies());
}

TEST(tkClassifierFrequencies, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierFrequencies.v0.bin");
    tkClassifierFrequencies loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::frequencies());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::frequencies()));
}

TEST(tkClassifierFrequencies, otherVersionIsRefusedBeforeFurtherReading)
{
    tkClassifierFrequencies loaded = example();
    try
    {
        loadFromBytes("\1", loaded);
        ADD_FAILURE() << "no exception";
    }
    catch (const tkArchive::UnknownVersion& unknown)
    {
        EXPECT_EQ("clss/clastool/clastool", unknown.where());
        EXPECT_EQ(522, unknown.number());
    }
    EXPECT_TRUE(loaded == example());
    for (const std::size_t vectorAt : {9, 22})
    {
        std::string bytes = exampleRecord;
        bytes[vectorAt] = '\1';
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkClassifierFrequencies, failedLoadingLeavesNoLabelWithoutItsFrequency)
{
    for (std::size_t length = 0; length < exampleRecord.size(); ++length)
    {
        tkClassifierFrequencies loaded = golden::frequencies();
        loaded.categoryFrequencyOverride(7, 8.0);
        EXPECT_THROW(loadFromBytes(exampleRecord.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_EQ(length < 9 ? 3 : 0, loaded.numFrequencyOverrides()) << length;
        EXPECT_EQ(loaded.defaultCategoryFrequency(), loaded.categoryFrequency(8)) << length;
    }
}

TEST(tkClassifierFrequencies, recordWithVectorsOfUnequalLengthsIsRefused)
{
    for (const std::string& bytes : {recordOf(1.0, {1}, {}), recordOf(1.0, {}, {2.0}), recordOf(1.0, {1, 2}, {3.0})})
    {
        tkClassifierFrequencies loaded = example();
        EXPECT_TK_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors,
                        L"Frequency overrides have not as many labels as frequencies (reading, at byte " +
                            std::to_wstring(bytes.size()) + L")");
        EXPECT_EQ(0, loaded.numFrequencyOverrides());
    }
}

TEST(tkClassifierFrequencies, loadingChecksNoValuesAndTheFirstOverrideOfALabelWins)
{
    const std::string bytes = recordOf(0.0, {3, 3, -4}, {-1.0, 2.0, notANumber});
    tkClassifierFrequencies loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(0.0, loaded.categoryFrequency(1));
    EXPECT_EQ(-1.0, loaded.categoryFrequency(3));
    EXPECT_TK_THROW(loaded.categoryFrequency(-4), tkClassifierDefs::BadLabel, labelsNotNegative);
}

TEST(tkClassifierFrequencies, labelsBeyond32BitsAreNotStored)
{
    if (sizeof(long) > 4)
    {
        tkClassifierFrequencies frequencies;
        frequencies.categoryFrequencyOverride(std::numeric_limits<long>::max(), 5.0);
        EXPECT_THROW(storeToBytes(frequencies), tkArchive::Errors);
        EXPECT_EQ(1, frequencies.numFrequencyOverrides());
    }
}
