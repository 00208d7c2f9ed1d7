#include "clss/model/tkPatternScaler.h"

#include "modelTestData.h"
#include "tests/golden/model.h"
#include "tkAllocations.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <limits>

namespace
{
const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double largest = std::numeric_limits<double>::max();

/// Patterns of one category, each of these measurements.
tkClassifierDataProviderMemory dataOf(const std::vector<std::vector<double>>& patterns)
{
    tkClassifierDataProviderMemory data;
    for (const std::vector<double>& pattern : patterns)
        data.addData(handleTo(patternWithGaps(pattern)), 0);
    return data;
}

const std::vector<tkPatternScaler::Method> methods = {tkPatternScaler::eDeviation, tkPatternScaler::eQuartiles,
                                                      tkPatternScaler::eRange};
} // namespace

TEST(tkPatternScaler, newOneHasNoMeasurements)
{
    const tkPatternScaler scaler;
    EXPECT_EQ(0, scaler.numMeasurements());
    EXPECT_TRUE(scaler.apply(tkFeaturePattern()) == tkFeaturePattern());
}

TEST(tkPatternScaler, learnsWhatItsMethodSays)
{
    const auto data = dataOf({{1.0, -4.0}, {2.0, 0.0}, {4.0, 0.0}, {9.0, 20.0}});
    const tkPatternScaler deviation(data);
    EXPECT_EQ(4.0, deviation.offsets()[0]);
    EXPECT_NEAR(std::sqrt(38.0 / 3.0), deviation.scales()[0], 1e-15);
    EXPECT_DOUBLE_EQ(4.0, deviation.offsets()[1]);
    EXPECT_NEAR(std::sqrt(352.0 / 3.0), deviation.scales()[1], 1e-14);
    EXPECT_TRUE(deviation == tkPatternScaler(data, tkPatternScaler::eDeviation));

    EXPECT_TRUE(tkPatternScaler(data, tkPatternScaler::eQuartiles) == tkPatternScaler({3.0, 0.0}, {3.5, 6.0}));
    EXPECT_TRUE(tkPatternScaler(data, tkPatternScaler::eRange) == tkPatternScaler({1.0, -4.0}, {8.0, 24.0}));
}

TEST(tkPatternScaler, offsetsAndScalesAreThoseOfNumPyAndScikitLearn)
{
    tkClassifierDataProviderMemory data;
    std::map<std::string, std::vector<double>> expected;
    for (const Line& line : linesOf("patternScaler.csv"))
        if (line.word == "pattern")
            data.addData(handleTo(patternWithGaps(line.numbers)), 0);
        else
            expected[line.word] = line.numbers;
    ASSERT_EQ(6u, expected.size());
    const std::vector<std::string> names = {"deviation", "quartiles", "range"};
    for (std::size_t m = 0; m < methods.size(); ++m)
    {
        const tkPatternScaler scaler(data, methods[m]);
        const std::vector<double>& offsets = expected[names[m] + " offsets"];
        const std::vector<double>& scales = expected[names[m] + " scales"];
        ASSERT_EQ(13, scaler.numMeasurements());
        for (std::size_t j = 0; j < 13; ++j)
        {
            EXPECT_NEAR(offsets[j], scaler.offsets()[j], 1e-14 * std::abs(offsets[j])) << names[m] << j;
            EXPECT_NEAR(scales[j], scaler.scales()[j], 2e-14 * scales[j]) << names[m] << j;
        }
    }
}

TEST(tkPatternScaler, invalidNaNAndInfiniteMeasurementsAreLeftOut)
{
    auto data = dataOf({{1.0, notANumber}, {2.0, 5.0}, {notANumber, notANumber}, {5.0, 7.0}});
    for (const tkPatternScaler::Method method : methods)
    {
        const tkPatternScaler scaler(data, method);
        data.addData({notANumber, infinity}, 0);
        data.addData({-infinity, notANumber}, 0);
        data.addData(handleTo(tkFeaturePattern({1e9, -1e9}, {0, 1})), 0);
        EXPECT_TRUE(scaler == tkPatternScaler(data, method));
        EXPECT_TRUE(tkPatternScaler(dataOf({{1.0}, {2.0}, {5.0}}), method).offsets()[0] == scaler.offsets()[0]);
        EXPECT_TRUE(tkPatternScaler(dataOf({{5.0}, {7.0}}), method).scales()[0] == scaler.scales()[1]);
    }
}

