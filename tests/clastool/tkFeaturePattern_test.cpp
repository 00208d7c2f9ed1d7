#include "clss/clastool/clastool/tkFeaturePattern.h"

#include "tests/golden/dataModel.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace
{
using Doubles = std::vector<double>;
using Longs = std::vector<long>;

const wchar_t indicesNotNegative[] = L"Feature measurement indices must be >= 0";
const wchar_t indicesBelowCount[] = L"Feature measurement indices must be < number of features";
const wchar_t measurementNotValid[] = L"The measurement for the specified measurement index is not valid.";

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

/// Three measurements, the one at 2 invalid.
tkFeaturePattern example()
{
    return tkFeaturePattern({1.5, -2.0, 7.25}, {2});
}

/// The record of example(): versions of both levels, the measurements, the flags.
const std::string exampleRecord = literalBytes("\0\0"
                                               "\0\3\0\0\0"
                                               "\0\0\0\0\0\0\xf8\x3f"
                                               "\0\0\0\0\0\0\0\xc0"
                                               "\0\0\0\0\0\0\x1d\x40"
                                               "\0\3\0\0\0"
                                               "\1\1\0");
} // namespace

// Not const, and hosts may hold pointers to it.
static_assert(std::is_same_v<decltype(&tkFeaturePattern::invalidFeatureIndices), Longs (tkFeaturePattern::*)()>);

TEST(tkFeaturePattern, withoutArgumentsIsEmpty)
{
    tkFeaturePattern pattern;
    EXPECT_EQ(0, pattern.numMeasurements());
    EXPECT_EQ(0, pattern.numInvalid());
    EXPECT_EQ(Doubles(), pattern.featureMeasurements(true));
    EXPECT_EQ(Doubles(), pattern.featureMeasurements(false));
    EXPECT_EQ(Longs(), pattern.invalidFeatureIndices());
    EXPECT_FALSE(pattern.isValid(0));
    EXPECT_EQ(0.0, pattern.featureMeasurement(0, false));
    EXPECT_TRUE(pattern == tkFeaturePattern(Doubles(), Longs()));
}

TEST(tkFeaturePattern, measurementsAreValidUnlessNamed)
{
    tkFeaturePattern pattern(Doubles{1.0, 2.0, 3.0});
    EXPECT_EQ(3, pattern.numMeasurements());
    EXPECT_EQ(0, pattern.numInvalid());
    EXPECT_EQ(Longs(), pattern.invalidFeatureIndices());
    EXPECT_EQ((Doubles{1.0, 2.0, 3.0}), pattern.featureMeasurements(true));
    for (long i = 0; i < 3; ++i)
    {
        EXPECT_TRUE(pattern.isValid(i));
        EXPECT_EQ(static_cast<double>(i + 1), pattern.featureMeasurement(i, true));
    }
}

TEST(tkFeaturePattern, invalidIndicesComeInAnyOrderRepeatedOrNot)
{
    tkFeaturePattern once({1.0, 2.0, 3.0}, {2, 2});
    EXPECT_EQ(1, once.numInvalid());
    EXPECT_EQ(Longs({2}), once.invalidFeatureIndices());

    tkFeaturePattern several({1.0, 2.0, 3.0, 4.0}, {3, 0, 2, 0});
    EXPECT_EQ(3, several.numInvalid());
    EXPECT_EQ(Longs({0, 2, 3}), several.invalidFeatureIndices());
    EXPECT_FALSE(several.isValid(0));
    EXPECT_TRUE(several.isValid(1));
    EXPECT_FALSE(several.isValid(2));
    EXPECT_FALSE(several.isValid(3));
}

