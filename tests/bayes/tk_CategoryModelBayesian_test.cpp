#include "clss/clastool/bayes/tk_CategoryModelBayesian.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"
#include "foundation/tkException.h"
#include "numerics/tkNMChangeNumber.h"
#include "tests/bayes/bayesTestData.h"
#include "tests/golden/bayes.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <new>
#include <sstream>
#include <utility>

using namespace bayesTest;

namespace
{
/// The record of a category model of label 3, its densities those of `densities`.
std::string modelRecord(long numMeasurements, Sets sets, Densities densities)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        long label = 3;
        archive || version || version || version || label || numMeasurements || sets || densities;
    }
    return stream.str();
}

Density trainedDensity(tk_ProbabilityDensityFunction* density)
{
    Density handle(density);
    for (const double value : {0.0, 1.0, 1.0})
        handle->updateWithData({tkFeaturePattern({value})});
    return handle;
}
} // namespace

TEST(tk_CategoryModelBayesian, buildsADensityForEachSet)
{
    const tk_CategoryModelBayesian built(4, {{2, 0}, {1}, {9}}, {Types::eNormal, Types::eBinomial, Types::eBinomial},
                                         tkFeaturePattern({5.0, 7.0}));
    EXPECT_EQ(built.categoryLabel(), 4);
    EXPECT_EQ(built.numMeasurements(), 4);
    EXPECT_TRUE(built.densities()[0]->isEquivalent(tk_PDFMultivariateNormal()));
    EXPECT_TRUE(built.densities()[1]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({7.0}))));
    EXPECT_TRUE(built.densities()[2]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({1.0}))));
}

TEST(tk_CategoryModelBayesian, refusesTypesInTheOrderOfTheSets)
{
    const auto unknown = static_cast<Types::DistributionType>(-1);
    EXPECT_TK_THROW(tk_CategoryModelBayesian(0, {{0}, {-1}}, {unknown, Types::eBinomial}, tkFeaturePattern()),
                    tkClassifierDefs::BadParams, L"Unknown distribution type");
    EXPECT_TK_THROW(tk_CategoryModelBayesian(0, {{-1}, {0}}, {Types::eBinomial, unknown}, tkFeaturePattern()),
                    tkClassifierDefs::BadIndex, L"Feature measurement indices must be >= 0");
    EXPECT_THROW(tk_CategoryModelBayesian(0, {{0}}, {}, tkFeaturePattern()), tkAssertionFailure);
}

TEST(tk_CategoryModelBayesian, scoresTheSumInSetOrderAndNamesTheCategory)
{
    tk_CategoryModelBayesian built(3, {{1, 0}, {2}}, {Types::eNormal, Types::eNormal}, tkFeaturePattern());
    EXPECT_TK_THROW(built.matchScore(tkFeaturePattern({1.0, 2.0, 3.0})), tkClassifierDefs::InsufficientTrainData,
                    L"No valid data has been used to train the distribution for category 3");
    for (const std::vector<double>& row : Rows{{1, 2, 3}, {2, 2, 5}, {4, 1, 1}, {0, 0, 2}})
        built.adapt(tkFeaturePattern(row));
    const tkFeaturePattern pattern({1.0, 1.0, 1.0}, {1});
    double sum = 0.0;
    for (std::size_t i = 0; i < 2; ++i)
        sum += built.densities()[i]->logValue(
            tk_ProbabilityDensityFunction::restriction(pattern, built.dependencySets()[i]));
    EXPECT_EQ(built.matchScore(pattern), sum);
}

TEST(tk_CategoryModelBayesian, copiesShareTheirDensitiesAndRecordsKeepThem)
{
    tk_CategoryModelBayesian built(3, {{0}, {1}}, {Types::eNormal, Types::eBinomial}, tkFeaturePattern({1.0, 4.0}));
    const tk_CategoryModelBayesian copy(built);
    built.adapt(tkFeaturePattern({1.0, 2.0}));
    built.adapt(tkFeaturePattern({2.0, 4.0}));
    EXPECT_EQ(copy.densities()[0].get(), built.densities()[0].get());
    EXPECT_TRUE(copy == built);
    tk_CategoryModelBayesian loaded;
    loadFromBytes(storeToBytes(built), loaded);
    EXPECT_TRUE(loaded == built);
    EXPECT_EQ(loaded.dependencySets(), built.dependencySets());
    loaded.adapt(tkFeaturePattern({3.0, 1.0}));
    EXPECT_FALSE(loaded == built);
    for (const std::size_t level : {0u, 1u, 2u})
    {
        std::string bytes = storeToBytes(built);
        bytes[level] = 1;
        EXPECT_THROW(loadFromBytes(bytes, loaded), tkArchive::UnknownVersion);
    }
}

