#include "clss/clastool/clastool/tkClassifierDataProvider.h"

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
using Pattern = tkPtrHandle_const<tkFeaturePattern>;
using Patterns = std::vector<Pattern>;
using Longs = std::vector<long>;

const wchar_t differentCounts[] = L"The number of the feature patterns must be equal to the number of category labels";
const wchar_t differentLengths[] = L"Feature patterns must all have the same number of measurements";
const wchar_t otherLength[] = L"Feature pattern must have the same number of measurements as the rest of the data.";
const wchar_t badLabel[] = L"Category labels must be >= 0 or unknown";
const wchar_t badPatternIndex[] = L"Feature pattern index must be >=0 and < number of patterns.";
const wchar_t badLabelIndex[] = L"Category label index must be >=0 and < number of patterns.";

Pattern pattern(const std::vector<double>& measurements, const Longs& invalidIndices = {})
{
    return Pattern(new tkFeaturePattern(measurements, invalidIndices));
}

/// Two patterns of two measurements, labels 3 and -1, with texts.
tkClassifierDataProviderMemory example()
{
    tkClassifierDataProviderMemory provider;
    provider.setName(L"name");
    provider.setDescription(L"description");
    provider.data({pattern({1.0, 2.0}), pattern({3.0, 4.0}, {1})}, {3, -1});
    return provider;
}

/// A provider of a host: the memory provider behind another class.
class HostProvider : public tkClassifierDataProvider
{
public:
    std::wstring name() override { return memory_.name(); }
    std::wstring description() override { return memory_.description(); }
    long numMeasurements() const override { return memory_.numMeasurements(); }
    long numPatterns() const override { return memory_.numPatterns(); }
    Pattern featurePattern(long index) override { return memory_.featurePattern(index); }
    long categoryLabel(long index) const override { return memory_.categoryLabel(index); }
    bool baseIsEqual(const tkClassifierDataProvider& other) const { return tkClassifierDataProvider::isEqual_(other); }

private:
    tkClassifierDataProviderMemory memory_ = example();
};

/// Says other things about its size than the memory provider below it.
class ResizedProvider : public tkClassifierDataProviderMemory
{
public:
    long numMeasurements() const override { return measurements; }
    long numPatterns() const override { return patterns; }

    long measurements = 0;
    long patterns = 0;
};

/// The record of a provider with any contents: three versions, name, description, patterns, labels.
template <class Handle = Pattern>
std::string recordOf(const std::wstring& name, const std::wstring& description, std::vector<Handle> patterns,
                     Longs labels)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    for (int level = 0; level < 3; ++level)
        archive.exchangeVersion();
    std::wstring texts[] = {name, description};
    archive || texts[0] || texts[1] || patterns || labels;
    return stream.str();
}
} // namespace

static_assert(std::is_abstract_v<tkClassifierDataProvider>);
static_assert(!std::is_copy_constructible_v<tkClassifierDataProvider>);
// Not const, and hosts override them so.
static_assert(std::is_same_v<decltype(&tkClassifierDataProvider::name), std::wstring (tkClassifierDataProvider::*)()>);
static_assert(
    std::is_same_v<decltype(&tkClassifierDataProvider::description), std::wstring (tkClassifierDataProvider::*)()>);
static_assert(
    std::is_same_v<decltype(&tkClassifierDataProvider::featurePattern), Pattern (tkClassifierDataProvider::*)(long)>);

TEST(tkClassifierDataProvider, startsEmpty)
{
    tkClassifierDataProviderMemory provider;
    EXPECT_EQ(L"", provider.name());
    EXPECT_EQ(L"", provider.description());
    EXPECT_EQ(0, provider.numPatterns());
    EXPECT_EQ(0, provider.numMeasurements());
}