TEST(tkFeaturePattern, firstBadInvalidIndexStopsTheConstruction)
{
    const Doubles three{1.0, 2.0, 3.0};
    EXPECT_TK_THROW(tkFeaturePattern(three, {-1}), tkClassifierDefs::BadIndex, indicesNotNegative);
    EXPECT_TK_THROW(tkFeaturePattern(three, {3}), tkClassifierDefs::BadIndex, indicesBelowCount);
    EXPECT_TK_THROW(tkFeaturePattern(three, {-1, 5}), tkClassifierDefs::BadIndex, indicesNotNegative);
    EXPECT_TK_THROW(tkFeaturePattern(three, {5, -1}), tkClassifierDefs::BadIndex, indicesBelowCount);
    EXPECT_TK_THROW(tkFeaturePattern(three, {0, 2, 3, -1}), tkClassifierDefs::BadIndex, indicesBelowCount);
    EXPECT_TK_THROW(tkFeaturePattern({}, {0}), tkClassifierDefs::BadIndex, indicesBelowCount);
    EXPECT_TK_THROW(tkFeaturePattern({}, {-1}), tkClassifierDefs::BadIndex, indicesNotNegative);
    EXPECT_TK_THROW(tkFeaturePattern(three, {std::numeric_limits<long>::max()}), tkClassifierDefs::BadIndex,
                    indicesBelowCount);
    EXPECT_TK_THROW(tkFeaturePattern(three, {std::numeric_limits<long>::min()}), tkClassifierDefs::BadIndex,
                    indicesNotNegative);
}

TEST(tkFeaturePattern, wholeVectorNeedsAllValidOnlyOnDemand)
{
    const tkFeaturePattern pattern = example();
    EXPECT_EQ((Doubles{1.5, -2.0, 7.25}), pattern.featureMeasurements(false));
    EXPECT_EQ(&pattern.featureMeasurements(false), &pattern.featureMeasurements(false));
    EXPECT_TK_THROW(pattern.featureMeasurements(true), tkClassifierDefs::BadFeatures,
                    L"Access to full feature vector requires that all features are valid.");
}

TEST(tkFeaturePattern, invalidMeasurementGivesItsStoredValueUnlessItMustBeValid)
{
    const tkFeaturePattern pattern = example();
    EXPECT_EQ(7.25, pattern.featureMeasurement(2, false));
    EXPECT_TK_THROW(pattern.featureMeasurement(2, true), tkClassifierDefs::BadFeatures, measurementNotValid);
    EXPECT_EQ(1.5, pattern.featureMeasurement(0, true));
    EXPECT_EQ(-2.0, pattern.featureMeasurement(1, false));
}

TEST(tkFeaturePattern, beyondTheEndIsInvalidAndZero)
{
    const tkFeaturePattern pattern = example();
    for (const long index : {3L, 4L, 2147483647L, std::numeric_limits<long>::max()})
    {
        EXPECT_FALSE(pattern.isValid(index));
        EXPECT_EQ(0.0, pattern.featureMeasurement(index, false));
        EXPECT_TK_THROW(pattern.featureMeasurement(index, true), tkClassifierDefs::BadFeatures, measurementNotValid);
    }
}

TEST(tkFeaturePattern, negativeIndexIsRefusedBeforeValidityMatters)
{
    const tkFeaturePattern pattern = example();
    for (const long index : {-1L, -2147483647L - 1, std::numeric_limits<long>::min()})
    {
        EXPECT_TK_THROW(pattern.isValid(index), tkClassifierDefs::BadIndex, indicesNotNegative);
        EXPECT_TK_THROW(pattern.featureMeasurement(index, false), tkClassifierDefs::BadIndex, indicesNotNegative);
        EXPECT_TK_THROW(pattern.featureMeasurement(index, true), tkClassifierDefs::BadIndex, indicesNotNegative);
    }
}