TEST(tkPatternScaler, patternsWithoutALabelAreLeftOut)
{
    auto data = dataOf({{1.0}, {3.0}});
    const tkPatternScaler scaler(data);
    data.addData({100.0}, -1);
    EXPECT_TRUE(scaler == tkPatternScaler(data));
}

TEST(tkPatternScaler, constantMeasurementsKeepTheirUnit)
{
    const auto data = dataOf({{7.1, 0.0, 1e15}, {7.1, -0.0, 1e15 + 0.125}, {7.1, 0.0, 1e15}});
    for (const tkPatternScaler::Method method : methods)
    {
        const tkPatternScaler scaler(data, method);
        EXPECT_EQ(7.1, scaler.offsets()[0]);
        EXPECT_EQ(0.0, scaler.offsets()[1]);
        EXPECT_EQ((std::vector<double>{1.0, 1.0, 1.0}), scaler.scales());
    }
    EXPECT_EQ(0.25, tkPatternScaler(dataOf({{1e15}, {1e15 + 0.25}}), tkPatternScaler::eRange).scales()[0]);
}

TEST(tkPatternScaler, measurementThatNoPatternHasIsLeftAlone)
{
    for (const tkPatternScaler::Method method : methods)
        EXPECT_TRUE(tkPatternScaler(dataOf({{notANumber}, {notANumber}}), method) == tkPatternScaler({0.0}, {1.0}));
}

TEST(tkPatternScaler, onePatternGivesItsValuesAsOffsets)
{
    for (const tkPatternScaler::Method method : methods)
        EXPECT_TRUE(tkPatternScaler(dataOf({{3.0, -2.0}}), method) == tkPatternScaler({3.0, -2.0}, {1.0, 1.0}));
}

TEST(tkPatternScaler, neitherLargeNorSmallMeasurementsOverflowOrVanish)
{
    const std::vector<double> values = {1.0, 2.0, 4.0, 9.0};
    for (const tkPatternScaler::Method method : methods)
    {
        const tkPatternScaler plain(dataOf({{1.0}, {2.0}, {4.0}, {9.0}}), method);
        for (const int exponent : {-1030, -600, 600, 1020})
        {
            tkClassifierDataProviderMemory data;
            for (const double value : values)
                data.addData({std::ldexp(value, exponent)}, 0);
            const tkPatternScaler scaler(data, method);
            EXPECT_EQ(std::ldexp(plain.offsets()[0], exponent), scaler.offsets()[0]);
            EXPECT_EQ(std::ldexp(plain.scales()[0], exponent), scaler.scales()[0]);
        }
        const tkPatternScaler extreme(dataOf({{-largest}, {largest}}), method);
        EXPECT_TRUE(std::isfinite(extreme.offsets()[0]));
        EXPECT_TRUE(std::isfinite(extreme.scales()[0]));
    }
}

TEST(tkPatternScaler, largeOutlierTakesNothingFromSmallValues)
{
    const auto data = dataOf({{1e-17}, {2e-17}, {3e-17}, {4e-17}, {largest}});
    EXPECT_TRUE(tkPatternScaler(data, tkPatternScaler::eQuartiles) == tkPatternScaler({3e-17}, {4e-17 - 2e-17}));
    EXPECT_TRUE(tkPatternScaler(data, tkPatternScaler::eRange) == tkPatternScaler({1e-17}, {largest}));
    const auto wide = dataOf({{-largest}, {-largest}, {1.5}, {largest}, {largest}});
    EXPECT_TRUE(tkPatternScaler(wide, tkPatternScaler::eQuartiles) == tkPatternScaler({1.5}, {largest}));
}