TEST(tk_CategoryModelBayesian, equalityComparesDensitiesAndNotSets)
{
    const auto build = [](long label, std::vector<std::vector<long>> sets)
    {
        return tk_CategoryModelBayesian(label, sets, std::vector<Types::DistributionType>(sets.size(), Types::eNormal),
                                        tkFeaturePattern());
    };
    EXPECT_TRUE(build(1, {{0}, {1}}) == build(1, {{7}, {5}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(2, {{0}, {1}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(1, {{0}}));
    EXPECT_FALSE(build(1, {{0}, {1}}) == build(1, {{0, 1}}));
}

TEST(tk_CategoryModelBayesian, assignmentIsWholeOrNotAtAll)
{
    const tk_CategoryModelBayesian other(1, {{0}, {1}, {2}}, {Types::eNormal, Types::eNormal, Types::eNormal},
                                         tkFeaturePattern());
    const tk_CategoryModelBayesian before = golden::categoryModel();
    bool failed = true;
    std::size_t allowed = 0;
    for (; failed; ++allowed)
    {
        tk_CategoryModelBayesian assigned(before);
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                assigned = other;
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        EXPECT_TRUE(assigned == (failed ? before : other));
        EXPECT_EQ(assigned.dependencySets(), (failed ? before : other).dependencySets()); // which == does not compare
    }
    EXPECT_GT(allowed, 3u);
}

TEST(tk_CategoryModelBayesian, itsNumberGrowsWithItsDensitiesAndGoesWithThem)
{
    using Model = tk_CategoryModelBayesian;
    const auto build = [] { return Model(2, {{0}, {1}}, {Types::eNormal, Types::eNormal}, tkFeaturePattern()); };
    Model model = build();
    const tkPtrHandle<tkNMChangeNumber> number = model.changeNumber();
    ASSERT_FALSE(number.isNull());
    EXPECT_NE(build().changeNumber().get(), number.get());
    EXPECT_TRUE(Model().changeNumber().isNull());

    std::uint64_t noted = number->value();
    const auto hasGrown = [&] { return std::exchange(noted, number->value()) != noted; };
    EXPECT_TRUE(model == Model(model));
    EXPECT_FALSE(hasGrown());
    model.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_TRUE(hasGrown());
    Model copy(model); // of the same densities
    EXPECT_EQ(copy.changeNumber().get(), number.get());
    copy.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_TRUE(hasGrown());
    model.densities()[1]->clear();
    EXPECT_TRUE(hasGrown());

    copy = build();
    EXPECT_NE(copy.changeNumber().get(), number.get());
    loadFromBytes(storeToBytes(build()), model);
    EXPECT_NE(model.changeNumber().get(), number.get());
    model.adapt(tkFeaturePattern({1.0, 2.0}));
    EXPECT_FALSE(hasGrown());
}

TEST(tk_CategoryModelBayesian, densitiesBeforeTheOneThatRefusesHaveLearned)
{
    tk_CategoryModelBayesian built(3, {{0}, {1}, {2}}, {Types::eNormal, Types::eBinomial, Types::eNormal},
                                   tkFeaturePattern({0.0, 4.0}));
    EXPECT_TK_THROW(built.adapt(tkFeaturePattern({1.0, 5.0, 2.0})), tkClassifierDefs::BadParams,
                    L"Train data measurement cannot exceed its maximum value when using binomial distribution");
    tk_PDFMultivariateNormal learned;
    learned.updateWithData({tkFeaturePattern({1.0})});
    EXPECT_TRUE(built.densities()[0]->isEquivalent(learned));
    EXPECT_TRUE(built.densities()[1]->isEquivalent(tk_PDFBinomial(tkFeaturePattern({4.0}))));
    EXPECT_TRUE(built.densities()[2]->isEquivalent(tk_PDFMultivariateNormal()));
}

TEST(tk_CategoryModelBayesian, recordsWhoseSetsDoNotFitAreRefusedAndLeaveNoDensity)
{
    const Density normal = trainedDensity(new tk_PDFMultivariateNormal);
    const auto refuses = [](const std::string& record, const wchar_t* text)
    {
        tk_CategoryModelBayesian loaded = golden::categoryModel();
        EXPECT_TK_THROW(loadFromBytes(record, loaded), tkArchive::Errors, text);
        EXPECT_TRUE(loaded.densities().empty());
        EXPECT_TRUE(loaded.dependencySets().empty());
    };
    refuses(modelRecord(1, {{0}}, {}),
            L"A stored category model has not one density for each dependency set (reading, at byte 30)");
    refuses(modelRecord(0, {}, {normal}),
            L"A stored category model has not one density for each dependency set (reading, at byte 126)");
    // Before the number of measurements.
    refuses(modelRecord(7, {{0}}, {Density()}),
            L"A stored category model has not one density for each dependency set (reading, at byte 34)");
    for (const long numMeasurements : {-1L, 0L, 2L, 2147483647L})
        refuses(modelRecord(numMeasurements, {{0}}, {normal}),
                L"A stored category model has another number of measurements than its dependency sets (reading, at "
                L"byte 135)");

    tk_CategoryModelBayesian loaded;
    loadFromBytes(modelRecord(1, {{0}}, {normal}), loaded);
    EXPECT_EQ(loaded.densities().size(), 1u);
}

TEST(tk_CategoryModelBayesian, anArchiveThatEndsEarlyLeavesAsManySetsAsDensities)
{
    const std::string record = modelRecord(1, {{0}}, {trainedDensity(new tk_PDFMultivariateNormal)});
    for (std::size_t size = 0; size < record.size(); ++size)
    {
        tk_CategoryModelBayesian loaded = golden::categoryModel();
        EXPECT_THROW(loadFromBytes(record.substr(0, size), loaded), tkArchive::Errors) << size;
        EXPECT_EQ(loaded.dependencySets().size(), loaded.densities().size()) << size;
    }
}

TEST(tk_CategoryModelBayesian, storedSetsOfAnyIndicesHaveTheirErrors)
{
    const auto load = [](const std::vector<long>& set, const Density& density)
    {
        tk_CategoryModelBayesian loaded;
        loadFromBytes(modelRecord(static_cast<long>(set.size()), {set}, {density}), loaded);
        return loaded;
    };
    const Density normal = trainedDensity(new tk_PDFMultivariateNormal);
    const Density binomial = trainedDensity(new tk_PDFBinomial(tkFeaturePattern({1.0})));
    const Density untrained(new tk_PDFBinomial(tkFeaturePattern({1.0})));
    const tkFeaturePattern pattern({1.0, 1.0});
    const wchar_t badIndex[] = L"Feature measurement indices must be >= 0";
    for (const Density& density : {normal, binomial, untrained})
        for (const std::vector<long>& set : Sets{{-1}, {0, -2147483647}})
        {
            tk_CategoryModelBayesian loaded = load(set, density);
            EXPECT_TK_THROW(loaded.matchScore(pattern), tkClassifierDefs::BadIndex, badIndex);
            EXPECT_TK_THROW(loaded.adapt(pattern), tkClassifierDefs::BadIndex, badIndex);
        }
    EXPECT_EQ(load({2147483647}, normal).matchScore(pattern), 0.0); // beyond the end: invalid
    EXPECT_EQ(load({2147483647}, binomial).matchScore(pattern), 0.0);
    EXPECT_THROW(load({0, 1}, normal).matchScore(pattern), tkFailure);
    EXPECT_THROW(load({}, normal).matchScore(pattern), tkFailure);
    EXPECT_THROW(load({}, binomial).matchScore(pattern), tkClassifierDefs::NotImplemented);
    EXPECT_THROW(load({}, binomial).adapt(pattern), tkClassifierDefs::NotImplemented);
}