TEST(tkFeaturePattern, equalityIsExactAndIncludesInvalidValues)
{
    const tkFeaturePattern pattern = example();
    EXPECT_TRUE(pattern == example());
    EXPECT_FALSE(pattern != example());
    for (const tkFeaturePattern& other :
         {tkFeaturePattern({1.5, -2.0, 7.0}, {2}), tkFeaturePattern({1.5, -2.0, 7.25}, {}),
          tkFeaturePattern({1.5, -2.0, 7.25}, {1}), tkFeaturePattern({1.5, -2.0, 7.25}, {1, 2}),
          tkFeaturePattern({1.5, -2.0}, {}), tkFeaturePattern({1.5, -2.0, 7.25, 0.0}, {2}), tkFeaturePattern()})
    {
        EXPECT_FALSE(pattern == other);
        EXPECT_TRUE(pattern != other);
    }
    EXPECT_TRUE(tkFeaturePattern({0.0}, {}) == tkFeaturePattern({-0.0}, {}));
    const tkFeaturePattern withNaN({notANumber}, {});
    EXPECT_FALSE(withNaN == withNaN);
    EXPECT_TRUE(withNaN != withNaN);
}

TEST(tkFeaturePattern, copiesCarryValuesAndNotTheReferenceCount)
{
    const tkPtrHandle<tkFeaturePattern> original(new tkFeaturePattern(example()));
    const tkPtrHandle<tkFeaturePattern> second(original);
    ASSERT_EQ(2, original->referenceCount());
    const tkFeaturePattern copy(*original);
    EXPECT_EQ(0, copy.referenceCount());
    EXPECT_TRUE(copy == *original);

    const tkPtrHandle<tkFeaturePattern> target(new tkFeaturePattern);
    *target = *original;
    EXPECT_EQ(1, target->referenceCount());
    EXPECT_EQ(2, original->referenceCount());
    EXPECT_TRUE(*target == *original);

    *target = *target;
    EXPECT_TRUE(*target == *original);
    *target = tkFeaturePattern({9.0}, {0});
    EXPECT_EQ(1, target->referenceCount());
    EXPECT_TRUE(*target == tkFeaturePattern({9.0}, {0}));
}

TEST(tkFeaturePattern, assignmentWithoutMemoryChangesNothing)
{
    const tkFeaturePattern longer(Doubles(100, 1.0), {99});
    expectUnchangedWithoutMemory(example(), [&](tkFeaturePattern& pattern) { pattern = longer; });
}

TEST(tkFeaturePattern, recordHasFixedBytesAndComesBackEqual)
{
    EXPECT_EQ(exampleRecord, storeToBytes(example()));
    tkFeaturePattern loaded({9.0, 9.0, 9.0, 9.0}, {0});
    loadFromBytes(exampleRecord, loaded);
    EXPECT_TRUE(loaded == example());

    const std::string empty(2 + 5 + 5, '\0');
    EXPECT_EQ(empty, storeToBytes(tkFeaturePattern()));
    loadFromBytes(empty, loaded);
    EXPECT_TRUE(loaded == tkFeaturePattern());
}

TEST(tkFeaturePattern, longRecordsAreThoseOfTheirVectors)
{
    // The flags go in pieces: lengths around theirs, and invalid measurements at both ends of a piece.
    const std::string versions(2, '\0');
    for (const long size : {0, 1, 16, 255, 256, 257, 511, 512, 513, 1000})
    {
        const std::vector<double> values(static_cast<std::size_t>(size), 0.25);
        for (const long invalid : {-1L, 0L, 1L, 254L, 255L, 256L, 257L, 511L, 512L, size - 1})
        {
            if (invalid >= size)
                continue;
            std::vector<bool> flags(values.size(), true);
            std::vector<long> indices;
            if (invalid >= 0)
            {
                flags[static_cast<std::size_t>(invalid)] = false;
                indices = {invalid};
            }
            const tkFeaturePattern pattern(values, indices);
            const std::string record = versions + storeToBytes(values) + storeToBytes(flags);
            EXPECT_EQ(record, storeToBytes(pattern)) << size << ", " << invalid;
            tkFeaturePattern loaded({1.0, 2.0, 3.0}, {0});
            loadFromBytes(record, loaded);
            EXPECT_EQ(pattern, loaded) << size << ", " << invalid;
            EXPECT_EQ(indices, loaded.invalidFeatureIndices());
        }
    }
}