TEST(tkPatternScaler, learningChecksItsDataPatternByPattern)
{
    UncheckedProvider data;
    data.measurements = 1;
    data.patterns = {handleTo(tkFeaturePattern({1.0, 2.0})), tkPtrHandle_const<tkFeaturePattern>()};
    data.labels = {-2, 0};
    EXPECT_TK_THROW(tkPatternScaler{data}, tkClassifierDefs::BadFeatures,
                    L"Pattern 0 has 2 measurements, the training data have 1.");
    data.measurements = 2;
    EXPECT_TK_THROW(tkPatternScaler{data}, tkClassifierDefs::BadLabel, L"Category labels must be >= 0 or unknown");
    data.labels[0] = -1;
    EXPECT_THROW(tkPatternScaler{data}, tkBadPointer);
    data.patterns[1] = data.patterns[0];
    data.labels[1] = -1;
    EXPECT_TK_THROW(tkPatternScaler{data}, tkClassifierDefs::InsufficientTrainData,
                    L"No valid data was provided for training.");
}

TEST(tkPatternScaler, unknownMethodIsABug)
{
    EXPECT_THROW(tkPatternScaler(dataOf({{1.0}}), static_cast<tkPatternScaler::Method>(3)), tkAssertionFailure);
}

TEST(tkPatternScaler, givenOffsetsAndScalesAreCheckedInOrder)
{
    EXPECT_TK_THROW(tkPatternScaler({notANumber}, {}), tkClassifierDefs::BadParams,
                    L"A scaler needs as many offsets as scales.");
    EXPECT_TK_THROW(tkPatternScaler({1.0, infinity}, {1.0, 0.0}), tkClassifierDefs::BadParams,
                    L"The offset of measurement 1 is not finite.");
    EXPECT_TK_THROW(tkPatternScaler({1.0, infinity}, {-1.0, 1.0}), tkClassifierDefs::BadParams,
                    L"The scale of measurement 0 is not finite and > 0.0.");
    for (const double scale : {0.0, -0.0, -5e-324, notANumber, infinity})
        EXPECT_TK_THROW(tkPatternScaler({1.0}, {scale}), tkClassifierDefs::BadParams,
                        L"The scale of measurement 0 is not finite and > 0.0.");
    EXPECT_EQ(5e-324, tkPatternScaler({1.0}, {5e-324}).scales()[0]);
}

TEST(tkPatternScaler, appliesToValidMeasurementsAndUndoes)
{
    const tkPatternScaler scaler({1.0, 10.0, -2.0}, {2.0, 0.5, 4.0});
    const tkFeaturePattern pattern({5.0, 9.0, 100.0}, {1});
    const tkFeaturePattern scaled = scaler.apply(pattern);
    EXPECT_TRUE(scaled == tkFeaturePattern({2.0, 9.0, 25.5}, {1}));
    EXPECT_TRUE(scaler.undo(scaled) == pattern);
    EXPECT_TRUE(scaler.undo(tkFeaturePattern({0.0, 1.0, -1.0})) == tkFeaturePattern({1.0, 10.5, -6.0}));
}

TEST(tkPatternScaler, valuesThatAreNotFiniteGoThroughTheFormula)
{
    const tkPatternScaler scaler({1.0}, {0.5});
    EXPECT_EQ(infinity, scaler.apply(tkFeaturePattern({infinity})).featureMeasurement(0, true));
    EXPECT_EQ(-infinity, scaler.apply(tkFeaturePattern({-largest})).featureMeasurement(0, true));
    EXPECT_TRUE(std::isnan(scaler.apply(tkFeaturePattern({notANumber})).featureMeasurement(0, true)));
}

TEST(tkPatternScaler, patternsOfAnotherLengthAreRefused)
{
    const tkPatternScaler scaler({1.0, 2.0}, {1.0, 1.0});
    EXPECT_TK_THROW(scaler.apply(tkFeaturePattern({1.0})), tkClassifierDefs::BadFeatures,
                    L"The pattern has 1 measurements, the scaler 2.");
    EXPECT_TK_THROW(scaler.undo(tkFeaturePattern({1.0, 2.0, 3.0})), tkClassifierDefs::BadFeatures,
                    L"The pattern has 3 measurements, the scaler 2.");
}

