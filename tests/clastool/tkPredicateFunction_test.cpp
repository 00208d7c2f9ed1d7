#include "clss/clastool/clastool/tkPredicateFunction.h"

#include "tests/clastool/treeTestData.h"
#include "tests/definition/trees.h"
#include "tests/golden/trees.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"

#include <climits>
#include <type_traits>

namespace
{
using Indices = std::vector<long>;

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

const wchar_t badIndex[] = L"Measurement index must be >= 0 and < number of measurements.";
const wchar_t sameIndices[] = L"Measurement indices must be different.";

/// A host's predicate that says nothing of its own about equality.
class Always : public tkPredicateFunction
{
public:
    bool outcome(const tkFeaturePattern&) const override { return true; }
    tkPtrHandle<tkPredicateFunction> clone() const override
    {
        return tkPtrHandle<tkPredicateFunction>(new Always(*this));
    }
};

/// A host's variation of a predicate of the library.
class OutOfRange : public tkRangePredicate
{
public:
    using tkRangePredicate::tkRangePredicate;
    bool outcome(const tkFeaturePattern& pattern) const override { return !tkRangePredicate::outcome(pattern); }
};

tkRangePredicate example()
{
    return tkRangePredicate(tkRange(0.0, 10.0), {0, 2});
}

/// The exception's place must be unnamed at every level of a persistent class.
template <class T>
void expectUnknownVersionAt(const std::string& record, std::size_t position, T& target)
{
    std::string damaged = record;
    damaged.at(position) = '\1';
    try
    {
        loadFromBytes(damaged, target);
        ADD_FAILURE() << "no exception for the version byte " << position;
    }
    catch (const tkArchive::UnknownVersion& unknown)
    {
        EXPECT_EQ("", unknown.where()) << position;
        EXPECT_EQ(0, unknown.number()) << position;
    }
}
} // namespace

static_assert(std::is_abstract_v<tkPredicateFunction>);
static_assert(std::is_convertible_v<long, tkComparisonPredicate>);

TEST(tkPredicateFunction, theBaseFindsAllPredicatesEqual)
{
    EXPECT_TRUE(Always().isEqual(tkValidityPredicate()));
    EXPECT_TRUE(Always() == tkValidityPredicate());
    EXPECT_FALSE(Always() != tkValidityPredicate());
}

TEST(tkPredicateFunction, recordOfTheBaseHoldsNoField)
{
    EXPECT_EQ(std::string(2, '\0'), storeToBytes(Always()));
    Always loaded;
    expectUnknownVersionAt(std::string(2, '\0'), 0, loaded);
    expectUnknownVersionAt(std::string(2, '\0'), 1, loaded);
}

TEST(tkPredicateFunction, predicatesOfTwoClassesAreNeverEqual)
{
    const tkRangePredicate range(tkRange::FullRange(), {0, 1});
    const tkValidityPredicate validity({0, 1});
    const tkComparisonPredicate comparison(0, 1);
    const OutOfRange derived(tkRange::FullRange(), Indices{0, 1});
    const std::vector<const tkPredicateFunction*> all = {&range, &validity, &comparison, &derived};
    for (const tkPredicateFunction* a : all)
        for (const tkPredicateFunction* b : all)
        {
            EXPECT_EQ(a == b, a->isEqual(*b));
            EXPECT_EQ(a == b, *a == *b);
            EXPECT_EQ(a != b, *a != *b);
        }
}

TEST(tkPredicateFunction, outcomesAreThoseOfThePlainDefinition)
{
    treeTest::Random random(1);
    int trueOutcomes = 0;
    for (int i = 0; i < 5000; ++i)
    {
        const treeTest::Predicate predicate = random.predicate(true);
        const tkFeaturePattern pattern = random.pattern();
        const bool expected = definition::outcome(*predicate, pattern);
        EXPECT_EQ(expected, predicate->outcome(pattern)) << i;
        EXPECT_EQ(expected, predicate->clone()->outcome(pattern)) << i;
        trueOutcomes += expected;
    }
    EXPECT_GT(trueOutcomes, 1000);
    EXPECT_LT(trueOutcomes, 4000);
}

