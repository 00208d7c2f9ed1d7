#include "clss/model/tk_ClassifierPooled.h"

#include "tests/golden/model.h"
#include "tests/model/poolingTestData.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/model/tkCovariancePooling.h"
#include "foundation/tkArchiveOperators.h"

#include <cstdint>
#include <cstring>

using namespace poolingTest;

TEST(tk_ClassifierPooled, mixesEachCovarianceWithThatWithinTheCategories)
{
    const Data data = wine(7);
    const auto plain = trained<tk_ClassifierBayesian>(data, jointParams());
    for (const double amount : {0.25, 1.0})
    {
        const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(jointParams(), amount));
        double degrees = 0.0;
        for (std::size_t m = 0; m < 3; ++m)
            degrees += static_cast<double>(normalOf(*plain, m, 0).count()) - 1.0;
        for (long i = 0; i < 4; ++i)
            for (long j = 0; j < 4; ++j)
            {
                double within = 0.0;
                for (std::size_t m = 0; m < 3; ++m)
                    within += normalOf(*plain, m, 0).covariance()(i, j) *
                              (static_cast<double>(normalOf(*plain, m, 0).count()) - 1.0) / degrees;
                for (std::size_t m = 0; m < 3; ++m)
                    EXPECT_LT(relative((1.0 - amount) * normalOf(*plain, m, 0).covariance()(i, j) + amount * within,
                                       normalOf(*pooled, m, 0).covariance()(i, j)),
                              1e-12);
            }
        for (std::size_t m = 0; m < 3; ++m)
        {
            EXPECT_EQ(static_cast<long>(degrees) + 1, normalOf(*pooled, m, 0).count());
            EXPECT_TRUE(normalOf(*plain, m, 0).mean() == normalOf(*pooled, m, 0).mean());
        }
    }
}

TEST(tk_ClassifierPooled, amountOfNothingIsAPlainTraining)
{
    const Data data = wine(3);
    tkClassifierTool plain;
    plain.train(data, jointParams());
    tkClassifierTool pooled;
    pooled.train(data, tkCovariancePooling(jointParams(), 0.0));
    for (std::size_t i = 0; i < data.patterns().size(); ++i)
        EXPECT_TRUE(plain.run(*data.patterns()[i]) == pooled.run(*data.patterns()[i])) << i;
}

TEST(tk_ClassifierPooled, dependencySetsAreSharedInWhateverOrderTheyAre)
{
    const Data data = wine(5);
    Types ordered(Types::eNormal);
    Types mixed(Types::eNormal);
    for (const long label : {0L, 1L, 2L})
    {
        ordered.setDependent(label, {0, 1, 2});
        mixed.setDependent(label, label == 1 ? std::vector<long>{2, 0, 1} : std::vector<long>{0, 1, 2});
    }
    tkClassifierTool a;
    a.train(data, tkCovariancePooling(tkClassifierTrainParamsBayesian(ordered), 0.5));
    tkClassifierTool b;
    b.train(data, tkCovariancePooling(tkClassifierTrainParamsBayesian(mixed), 0.5));
    for (const auto& pattern : data.patterns())
    {
        const tkClassifierResult result = a.run(*pattern);
        const tkClassifierResult other = b.run(*pattern);
        for (const long label : {0L, 1L, 2L})
            EXPECT_NEAR(scoreOf(result, label), scoreOf(other, label), 1e-10);
    }
}

TEST(tk_ClassifierPooled, setOfOneCategoryAloneIsLeftAsItIs)
{
    const Data data = wine(5);
    const auto params = jointParams({0}); // 1 and 2 have independent measurements
    const auto plain = trained<tk_ClassifierBayesian>(data, params);
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 0.5));
    EXPECT_TRUE(normalOf(*plain, 0, 0) == normalOf(*pooled, 0, 0));
    for (std::size_t set = 0; set < 4; ++set)
    {
        EXPECT_TRUE(normalOf(*plain, 1, set) != normalOf(*pooled, 1, set));
        EXPECT_TRUE(normalOf(*pooled, 1, set).covariance() != normalOf(*pooled, 2, set).covariance());
    }
}

