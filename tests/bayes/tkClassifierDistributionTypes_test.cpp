#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace
{
using Types = tkClassifierDistributionTypes;
using Set = std::vector<long>;

constexpr wchar_t badCategory[] = L"Cateogory labels must be >= 0";
constexpr wchar_t badIndex[] = L"Feature measurement indices must be >= 0";
constexpr wchar_t inSet[] =
    L"Cannot override distribution type of a feature measurement that is already part of a dependency set.";
constexpr wchar_t differentTypes[] = L"The distribution types of dependent feature measurements must be the same.";

/// The sets of one category, in order.
std::vector<Set> setsOf(const Types& types, long category)
{
    std::vector<Set> sets;
    for (long s = 0; s < types.numDependencySets(); ++s)
        if (types.dependencySetCategory(s) == category)
            sets.push_back(types.dependencySet(s));
    return sets;
}

/// Dependency sets kept as the definition words them, step by step.
struct PlainSets
{
    std::vector<long> categories;
    std::vector<Set> sets;

    void setDependent(long category, const Set& indices)
    {
        Set remaining;
        for (const long index : indices)
            if (std::count(remaining.begin(), remaining.end(), index) == 0)
                remaining.push_back(index);
        if (remaining.empty())
            return;
        const std::size_t n = sets.size();
        std::vector<bool> marked(n, false);
        for (std::size_t s = 0; s < n; ++s)
        {
            if (categories[s] != category)
                continue;
            std::size_t position = 0;
            while (position < remaining.size())
            {
                if (std::count(sets[s].begin(), sets[s].end(), remaining[position]) > 0)
                {
                    remaining[position] = remaining[remaining.size() - 1];
                    remaining.resize(remaining.size() - 1);
                    marked[s] = true;
                }
                else
                    position = position + 1;
            }
        }
        const auto numMarked = static_cast<std::size_t>(std::count(marked.begin(), marked.end(), true));
        if (numMarked == 0)
        {
            categories.push_back(category);
            sets.push_back(remaining);
            return;
        }
        std::vector<long> newCategories(n - (numMarked - 1));
        std::vector<Set> newSets(n - (numMarked - 1));
        const auto f = static_cast<std::size_t>(std::find(marked.begin(), marked.end(), true) - marked.begin());
        std::size_t next = 0;
        for (std::size_t s = 0; s < n; ++s)
            if (!marked[s] || s == f)
            {
                newCategories[next] = categories[s];
                newSets[next] = sets[s];
                if (s == f)
                    newSets[next].insert(newSets[next].end(), remaining.begin(), remaining.end());
                next = next + 1;
            }
        for (std::size_t s = f + 1; s < n; ++s)
            if (marked[s])
                newSets[f].insert(newSets[f].end(), sets[s].begin(), sets[s].end()); // no place before f was left out
        categories = newCategories;
        sets = newSets;
    }
};
} // namespace

TEST(tkClassifierDistributionTypes, enumeratorsHaveTheirStoredValues)
{
    EXPECT_EQ(0, Types::eNormal);
    EXPECT_EQ(1, Types::eBinomial);
    EXPECT_EQ(2, Types::ePoisson);
    EXPECT_EQ(3, Types::eUniform);
}

TEST(tkClassifierDistributionTypes, newObjectHasTheDefaultEverywhere)
{
    Types types(Types::eBinomial);
    EXPECT_EQ(Types::eBinomial, types.defaultDistributionType());
    EXPECT_EQ(Types::eBinomial, types.distributionType(0, 0));
    EXPECT_EQ(Types::eBinomial, types.distributionType(2147483647, 2147483647));
    EXPECT_EQ(0, types.numDependencySets());
}

TEST(tkClassifierDistributionTypes, defaultSetterChangesNothingElse)
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(1, 2, Types::eBinomial);
    types.setDependent(1, {4, 5});
    types.defaultDistributionType(Types::eUniform);
    EXPECT_EQ(Types::eBinomial, types.distributionType(1, 2));
    EXPECT_EQ(Types::eUniform, types.distributionType(1, 4));
    EXPECT_TRUE(types.isDependent(1, {4, 5}));
}

TEST(tkClassifierDistributionTypes, overrideOfTheDefaultTypeReturnsBeforeAnythingElse)
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(3, 1, Types::eBinomial);
    types.setDependent(3, {5});
    const Types before(types);
    types.distributionTypeOverride(3, 1, Types::eNormal); // the other type stays in force
    EXPECT_EQ(Types::eBinomial, types.distributionType(3, 1));
    types.distributionTypeOverride(-1, 0, Types::eNormal);
    types.distributionTypeOverride(0, -1, Types::eNormal);
    types.distributionTypeOverride(3, 5, Types::eNormal);
    EXPECT_TRUE(types == before);
}