TEST(tkRangePredicate, withoutArgumentsAsksWhetherMeasurement0IsValid)
{
    const tkRangePredicate predicate;
    EXPECT_TRUE(predicate.range() == tkRange::FullRange());
    EXPECT_EQ(Indices{0}, predicate.indices());
    for (const double value : {0.0, -1e308, -infinity, infinity, notANumber})
        EXPECT_TRUE(predicate.outcome(tkFeaturePattern({value}))) << value;
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({1.0}, {0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern()));
}

TEST(tkRangePredicate, allListedMeasurementsMustBeValidAndInRange)
{
    const tkRangePredicate predicate = example();
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({5.0, -99.0, 11.0})));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({5.0, -99.0, 7.0})));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({0.0, notANumber, 10.0}, {1})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({-0.5, 5.0, 5.0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({5.0, 5.0, 5.0}, {0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({5.0, 5.0, 5.0}, {2})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({5.0, 5.0, notANumber})));
}

TEST(tkRangePredicate, measurementBeyondTheEndIsFalseWithoutAnError)
{
    EXPECT_FALSE(example().outcome(tkFeaturePattern({5.0, 5.0})));
    EXPECT_FALSE(example().outcome(tkFeaturePattern()));
    EXPECT_FALSE(
        tkRangePredicate(tkRange::FullRange(), {std::numeric_limits<long>::max()}).outcome(tkFeaturePattern({1.0})));
}

TEST(tkRangePredicate, emptyListIsTrueForEveryPatternAndRange)
{
    const tkRangePredicate predicate(tkRange(2.0, 1.0), {});
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern()));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({1.0}, {0})));
}

TEST(tkRangePredicate, refusesANegativeIndexWhereverItStands)
{
    for (const Indices& indices : {Indices{-1}, Indices{3, 0, -2}, Indices{std::numeric_limits<long>::min(), 0}})
        EXPECT_TK_THROW(tkRangePredicate(tkRange(0.0, 1.0), indices), tkClassifierDefs::BadIndex, badIndex);
}

TEST(tkRangePredicate, equalOnesHaveTheRangeAndTheIndicesInOrder)
{
    EXPECT_TRUE(example() == example());
    EXPECT_FALSE(example() != example());
    EXPECT_TRUE(example() != tkRangePredicate(tkRange(0.0, 10.0), {2, 0}));
    EXPECT_TRUE(example() != tkRangePredicate(tkRange(0.0, 10.0), {0, 2, 2}));
    EXPECT_TRUE(example() != tkRangePredicate(tkRange(0.0, 10.0), {}));
    EXPECT_TRUE(example() != tkRangePredicate(tkRange(0.0, 11.0), {0, 2}));
    EXPECT_TRUE(example() != tkRangePredicate(tkRange(-1.0, 10.0), {0, 2}));
    const tkRangePredicate withNaN(tkRange(0.0, notANumber), {0});
    EXPECT_TRUE(withNaN != withNaN);
}

TEST(tkRangePredicate, copiesAndClonesAreEqualAndIndependent)
{
    const tkPtrHandle<tkRangePredicate> original(new tkRangePredicate(example()));
    const tkPtrHandle<tkPredicateFunction> clone = original->clone();
    EXPECT_NE(static_cast<tkPredicateFunction*>(original.get()), clone.get());
    EXPECT_EQ(1, clone->referenceCount());
    EXPECT_TRUE(*clone == *original);

    tkRangePredicate copy(*original);
    EXPECT_EQ(0, copy.referenceCount());
    EXPECT_TRUE(copy == *original);
    *original = tkRangePredicate(tkRange(1.0, 2.0), {5});
    EXPECT_EQ(1, original->referenceCount());
    EXPECT_TRUE(copy == example());
    EXPECT_TRUE(*clone == example());
    EXPECT_TRUE(*original == tkRangePredicate(tkRange(1.0, 2.0), {5}));
    copy = *&copy;
    EXPECT_TRUE(copy == example());
}

TEST(tkRangePredicate, assignmentWithoutMemoryChangesNothing)
{
    const tkRangePredicate other(tkRange(3.0, 4.0), Indices(100, 1));
    expectUnchangedWithoutMemory(example(), [&](tkRangePredicate& predicate) { predicate = other; });
}