TEST(tk_ClassifierPooled, categoriesOfOnePatternTakeThePooledCovariance)
{
    Data data = wine(5);
    data.addData({13.0, 2.0, 2.3, 19.0}, 5);
    const auto params = jointParams({0, 1, 2, 5});
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 1.0));
    for (long i = 0; i < 4; ++i)
        for (long j = 0; j < 4; ++j)
            EXPECT_EQ(normalOf(*pooled, 0, 0).covariance()(i, j), normalOf(*pooled, 3, 0).covariance()(i, j));

    Data singles;
    singles.addData({1.0, 2.0, 3.0, 4.0}, 0);
    singles.addData({2.0, 2.5, 1.0, 0.0}, 1);
    EXPECT_EQ(1,
              normalOf(*trained<tk_ClassifierPooled>(singles, tkCovariancePooling(jointParams(), 1.0)), 0, 0).count());
    EXPECT_EQ(1.0, tkCovariancePooling::choose(singles, jointParams()));
}

TEST(tk_ClassifierPooled, binomialDensitiesAreLeftAsTheyAre)
{
    const tkClassifierTrainParamsBayesian params = paramsWithABinomial();
    const Data data = dataWithABinomial();
    const auto plain = trained<tk_ClassifierBayesian>(data, params);
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(params, 0.5));
    for (std::size_t m = 0; m < 2; ++m)
    {
        const auto& before = dynamic_cast<const tk_CategoryModelBayesian&>(*plain->categoryModels()[m]);
        const auto& after = dynamic_cast<const tk_CategoryModelBayesian&>(*pooled->categoryModels()[m]);
        EXPECT_TRUE(before.densities()[1]->isEquivalent(*after.densities()[1]));
        EXPECT_FALSE(before.densities()[0]->isEquivalent(*after.densities()[0]));
    }
}

TEST(tk_ClassifierPooled, loadedAmountThatIsNoShareGivesItsErrorInTheTraining)
{
    for (const double amount : {5.0, -0.25, std::numeric_limits<double>::infinity(), notANumber})
    {
        std::string bytes = storeToBytes(tkPtrHandle<tkCovariancePooling>(new tkCovariancePooling(jointParams(), 0.5)));
        std::uint64_t bits = 0;
        std::memcpy(&bits, &amount, sizeof bits);
        for (std::size_t i = 0; i < 8; ++i) // the amount is the last that is stored, little-endian
            bytes[bytes.size() - 8 + i] = static_cast<char>(bits >> (8 * i) & 0xff);
        tkPtrHandle<tkCovariancePooling> loaded;
        loadFromBytes(bytes, loaded);
        ASSERT_TRUE(loaded);
        ASSERT_FALSE(loaded->amount() >= 0.0 && loaded->amount() <= 1.0);
        tkClassifierTool tool;
        EXPECT_TK_THROW(tool.train(wine(9), *loaded), tkClassifierDefs::BadParams,
                        L"The amount of pooling must be >= 0.0 and <= 1.0");
        EXPECT_FALSE(tool.isTrained());
    }
}

TEST(tk_ClassifierPooled, retrainingKeepsThePooling)
{
    tkClassifierTool tool;
    tool.train(wine(3), tkCovariancePooling(jointParams(), 0.5));
    const wchar_t* const another = L"Cannot retrain a Bayesian classifier with another pooling of covariances.";
    EXPECT_TK_THROW(tool.retrain(jointParams()), tkClassifierDefs::BadParams, another);
    EXPECT_TK_THROW(tool.retrain(tkCovariancePooling(jointParams(), 0.25)), tkClassifierDefs::BadParams, another);
    EXPECT_TK_THROW(tool.retrain(tkCovariancePooling(jointParams())), tkClassifierDefs::BadParams, another);
    tkCovariancePooling params(jointParams(), 0.5);
    params.misclassificationCosts(tkClassifierCosts(3.0));
    tool.retrain(params);
    EXPECT_TRUE(params == *tool.trainParams());

    tkClassifierTool plain;
    plain.train(wine(3), jointParams());
    EXPECT_TK_THROW(plain.retrain(tkCovariancePooling(jointParams(), 0.5)), tkClassifierDefs::BadMethod,
                    L"Cannot retrain with a different classification technique.");
}

TEST(tk_ClassifierPooled, clonesAreOfItsClassAndEqual)
{
    const Data data = wine(5);
    const auto pooled = trained<tk_ClassifierPooled>(data, tkCovariancePooling(jointParams(), 0.5));
    const tkPtrHandle<tk_Classifier> clone = pooled->clone();
    EXPECT_NE(nullptr, dynamic_cast<const tk_ClassifierPooled*>(clone.get()));
    EXPECT_TRUE(clone->isEquivalent(*pooled));
    EXPECT_FALSE(clone->isEquivalent(*trained<tk_ClassifierBayesian>(data, jointParams())));
}