TEST(tkPatternScaler, appliesToAllTrainingData)
{
    tkClassifierDataProviderMemory data;
    data.setName(L"wine");
    data.setDescription(L"of Italy");
    data.addData({1.0, 4.0}, 3);
    data.addData(handleTo(tkFeaturePattern({3.0, 8.0}, {0})), -1);
    const tkPatternScaler scaler({1.0, 4.0}, {2.0, 2.0});
    const tkClassifierDataProviderMemory scaled = scaler.apply(data);

    tkClassifierDataProviderMemory expected;
    expected.setName(L"wine");
    expected.setDescription(L"of Italy");
    expected.addData({0.0, 0.0}, 3);
    expected.addData(handleTo(tkFeaturePattern({3.0, 2.0}, {0})), -1);
    EXPECT_TRUE(scaled == expected);
    EXPECT_EQ(0, scaler.apply(tkClassifierDataProviderMemory()).numPatterns());
}

TEST(tkPatternScaler, applyingToDataChecksTheirPatternsAndLabels)
{
    UncheckedProvider data;
    data.patterns = {handleTo(tkFeaturePattern({1.0})), handleTo(tkFeaturePattern({1.0, 2.0}))};
    data.labels = {-2, 0};
    const tkPatternScaler scaler({1.0}, {1.0});
    EXPECT_TK_THROW(scaler.apply(data), tkClassifierDefs::BadLabel, L"Category labels must be >= 0 or unknown");
    data.labels[0] = 1;
    EXPECT_TK_THROW(scaler.apply(data), tkClassifierDefs::BadFeatures,
                    L"The pattern has 2 measurements, the scaler 1.");
    data.patterns[1] = tkPtrHandle_const<tkFeaturePattern>();
    EXPECT_THROW(scaler.apply(data), tkBadPointer);
}

TEST(tkPatternScaler, equalityIsExact)
{
    const tkPatternScaler scaler = golden::scaler();
    EXPECT_TRUE(scaler == golden::scaler());
    EXPECT_FALSE(scaler != golden::scaler());
    for (const tkPatternScaler& other :
         {tkPatternScaler(), tkPatternScaler({-2.5, 0.0, std::nextafter(1000.25, 0.0)}, {0.125, 1.0, 3.0}),
          tkPatternScaler({-2.5, 0.0, 1000.25}, {0.125, 1.0, std::nextafter(3.0, 0.0)}),
          tkPatternScaler({-2.5, 0.0}, {0.125, 1.0})})
    {
        EXPECT_FALSE(scaler == other);
        EXPECT_TRUE(scaler != other);
    }
}

TEST(tkPatternScaler, assigningWithoutMemoryChangesNothing)
{
    const tkPatternScaler other(std::vector<double>(50, 1.0), std::vector<double>(50, 2.0));
    expectUnchangedWithoutMemory(golden::scaler(), [&](tkPatternScaler& scaler) { scaler = other; });
    tkPatternScaler copy(other);
    copy = golden::scaler();
    EXPECT_TRUE(copy == golden::scaler());
    EXPECT_EQ(50, other.numMeasurements());
}

TEST(tkPatternScaler, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkPatternScaler.v0.bin");
    tkPatternScaler loaded({9.0}, {9.0});
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(loaded == golden::scaler());
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(golden::scaler()));
}

TEST(tkPatternScaler, otherVersionIsRefusedBeforeFurtherReading)
{
    tkPatternScaler loaded = golden::scaler();
    EXPECT_THROW(loadFromBytes("\1", loaded), tkArchive::UnknownVersion);
    EXPECT_TRUE(loaded == golden::scaler());
}

TEST(tkPatternScaler, truncatedRecordLeavesNoMeasurements)
{
    const std::string bytes = goldenBytes("tkPatternScaler.v0.bin");
    for (std::size_t length = 1; length < bytes.size(); ++length)
    {
        tkPatternScaler loaded = golden::scaler();
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
        EXPECT_EQ(0, loaded.numMeasurements()) << length;
        EXPECT_TRUE(loaded.scales().empty()) << length;
    }
}

TEST(tkPatternScaler, recordWithAnotherNumberOfScalesIsRefused)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        archive.exchangeVersion();
        std::vector<double> offsets = {1.0};
        std::vector<double> scales;
        archive || offsets || scales;
    }
    tkPatternScaler loaded = golden::scaler();
    EXPECT_TK_THROW(loadFromBytes(stream.str(), loaded), tkArchive::Errors,
                    L"A scaler has not as many offsets as scales (reading, at byte 19)");
    EXPECT_EQ(0, loaded.numMeasurements());
}