TEST(tkRangePredicate, recordHasFixedBytesAndComesBackEqual)
{
    const std::string record = literalBytes("\0\0\0"
                                            "\0\0\0\0\0\0\0\0\0"
                                            "\0\0\0\0\0\0\x24\x40"
                                            "\0\2\0\0\0\0\0\0\0\2\0\0\0");
    EXPECT_EQ(record, storeToBytes(example()));
    tkRangePredicate loaded(tkRange(5.0, 6.0), {7, 8, 9});
    loadFromBytes(record, loaded);
    EXPECT_TRUE(loaded == example());
    for (const std::size_t level : {0, 1, 2, 20})
        expectUnknownVersionAt(record, level, loaded);
    tkRangePredicate unchanged;
    for (const std::size_t level : {0, 1, 2})
    {
        expectUnknownVersionAt(record, level, unchanged);
        EXPECT_TRUE(unchanged == tkRangePredicate()) << level;
    }
    std::string rangeOfLaterVersion = record;
    rangeOfLaterVersion[3] = '\1';
    EXPECT_TK_THROW(loadFromBytes(rangeOfLaterVersion, loaded), tkArchive::UnknownVersion,
                    L"A record has an unknown version (tkRange, 0)");
}

TEST(tkRangePredicate, negativeLoadedIndexIsRefusedByThePatternWhenItIsUsed)
{
    std::string record = storeToBytes(tkRangePredicate(tkRange::FullRange(), {1}));
    record.replace(record.size() - 4, 4, 4, '\xFF');
    tkRangePredicate loaded;
    loadFromBytes(record, loaded);
    EXPECT_EQ(Indices{-1}, loaded.indices());
    EXPECT_TK_THROW(loaded.outcome(tkFeaturePattern({1.0})), tkClassifierDefs::BadIndex,
                    L"Feature measurement indices must be >= 0");
}

#if LONG_MAX > 2147483647 // otherwise there is no such index
TEST(tkRangePredicate, indexThatAnArchiveCannotHoldIsNotStored)
{
    EXPECT_THROW(storeToBytes(tkRangePredicate(tkRange::FullRange(), {2147483648L})), tkArchive::Errors);
}
#endif

TEST(tkRangePredicate, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkRangePredicate.v0.bin");
    tkPtrHandle_const<tkPredicateFunction> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(*loaded == golden::rangePredicate());
    EXPECT_EQ(bytes, storeToBytes(loaded));
}

TEST(tkValidityPredicate, withoutArgumentsAsksForMeasurement0)
{
    EXPECT_EQ(Indices{0}, tkValidityPredicate().indices());
    EXPECT_TRUE(tkValidityPredicate().outcome(tkFeaturePattern({notANumber})));
    EXPECT_FALSE(tkValidityPredicate().outcome(tkFeaturePattern({1.0}, {0})));
    EXPECT_FALSE(tkValidityPredicate().outcome(tkFeaturePattern()));
}

TEST(tkValidityPredicate, allListedMeasurementsMustBeValid)
{
    const tkValidityPredicate predicate({1, 2});
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({1.0, 2.0, 3.0}, {0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({1.0, 2.0, 3.0}, {1})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({1.0, 2.0, 3.0}, {2})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({1.0, 2.0})));
}

TEST(tkValidityPredicate, emptyListIsTrueEvenForAnEmptyPattern)
{
    const tkValidityPredicate predicate{Indices()};
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern()));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({1.0}, {0})));
}

TEST(tkValidityPredicate, refusesANegativeIndexWhereverItStands)
{
    for (const Indices& indices : {Indices{-1}, Indices{3, 0, -2}, Indices{std::numeric_limits<long>::min(), 0}})
        EXPECT_TK_THROW(tkValidityPredicate{indices}, tkClassifierDefs::BadIndex, badIndex);
}

TEST(tkValidityPredicate, equalOnesHaveTheIndicesInOrder)
{
    EXPECT_TRUE(tkValidityPredicate({0, 1}) == tkValidityPredicate({0, 1}));
    EXPECT_TRUE(tkValidityPredicate({0, 1}) != tkValidityPredicate({1, 0}));
    EXPECT_TRUE(tkValidityPredicate({0, 1}) != tkValidityPredicate({0, 1, 1}));
    EXPECT_TRUE(tkValidityPredicate({0, 1}) != tkValidityPredicate(Indices()));
}