TEST(tkClassifierDataProvider, keepsTextsPatternsAndLabels)
{
    const Pattern first = pattern({1.0, 2.0});
    const Pattern second = pattern({3.0, 4.0}, {0});
    tkClassifierDataProviderMemory provider;
    provider.setName(L"a name");
    provider.setDescription(L"a description");
    provider.data({first, second, first}, {0, -1, 2147483647});
    EXPECT_EQ(L"a name", provider.name());
    EXPECT_EQ(L"a description", provider.description());
    EXPECT_EQ(3, provider.numPatterns());
    EXPECT_EQ(2, provider.numMeasurements());
    EXPECT_TRUE(provider.featurePattern(0) == first);
    EXPECT_TRUE(provider.featurePattern(1) == second);
    EXPECT_TRUE(provider.featurePattern(2) == first);
    EXPECT_EQ(0, provider.categoryLabel(0));
    EXPECT_EQ(-1, provider.categoryLabel(1));
    EXPECT_EQ(2147483647, provider.categoryLabel(2));
}

TEST(tkClassifierDataProvider, dataReplacesTheContentsAndMayBeEmpty)
{
    tkClassifierDataProviderMemory provider = example();
    provider.data({pattern({7.0})}, {5});
    EXPECT_EQ(1, provider.numPatterns());
    EXPECT_EQ(1, provider.numMeasurements());
    EXPECT_EQ(5, provider.categoryLabel(0));
    provider.data({}, {});
    EXPECT_EQ(0, provider.numPatterns());
    EXPECT_EQ(0, provider.numMeasurements());
    EXPECT_EQ(L"name", provider.name());
    EXPECT_EQ(L"description", provider.description());
}

TEST(tkClassifierDataProvider, dataChecksCountsThenLengthsThenLabels)
{
    tkClassifierDataProviderMemory provider = example();
    const Pattern one = pattern({1.0});
    const Pattern two = pattern({1.0, 2.0});
    EXPECT_TK_THROW(provider.data({one, one, one}, {1, 2}), tkClassifierDefs::BadFeatures, differentCounts);
    EXPECT_TK_THROW(provider.data({one, two, one}, {1, -2}), tkClassifierDefs::BadFeatures, differentCounts);
    EXPECT_TK_THROW(provider.data({}, {-2}), tkClassifierDefs::BadFeatures, differentCounts);
    EXPECT_TK_THROW(provider.data({one}, {}), tkClassifierDefs::BadFeatures, differentCounts);
    EXPECT_TK_THROW(provider.data({one, two}, {1, 1}), tkClassifierDefs::BadFeatures, differentLengths);
    EXPECT_TK_THROW(provider.data({two, two, one}, {-2, 1, 1}), tkClassifierDefs::BadFeatures, differentLengths);
    EXPECT_TK_THROW(provider.data({one, one}, {1, -2}), tkClassifierDefs::BadLabel, badLabel);
    EXPECT_TK_THROW(provider.data({one}, {std::numeric_limits<long>::min()}), tkClassifierDefs::BadLabel, badLabel);
    EXPECT_TRUE(provider == example());
}

TEST(tkClassifierDataProvider, dataRefusesNullHandlesBetweenCountsAndLabels)
{
    tkClassifierDataProviderMemory provider = example();
    const Pattern one = pattern({1.0});
    EXPECT_TK_THROW(provider.data({Pattern()}, {}), tkClassifierDefs::BadFeatures, differentCounts);
    EXPECT_THROW(provider.data({Pattern()}, {-2}), tkBadPointer);
    EXPECT_THROW(provider.data({one, Pattern()}, {1, -2}), tkBadPointer);
    EXPECT_THROW(provider.data({Pattern(), one}, {1, 1}), tkBadPointer);
    EXPECT_TRUE(provider == example());
}

TEST(tkClassifierDataProvider, dataWithoutMemoryChangesNothing)
{
    const Patterns patterns(100, pattern({1.0}));
    const Longs labels(100, 4);
    expectUnchangedWithoutMemory(example(), [&](auto& provider) { provider.data(patterns, labels); });
}