TEST(tkClassifierDistributionTypes, overrideChecksTheSetsThenCategoryThenIndex)
{
    Types types(Types::eNormal);
    types.setDependent(3, {5, 6});
    const Types before(types);
    EXPECT_TK_THROW(types.distributionTypeOverride(3, 6, Types::eBinomial), tkClassifierDefs::BadParams, inSet);
    EXPECT_TK_THROW(types.distributionTypeOverride(-1, -1, Types::eBinomial), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_TK_THROW(types.distributionTypeOverride(0, -1, Types::eBinomial), tkClassifierDefs::BadIndex, badIndex);
    EXPECT_TRUE(types == before);
    types.distributionTypeOverride(2, 6, Types::eBinomial); // the set belongs to another category
    EXPECT_EQ(Types::eBinomial, types.distributionType(2, 6));

    // A stored set may belong to a negative category: the conflict is found before the label is looked at.
    std::string bytes("\0\0\0\0\0"
                      "\0\0\0\0\0"
                      "\0\0\0\0\0"
                      "\0\0\0\0\0",
                      20);
    bytes += std::string("\0\x01\0\0\0\xFF\xFF\xFF\xFF", 9);              // one set, of category -1
    bytes += std::string("\0\x01\0\0\0\0\x01\0\0\0\xFF\xFF\xFF\xFF", 14); // that holds the index -1
    loadFromBytes(bytes, types);
    EXPECT_TK_THROW(types.distributionTypeOverride(-1, -1, Types::eBinomial), tkClassifierDefs::BadParams, inSet);
}

TEST(tkClassifierDistributionTypes, overrideIsReplacedInPlace)
{
    Types once(Types::eNormal), twice(Types::eNormal);
    once.distributionTypeOverride(1, 0, Types::eUniform);
    once.distributionTypeOverride(2, 0, Types::eBinomial);
    twice.distributionTypeOverride(1, 0, Types::ePoisson);
    twice.distributionTypeOverride(2, 0, Types::eBinomial);
    EXPECT_TRUE(once != twice);
    twice.distributionTypeOverride(1, 0, Types::eUniform);
    EXPECT_TRUE(once == twice);
}

TEST(tkClassifierDistributionTypes, lookUpChecksCategoryThenIndex)
{
    const Types types(Types::eNormal);
    EXPECT_TK_THROW(types.distributionType(-1, -1), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_TK_THROW(types.distributionType(0, -1), tkClassifierDefs::BadIndex, badIndex);
}

TEST(tkClassifierDistributionTypes, clearingTheOverridesKeepsTheSets)
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(1, 0, Types::eBinomial);
    types.setDependent(1, {2, 3});
    types.clearDistributionOverrides();
    EXPECT_EQ(Types::eNormal, types.distributionType(1, 0));
    EXPECT_TRUE(types.isDependent(1, {3, 2}));
}

TEST(tkClassifierDistributionTypes, setDependentChecksCategoryThenIndicesThenTypes)
{
    Types types(Types::eNormal);
    types.distributionTypeOverride(1, 0, Types::eBinomial);
    types.setDependent(1, {4, 5});
    const Types before(types);
    EXPECT_TK_THROW(types.setDependent(-1, {-1}), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_TK_THROW(types.setDependent(-1, {}), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_TK_THROW(types.setDependent(1, {0, 4, -1}), tkClassifierDefs::BadIndex, badIndex);
    EXPECT_TK_THROW(types.setDependent(1, {0, 4}), tkClassifierDefs::BadParams, differentTypes);
    EXPECT_TK_THROW(types.setDependent(1, {4, 0}), tkClassifierDefs::BadParams, differentTypes);
    EXPECT_TRUE(types == before);
}

TEST(tkClassifierDistributionTypes, emptyListsChangeNothingAndRepeatedIndicesCountOnce)
{
    Types types(Types::eNormal);
    types.setDependent(2, {});
    EXPECT_EQ(0, types.numDependencySets());
    types.setDependent(2, {5, 5});
    types.setDependent(2, {9, 7, 9, 8, 7});
    EXPECT_EQ((std::vector<Set>{{5}, {9, 7, 8}}), setsOf(types, 2));
}

TEST(tkClassifierDistributionTypes, setsThatAreTouchedBecomeOne)
{
    Types types(Types::eNormal);
    types.setDependent(2, {0, 1});
    types.setDependent(3, {1, 2});
    types.setDependent(2, {4, 5});
    types.setDependent(2, {1, 7, 4});
    EXPECT_EQ((std::vector<Set>{{0, 1, 7, 4, 5}}), setsOf(types, 2));
    EXPECT_EQ((std::vector<Set>{{1, 2}}), setsOf(types, 3));
    EXPECT_EQ(2, types.dependencySetCategory(0));
    EXPECT_EQ(3, types.dependencySetCategory(1));
}

TEST(tkClassifierDistributionTypes, newIndicesOfAMergedSetStandInTheirPermutedOrder)
{
    Types types(Types::eNormal);
    types.setDependent(0, {1, 2});
    types.setDependent(0, {1, 10, 11, 12}); // 12 takes the place of 1
    EXPECT_EQ((std::vector<Set>{{1, 2, 12, 10, 11}}), setsOf(types, 0));
}

TEST(tkClassifierDistributionTypes, mergesAsTheDefinitionUnderRandomCalls)
{
    std::mt19937 random(17);
    for (int round = 0; round < 4000; ++round)
    {
        Types types(Types::eNormal);
        PlainSets plain;
        for (int call = 0; call < 12; ++call)
        {
            const long category = static_cast<long>(random() % 3);
            Set indices(random() % 5);
            for (long& index : indices)
                index = static_cast<long>(random() % 12);
            types.setDependent(category, indices);
            plain.setDependent(category, indices);
            ASSERT_EQ(static_cast<long>(plain.sets.size()), types.numDependencySets());
            for (long s = 0; s < types.numDependencySets(); ++s)
            {
                ASSERT_EQ(plain.categories[static_cast<std::size_t>(s)], types.dependencySetCategory(s));
                ASSERT_EQ(plain.sets[static_cast<std::size_t>(s)], types.dependencySet(s));
            }
            for (long c = 0; c < 3; ++c)
            {
                std::set<long> seen;
                for (const Set& set : setsOf(types, c))
                    for (const long index : set)
                        ASSERT_TRUE(seen.insert(index).second) << "sets of a category are disjoint";
            }
        }
    }
}

TEST(tkClassifierDistributionTypes, isDependentChecksCategoryThenEmptinessThenIndices)
{
    Types types(Types::eNormal);
    types.setDependent(2, {1, 3});
    types.setDependent(2, {4, 5});
    types.setDependent(7, {1, 4});
    EXPECT_TK_THROW(types.isDependent(-1, {}), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_TK_THROW(types.isDependent(-1, {-1}), tkClassifierDefs::BadLabel, badCategory);
    EXPECT_FALSE(types.isDependent(2, {}));
    EXPECT_TK_THROW(types.isDependent(2, {9, -1}), tkClassifierDefs::BadIndex, badIndex);
    EXPECT_TRUE(types.isDependent(2, {3}));
    EXPECT_TRUE(types.isDependent(2, {3, 1, 3}));
    EXPECT_FALSE(types.isDependent(2, {1, 4}));
    EXPECT_FALSE(types.isDependent(2, {9}));
    EXPECT_FALSE(types.isDependent(2, {1, 9}));
    EXPECT_TRUE(types.isDependent(7, {4, 1}));
    EXPECT_FALSE(types.isDependent(8, {1}));
}

TEST(tkClassifierDistributionTypes, equalityDependsOnTheOrderOfOverridesAndSets)
{
    Types a(Types::eNormal), b(Types::eNormal);
    a.distributionTypeOverride(1, 0, Types::eBinomial);
    a.distributionTypeOverride(2, 0, Types::eBinomial);
    b.distributionTypeOverride(2, 0, Types::eBinomial);
    b.distributionTypeOverride(1, 0, Types::eBinomial);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);
    a.clearDistributionOverrides();
    b.clearDistributionOverrides();
    EXPECT_TRUE(a == b);
    a.setDependent(1, {0, 1});
    EXPECT_FALSE(a == b);
    b.setDependent(1, {1, 0});
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(Types(Types::eNormal) == Types(Types::eBinomial));
}

TEST(tkClassifierDistributionTypes, setsOutOfRangeAreProgrammingErrors)
{
    const Types types(Types::eNormal);
    EXPECT_THROW(types.dependencySet(0), tkAssertionFailure);
    EXPECT_THROW(types.dependencySetCategory(-1), tkAssertionFailure);
}

TEST(tkClassifierDistributionTypes, recordHoldsTheFieldsInOrder)
{
    Types types(Types::eBinomial);
    types.distributionTypeOverride(7, 3, static_cast<Types::DistributionType>(-1));
    types.setDependent(2, {5, 4});
    const std::string expected("\0"                                            // version
                               "\x01\0\0\0"                                    // default type
                               "\0\x01\0\0\0\x07\0\0\0"                        // categories of overrides
                               "\0\x01\0\0\0\x03\0\0\0"                        // their indices
                               "\0\x01\0\0\0\xFF\xFF\xFF\xFF"                  // their types
                               "\0\x01\0\0\0\x02\0\0\0"                        // categories of sets
                               "\0\x01\0\0\0\0\x02\0\0\0\x05\0\0\0\x04\0\0\0", // the sets
                               59);
    EXPECT_EQ(expected, storeToBytes(types));
    Types loaded(Types::eNormal);
    loadFromBytes(expected, loaded);
    EXPECT_TRUE(loaded == types);
    EXPECT_EQ(-1, static_cast<int>(loaded.distributionType(7, 3))); // unknown types are data
}

TEST(tkClassifierDistributionTypes, recordOfAnotherVersionIsRefused)
{
    std::string bytes = storeToBytes(Types(Types::eNormal));
    bytes[0] = 1;
    Types loaded(Types::eBinomial);
    try
    {
        loadFromBytes(bytes, loaded);
        FAIL() << "version 1 was accepted";
    }
    catch (const tkArchive::UnknownVersion& error)
    {
        EXPECT_STREQ("clss/clastool/bayes", error.where().c_str());
        EXPECT_EQ(262, error.number());
    }
    EXPECT_TRUE(loaded == Types(Types::eBinomial)); // before any field is read
}

TEST(tkClassifierDistributionTypes, recordWhoseVectorsDifferInLengthIsRefused)
{
    const std::string none("\0\0\0\0\0", 5);
    const std::string one("\0\x01\0\0\0\x01\0\0\0", 9);
    const std::string head("\0\0\0\0\0", 5);
    for (const std::string& bytes : {head + one + none + none + none + none, head + one + one + none + none + none,
                                     head + none + one + none + none + none, head + none + none + one + none + none,
                                     head + none + none + none + one + none})
    {
        Types loaded(Types::eNormal);
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::Errors);
    }
}

TEST(tkClassifierDistributionTypes, aFailedLoadingLeavesVectorsThatBelongTogether)
{
    Types stored(Types::eNormal);
    stored.setDependent(7, {6});
    stored.distributionTypeOverride(7, 8, Types::eUniform);
    const std::string bytes = storeToBytes(stored);
    Types before(Types::eNormal);
    for (const long label : {1L, 2L, 3L})
    {
        before.setDependent(label, {1, 2});
        before.distributionTypeOverride(label, 3, Types::eBinomial);
    }
    for (std::size_t size = 0; size < bytes.size(); ++size)
    {
        Types loaded(before);
        EXPECT_THROW(loadFromBytes(bytes.substr(0, size), loaded), tkArchive::Errors) << size;
        for (long s = 0; s < loaded.numDependencySets(); ++s)
            EXPECT_TRUE(loaded.isDependent(loaded.dependencySetCategory(s), loaded.dependencySet(s))) << size;
        Types again(Types::eNormal);
        loadFromBytes(storeToBytes(loaded), again); // refuses vectors that differ in length
        EXPECT_TRUE(again == loaded) << size;
        EXPECT_EQ(loaded.distributionType(9, 9), loaded.defaultDistributionType()) << size;
    }
}

TEST(tkClassifierDistributionTypes, changesAreWholeOrNotAtAllIfMemoryRunsOut)
{
    Types types(Types::eNormal);
    types.setDependent(1, {0, 1});
    types.distributionTypeOverride(1, 5, Types::eBinomial);
    Types other(types);
    other.setDependent(2, {0, 1, 7});
    other.distributionTypeOverride(1, 9, Types::eBinomial);
    expectUnchangedWithoutMemory(types, [&](Types& t) { t = other; });
    expectUnchangedWithoutMemory(types, [](Types& t) { t.setDependent(1, {1, 2, 3}); });
    expectUnchangedWithoutMemory(types, [](Types& t) { t.setDependent(2, {1, 2}); });
    expectUnchangedWithoutMemory(types, [](Types& t) { t.distributionTypeOverride(1, 6, Types::eUniform); });
}