TEST(tkValidityPredicate, copiesAndClonesAreEqualAndIndependent)
{
    tkValidityPredicate original({0, 4});
    const tkPtrHandle<tkPredicateFunction> clone = original.clone();
    const tkValidityPredicate copy(original);
    original = tkValidityPredicate({9});
    EXPECT_TRUE(*clone == tkValidityPredicate({0, 4}));
    EXPECT_TRUE(copy == tkValidityPredicate({0, 4}));
    EXPECT_TRUE(original == tkValidityPredicate({9}));
}

TEST(tkValidityPredicate, recordHasFixedBytesAndComesBackEqual)
{
    const std::string record = literalBytes("\0\0\0"
                                            "\0\2\0\0\0\0\0\0\0\2\0\0\0");
    EXPECT_EQ(record, storeToBytes(tkValidityPredicate({0, 2})));
    tkValidityPredicate loaded({7, 8, 9});
    loadFromBytes(record, loaded);
    EXPECT_TRUE(loaded == tkValidityPredicate({0, 2}));
    for (const std::size_t level : {0, 1, 2, 3})
        expectUnknownVersionAt(record, level, loaded);
}

TEST(tkValidityPredicate, negativeLoadedIndexIsRefusedByThePatternWhenItIsUsed)
{
    std::string record = storeToBytes(tkValidityPredicate({1}));
    record.replace(record.size() - 4, 4, 4, '\xFF');
    tkValidityPredicate loaded;
    loadFromBytes(record, loaded);
    EXPECT_TK_THROW(loaded.outcome(tkFeaturePattern({1.0})), tkClassifierDefs::BadIndex,
                    L"Feature measurement indices must be >= 0");
}

TEST(tkValidityPredicate, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkValidityPredicate.v0.bin");
    tkPtrHandle_const<tkPredicateFunction> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(*loaded == golden::validityPredicate());
    EXPECT_EQ(bytes, storeToBytes(loaded));
}

TEST(tkComparisonPredicate, asksWhetherTheFirstMeasurementIsStrictlyGreater)
{
    EXPECT_EQ(0, tkComparisonPredicate().index1());
    EXPECT_EQ(1, tkComparisonPredicate().index2());
    EXPECT_EQ(5, tkComparisonPredicate(5).index1());
    const tkComparisonPredicate predicate(0, 1);
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({3.0, 3.0})));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({4.0, 3.0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({2.0, 3.0})));
    EXPECT_TRUE(tkComparisonPredicate(2, 0).outcome(tkFeaturePattern({1.0, 9.0, 1.5})));
}