TEST(tkClassifierDataProvider, addDataAppends)
{
    tkClassifierDataProviderMemory provider;
    const Pattern three = pattern({1.0, 2.0, 3.0});
    provider.addData(three, -1);
    EXPECT_EQ(1, provider.numPatterns());
    EXPECT_EQ(3, provider.numMeasurements());
    provider.addData(pattern({4.0, 5.0, 6.0}), 0);
    ASSERT_EQ(2, provider.numPatterns());
    EXPECT_TRUE(provider.featurePattern(0) == three);
    EXPECT_EQ(-1, provider.categoryLabel(0));
    EXPECT_EQ(6.0, provider.featurePattern(1)->featureMeasurement(2, true));
    EXPECT_EQ(0, provider.categoryLabel(1));

    tkClassifierDataProviderMemory withoutMeasurements;
    withoutMeasurements.addData(pattern({}), 1);
    EXPECT_EQ(1, withoutMeasurements.numPatterns());
    EXPECT_EQ(0, withoutMeasurements.numMeasurements());
    EXPECT_TK_THROW(withoutMeasurements.addData(three, 1), tkClassifierDefs::BadFeatures, otherLength);
}

TEST(tkClassifierDataProvider, addDataChecksHandleThenLengthThenLabel)
{
    tkClassifierDataProviderMemory provider = example();
    EXPECT_TK_THROW(provider.addData(pattern({1.0}), 1), tkClassifierDefs::BadFeatures, otherLength);
    EXPECT_TK_THROW(provider.addData(pattern({1.0}), -2), tkClassifierDefs::BadFeatures, otherLength);
    EXPECT_TK_THROW(provider.addData(pattern({1.0, 2.0}), -2), tkClassifierDefs::BadLabel, badLabel);
    EXPECT_THROW(provider.addData(Pattern(), -2), tkBadPointer);
    EXPECT_TRUE(provider == example());

    tkClassifierDataProviderMemory empty;
    EXPECT_TK_THROW(empty.addData(pattern({1.0}), -2), tkClassifierDefs::BadLabel, badLabel);
    EXPECT_THROW(empty.addData(Pattern(), 1), tkBadPointer);
    EXPECT_TRUE(empty == tkClassifierDataProviderMemory());
    empty.addData(pattern({1.0, 2.0, 3.0, 4.0}), 1);
    EXPECT_EQ(4, empty.numMeasurements());
}

TEST(tkClassifierDataProvider, addDataTakesMeasurementsInOneLine)
{
    tkClassifierDataProviderMemory provider;
    const std::vector<double> measurements = {1.0, 2.0};
    provider.addData(measurements, 3);
    provider.addData({3.0, 4.0}, -1);
    tkClassifierDataProviderMemory same;
    same.data({pattern({1.0, 2.0}), pattern({3.0, 4.0})}, {3, -1});
    EXPECT_TRUE(provider == same);
    EXPECT_TK_THROW(provider.addData({1.0}, -2), tkClassifierDefs::BadFeatures, otherLength);
    EXPECT_TK_THROW(provider.addData({1.0, 2.0}, -2), tkClassifierDefs::BadLabel, badLabel);
    EXPECT_TRUE(provider == same);
    expectUnchangedWithoutMemory(provider, [&](auto& object) { object.addData(measurements, 1); });
}

TEST(tkClassifierDataProvider, showsPatternsAndLabelsWhereTheyStand)
{
    tkClassifierDataProviderMemory provider = example();
    ASSERT_EQ(2u, provider.patterns().size());
    EXPECT_EQ(provider.featurePattern(0), provider.patterns()[0]);
    EXPECT_EQ(provider.featurePattern(1), provider.patterns()[1]);
    EXPECT_EQ((Longs{3, -1}), provider.labels());
}