TEST(tkFeaturePattern, extremeValuesComeBackWithTheirBits)
{
    const tkFeaturePattern pattern({notANumber, -notANumber, infinity, -infinity, -0.0, 5e-324, 1.7976931348623157e308},
                                   {0, 3});
    tkFeaturePattern loaded;
    loadFromBytes(storeToBytes(pattern), loaded);
    EXPECT_EQ(storeToBytes(pattern), storeToBytes(loaded));
    EXPECT_EQ(Longs({0, 3}), loaded.invalidFeatureIndices());
}

TEST(tkFeaturePattern, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkFeaturePattern.v0.bin");
    tkPtrHandle_const<tkFeaturePattern> loaded;
    loadFromBytes(bytes, loaded);
    ASSERT_FALSE(loaded.isNull());
    EXPECT_TRUE(*loaded == golden::featurePattern());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(golden::featurePattern()))));
}

TEST(tkFeaturePattern, otherVersionsAreRefusedAtEachLevelBeforeFurtherReading)
{
    for (const std::size_t level : {0, 1})
    {
        std::string bytes = exampleRecord.substr(0, level) + '\1';
        tkFeaturePattern loaded = example();
        try
        {
            loadFromBytes(bytes, loaded);
            ADD_FAILURE() << "no exception at level " << level;
        }
        catch (const tkArchive::UnknownVersion& unknown)
        {
            EXPECT_EQ("", unknown.where());
            EXPECT_EQ(0, unknown.number());
        }
        EXPECT_TRUE(loaded == example());
    }
    for (const std::size_t vectorAt : {2, 31})
    {
        std::string bytes = exampleRecord;
        bytes[vectorAt] = '\1';
        tkFeaturePattern loaded;
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tkFeaturePattern, failedLoadingLeavesNoMeasurementWithoutItsFlag)
{
    for (std::size_t length = 0; length < exampleRecord.size(); ++length)
    {
        tkFeaturePattern loaded({1.0, 2.0, 3.0, 4.0, 5.0}, {1});
        EXPECT_THROW(loadFromBytes(exampleRecord.substr(0, length), loaded), tkArchive::Errors) << length;
        if (length < 2)
            EXPECT_TRUE(loaded == tkFeaturePattern({1.0, 2.0, 3.0, 4.0, 5.0}, {1}));
        else
            EXPECT_TRUE(loaded == tkFeaturePattern());
    }
}

TEST(tkFeaturePattern, recordWithFlagsForOtherThanItsMeasurementsIsRefused)
{
    std::string fewer = exampleRecord.substr(0, 38);
    fewer[32] = '\2';
    std::string more = exampleRecord + '\1';
    more[32] = '\4';
    for (const std::string& bytes : {fewer, more})
    {
        tkFeaturePattern loaded = example();
        EXPECT_TK_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors,
                        L"A feature pattern has not as many validity flags as measurements (reading, at byte " +
                            std::to_wstring(bytes.size()) + L")");
        EXPECT_TRUE(loaded == tkFeaturePattern());
    }
}

TEST(tkFeaturePattern, oneObjectBehindTwoHandlesIsOneObjectAfterLoading)
{
    const tkPtrHandle_const<tkFeaturePattern> shared(new tkFeaturePattern(example()));
    const std::vector<tkPtrHandle_const<tkFeaturePattern>> stored = {
        shared, tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(example())), shared};
    std::vector<tkPtrHandle_const<tkFeaturePattern>> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_EQ(3u, loaded.size());
    EXPECT_TRUE(loaded[0] == loaded[2]);
    EXPECT_TRUE(loaded[0] != loaded[1]);
    EXPECT_TRUE(*loaded[0] == example());
    EXPECT_TRUE(*loaded[1] == example());
    EXPECT_EQ(2, loaded[0]->referenceCount());
}