TEST(tkComparisonPredicate, bothMeasurementsMustBeValidAndNumbers)
{
    const tkComparisonPredicate predicate(0, 1);
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({4.0, 3.0}, {1})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({4.0, 3.0}, {0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({4.0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern()));
    EXPECT_FALSE(tkComparisonPredicate(1, 0).outcome(tkFeaturePattern({4.0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({notANumber, 3.0})));
    EXPECT_FALSE(predicate.outcome(tkFeaturePattern({3.0, notANumber})));
    EXPECT_TRUE(predicate.outcome(tkFeaturePattern({infinity, -infinity})));
}

TEST(tkComparisonPredicate, refusesEqualIndicesBeforeNegativeOnes)
{
    EXPECT_TK_THROW(tkComparisonPredicate(2, 2), tkClassifierDefs::BadParams, sameIndices);
    EXPECT_TK_THROW(tkComparisonPredicate(-1, -1), tkClassifierDefs::BadParams, sameIndices);
    EXPECT_TK_THROW(tkComparisonPredicate(1), tkClassifierDefs::BadParams, sameIndices);
    EXPECT_TK_THROW(tkComparisonPredicate(-1, 0), tkClassifierDefs::BadIndex, badIndex);
    EXPECT_TK_THROW(tkComparisonPredicate(0, -1), tkClassifierDefs::BadIndex, badIndex);
    EXPECT_TK_THROW(tkComparisonPredicate(-2, -1), tkClassifierDefs::BadIndex, badIndex);
}

TEST(tkComparisonPredicate, swappedIndicesAreAnotherPredicate)
{
    EXPECT_TRUE(tkComparisonPredicate(3, 4) == tkComparisonPredicate(3, 4));
    EXPECT_TRUE(tkComparisonPredicate(3, 4) != tkComparisonPredicate(4, 3));
    EXPECT_TRUE(tkComparisonPredicate(3, 4) != tkComparisonPredicate(3, 5));
    EXPECT_TRUE(tkComparisonPredicate(3, 4) != tkComparisonPredicate(2, 4));
}

TEST(tkComparisonPredicate, copiesAndClonesAreEqualAndIndependent)
{
    tkComparisonPredicate original(3, 4);
    const tkPtrHandle<tkPredicateFunction> clone = original.clone();
    const tkComparisonPredicate copy(original);
    original = tkComparisonPredicate();
    EXPECT_TRUE(*clone == tkComparisonPredicate(3, 4));
    EXPECT_TRUE(copy == tkComparisonPredicate(3, 4));
    EXPECT_TRUE(original == tkComparisonPredicate(0, 1));
}

TEST(tkComparisonPredicate, recordHasFixedBytesAndComesBackEqual)
{
    const std::string record = literalBytes("\0\0\0"
                                            "\2\1\0\0\1\0\0\0");
    EXPECT_EQ(record, storeToBytes(tkComparisonPredicate(258, 1)));
    tkComparisonPredicate loaded;
    loadFromBytes(record, loaded);
    EXPECT_TRUE(loaded == tkComparisonPredicate(258, 1));
    for (const std::size_t level : {0, 1, 2})
    {
        tkComparisonPredicate unchanged;
        expectUnknownVersionAt(record, level, unchanged);
        EXPECT_TRUE(unchanged == tkComparisonPredicate()) << level;
    }
}

TEST(tkComparisonPredicate, loadsIndicesUnchecked)
{
    tkComparisonPredicate loaded;
    loadFromBytes(literalBytes("\0\0\0"
                               "\1\0\0\0\1\0\0\0"),
                  loaded);
    EXPECT_FALSE(loaded.outcome(tkFeaturePattern({1.0, 2.0})));
    loadFromBytes(literalBytes("\0\0\0"
                               "\0\0\0\0\xFF\xFF\xFF\xFF"),
                  loaded);
    EXPECT_EQ(-1, loaded.index2());
    EXPECT_TK_THROW(loaded.outcome(tkFeaturePattern({1.0, 2.0})), tkClassifierDefs::BadIndex,
                    L"Feature measurement indices must be >= 0");
}

TEST(tkComparisonPredicate, goldenArchiveComesBackEqualAndStoresToTheSameBytes)
{
    const std::string bytes = goldenBytes("tkComparisonPredicate.v0.bin");
    tkPtrHandle_const<tkPredicateFunction> loaded;
    loadFromBytes(bytes, loaded);
    EXPECT_TRUE(*loaded == golden::comparisonPredicate());
    EXPECT_EQ(bytes, storeToBytes(loaded));
}

TEST(tkPredicateFunction, sharedPredicateIsStoredOnceAndComesBackShared)
{
    std::vector<treeTest::Predicate> stored = {treeTest::range(0.0, 1.0, {1}),
                                               treeTest::Predicate(new tkValidityPredicate), treeTest::Predicate()};
    stored.push_back(stored[0]);
    std::vector<treeTest::Predicate> loaded;
    loadFromBytes(storeToBytes(stored), loaded);
    ASSERT_EQ(4u, loaded.size());
    EXPECT_EQ(loaded[0].get(), loaded[3].get());
    EXPECT_TRUE(*loaded[0] == *stored[0]);
    EXPECT_TRUE(*loaded[1] == *stored[1]);
    EXPECT_TRUE(loaded[2].isNull());
}

TEST(tkPredicateFunction, aPredicateOfADerivedClassEqualsNoneOfItsBase)
{
    class DerivedValidity : public tkValidityPredicate
    {
    };
    class DerivedComparison : public tkComparisonPredicate
    {
    };
    EXPECT_FALSE(tkValidityPredicate() == DerivedValidity());
    EXPECT_FALSE(DerivedValidity() == tkValidityPredicate());
    EXPECT_FALSE(tkComparisonPredicate() == DerivedComparison());
    EXPECT_FALSE(DerivedComparison() == tkComparisonPredicate());
}