TEST(tkClassifierDataProvider, theIndexIsNoPartOfTheValueAndGoesWithThePatterns)
{
    tkClassifierDataProviderMemory provider = example();
    EXPECT_FALSE(provider.neighborIndex());
    provider.indexNeighbors();
    const tk_NeighborIndex* const index = provider.neighborIndex();
    ASSERT_TRUE(index);
    provider.indexNeighbors();
    EXPECT_EQ(index, provider.neighborIndex());
    EXPECT_TRUE(provider == example());
    EXPECT_EQ(storeToBytes(example()), storeToBytes(provider));
    EXPECT_FALSE(tkClassifierDataProviderMemory(provider).neighborIndex());
    provider.data({}, {});
    EXPECT_FALSE(provider.neighborIndex());
    provider.indexNeighbors();
    loadFromBytes(storeToBytes(example()), provider);
    EXPECT_FALSE(provider.neighborIndex());
}

TEST(tkClassifierDataProvider, addDataWithoutMemoryChangesNothing)
{
    const Pattern added = pattern({1.0, 2.0});
    expectUnchangedWithoutMemory(example(), [&](auto& provider) { provider.addData(added, 1); });
}

TEST(tkClassifierDataProvider, sizesAreAskedThroughTheVirtualOperations)
{
    ResizedProvider provider;
    provider.addData(pattern({1.0, 2.0}), 1);
    EXPECT_TK_THROW(provider.featurePattern(0), tkClassifierDefs::BadIndex, badPatternIndex);
    EXPECT_TK_THROW(provider.categoryLabel(0), tkClassifierDefs::BadIndex, badLabelIndex);
    provider.addData(pattern({1.0}), 1); // of any length: it says that it holds nothing
    provider.patterns = 1;
    provider.measurements = 3;
    EXPECT_EQ(1, provider.categoryLabel(0));
    EXPECT_TK_THROW(provider.addData(pattern({1.0, 2.0}), 1), tkClassifierDefs::BadFeatures, otherLength);
    provider.addData(pattern({1.0, 2.0, 3.0}), 1);
    provider.patterns = 3;
    EXPECT_EQ(3, provider.featurePattern(2)->numMeasurements());
}

TEST(tkClassifierDataProvider, indicesMustBeThoseOfPatterns)
{
    tkClassifierDataProviderMemory provider = example();
    for (const long index : {-1L, 2L, 2147483647L, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()})
    {
        EXPECT_TK_THROW(provider.featurePattern(index), tkClassifierDefs::BadIndex, badPatternIndex);
        EXPECT_TK_THROW(provider.categoryLabel(index), tkClassifierDefs::BadIndex, badLabelIndex);
    }
    tkClassifierDataProviderMemory empty;
    EXPECT_TK_THROW(empty.featurePattern(0), tkClassifierDefs::BadIndex, badPatternIndex);
    EXPECT_TK_THROW(empty.categoryLabel(0), tkClassifierDefs::BadIndex, badLabelIndex);
}

TEST(tkClassifierDataProvider, equalityIsByValueOfEverything)
{
    const tkClassifierDataProviderMemory provider = example();
    EXPECT_TRUE(provider == example()); // other pattern objects, equal by value
    EXPECT_FALSE(provider != example());
    EXPECT_TRUE(tkClassifierDataProviderMemory() == tkClassifierDataProviderMemory());

    std::vector<tkClassifierDataProviderMemory> others(8, example());
    others[0].setName(L"Name");
    others[1].setDescription(L"");
    others[2].addData(pattern({1.0, 2.0}), 3);
    others[3].data({pattern({1.0, 2.0})}, {3});
    others[4].data({pattern({1.0, 2.0}), pattern({3.0, 4.0}, {1})}, {3, 0});
    others[5].data({pattern({1.0, 2.0}), pattern({3.0, 4.5}, {1})}, {3, -1});
    others[6].data({pattern({1.0, 2.0}), pattern({3.0, 4.0})}, {3, -1});
    others[7].data({pattern({3.0, 4.0}, {1}), pattern({1.0, 2.0})}, {-1, 3});
    for (const tkClassifierDataProviderMemory& other : others)
    {
        EXPECT_FALSE(provider == other);
        EXPECT_TRUE(provider != other);
        EXPECT_FALSE(other == provider);
    }
}

TEST(tkClassifierDataProvider, otherProviderTypesAreUnequal)
{
    const HostProvider host;
    EXPECT_FALSE(example() == host);
    EXPECT_TRUE(example() != host);
    EXPECT_TRUE(host.baseIsEqual(example()));
}

TEST(tkClassifierDataProvider, equalityWithADerivedClassIsTheSameFromBothSides)
{
    const ResizedProvider derived;
    const tkClassifierDataProviderMemory base;
    EXPECT_FALSE(base == derived);
    EXPECT_FALSE(derived == base);
    EXPECT_TRUE(derived == ResizedProvider());
}

TEST(tkClassifierDataProvider, copiesShareThePatternsAndNothingElse)
{
    tkClassifierDataProviderMemory original = example();
    tkClassifierDataProviderMemory copy(original);
    tkClassifierDataProviderMemory assigned;
    assigned = original;
    for (tkClassifierDataProviderMemory* c : {&copy, &assigned})
    {
        EXPECT_TRUE(*c == original);
        EXPECT_TRUE(c->featurePattern(0) == original.featurePattern(0));
        EXPECT_TRUE(c->featurePattern(1) == original.featurePattern(1));
        c->addData(pattern({5.0, 6.0}), 1);
        c->setName(L"copy");
    }
    EXPECT_TRUE(original == example());

    const tkPtrHandle<tkClassifierDataProviderMemory> counted(new tkClassifierDataProviderMemory);
    *counted = original;
    EXPECT_EQ(1, counted->referenceCount());
    *counted = *counted;
    EXPECT_TRUE(*counted == original);
}

TEST(tkClassifierDataProvider, assignmentWithoutMemoryChangesNothing)
{
    tkClassifierDataProviderMemory other;
    other.setName(std::wstring(100, L'n'));
    other.setDescription(std::wstring(100, L'd'));
    other.data(Patterns(100, pattern({1.0})), Longs(100, 4));
    expectUnchangedWithoutMemory(example(), [&](auto& provider) { provider = other; });
}

TEST(tkClassifierDataProvider, recordHasFixedBytesAndComesBackEqual)
{
    tkClassifierDataProviderMemory provider;
    provider.setName(L"n\u00f6");
    provider.setDescription(L"d");
    const Pattern shared = pattern({1.0}, {0});
    provider.data({shared, shared}, {-1, 258});
    const std::string record = literalBytes("\0\0\0"                   // versions: memory provider, provider, root
                                            "\3\0\0\0n\xc3\xb6"        // name
                                            "\1\0\0\0d"                // description
                                            "\0\2\0\0\0"               // two patterns
                                            "\1\0\0\0\1\0\0\0\x10\0\0" // object 1 of type 1, whose name has 16 bytes
                                            "\0tkFeaturePattern"
                                            "\0\0\0\1\0\0\0\0\0\0\0\0\0\xf0\x3f"   // its versions, measurements
                                            "\0\1\0\0\0\0"                         // and validity
                                            "\1\0\0\0"                             // object 1 again
                                            "\0\2\0\0\0\xff\xff\xff\xff\2\1\0\0"); // labels
    EXPECT_EQ(record, storeToBytes(provider));
    tkClassifierDataProviderMemory loaded = example();
    loadFromBytes(record, loaded);
    EXPECT_TRUE(loaded == provider);
    EXPECT_TRUE(loaded.featurePattern(0) == loaded.featurePattern(1));

    const std::string empty = std::string(3 + 4 + 4 + 5 + 5, '\0');
    EXPECT_EQ(empty, storeToBytes(tkClassifierDataProviderMemory()));
    loadFromBytes(empty, loaded);
    EXPECT_TRUE(loaded == tkClassifierDataProviderMemory());
}

TEST(tkClassifierDataProvider, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkClassifierDataProviderMemory.v0.bin");
    tkPtrHandle<tkClassifierDataProvider> loaded;
    loadFromBytes(bytes, loaded);
    ASSERT_FALSE(loaded.isNull());
    EXPECT_TRUE(golden::dataProvider() == *loaded);
    EXPECT_TRUE(loaded->featurePattern(0) == loaded->featurePattern(2));
    EXPECT_EQ(bytes, storeToBytes(loaded));
    EXPECT_EQ(bytes, storeToBytes(tkPtrHandle<tkClassifierDataProvider>(
                         new tkClassifierDataProviderMemory(golden::dataProvider()))));
}

TEST(tkClassifierDataProvider, otherVersionsAreRefusedAtEachLevelBeforeFurtherReading)
{
    for (const std::size_t level : {0, 1, 2})
    {
        tkClassifierDataProviderMemory loaded = example();
        try
        {
            loadFromBytes(std::string(level, '\0') + '\1', loaded);
            ADD_FAILURE() << "no exception at level " << level;
        }
        catch (const tkArchive::UnknownVersion& unknown)
        {
            EXPECT_EQ("", unknown.where());
            EXPECT_EQ(0, unknown.number());
        }
        EXPECT_TRUE(loaded == example());
    }
}

TEST(tkClassifierDataProvider, failedLoadingLeavesNoPatternWithoutItsLabel)
{
    const std::string bytes = storeToBytes(golden::dataProvider());
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        tkClassifierDataProviderMemory loaded = example();
        EXPECT_THROW(loadFromBytes(bytes.substr(0, length), loaded), tkArchive::Errors) << length;
        for (long i = 0; i < loaded.numPatterns(); ++i)
            EXPECT_EQ(example().categoryLabel(i), loaded.categoryLabel(i)) << length;
    }
}

TEST(tkClassifierDataProvider, recordWithLabelsForOtherThanItsPatternsIsRefused)
{
    const Pattern one = pattern({1.0});
    for (const std::string& bytes : {recordOf(L"n", L"d", {one, one}, {1}), recordOf(L"n", L"d", {one}, {1, 2}),
                                     recordOf(L"", L"", {}, {0}), recordOf(L"", L"", {one}, {})})
    {
        tkClassifierDataProviderMemory loaded = example();
        EXPECT_TK_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors,
                        L"Training data have not as many labels as patterns (reading, at byte " +
                            std::to_wstring(bytes.size()) + L")");
        EXPECT_EQ(0, loaded.numPatterns());
    }
}

TEST(tkClassifierDataProvider, loadingChecksNeitherLabelsNorLengthsNorHandles)
{
    tkClassifierDataProviderMemory loaded;
    loadFromBytes(recordOf(L"", L"", {pattern({1.0}), Pattern(), pattern({1.0, 2.0})}, {-2, -2147483647 - 1, 5}),
                  loaded);
    EXPECT_EQ(3, loaded.numPatterns());
    EXPECT_EQ(1, loaded.numMeasurements());
    EXPECT_EQ(-2, loaded.categoryLabel(0));
    EXPECT_EQ(-2147483647 - 1, loaded.categoryLabel(1));
    EXPECT_TRUE(loaded.featurePattern(1).isNull());
    EXPECT_EQ(2, loaded.featurePattern(2)->numMeasurements());
    EXPECT_THROW(static_cast<void>(loaded == loaded), tkBadPointer);
}

TEST(tkClassifierDataProvider, loadedObjectThatIsNoPatternGivesANullHandle)
{
    using Provider = tkPtrHandle<tkClassifierDataProvider>;
    tkClassifierDataProviderMemory loaded;
    loadFromBytes(recordOf<Provider>(L"", L"", {Provider(new tkClassifierDataProviderMemory)}, {1}), loaded);
    ASSERT_EQ(1, loaded.numPatterns());
    EXPECT_TRUE(loaded.featurePattern(0).isNull());
    EXPECT_THROW(loaded.numMeasurements(), tkBadPointer);
}
