#include "foundation/tkArchiveOperators.h"
#include "tests/bayes/bayesTestData.h"
#include "tests/golden/bayes.h"
#include "tkTest.h"

using namespace bayesTest;

namespace
{
/// The object that a golden file holds behind a handle.
template <class T>
tkPtrHandle<T> goldenObject(const std::string& file)
{
    tkPtrHandle<T> object;
    loadFromBytes(goldenBytes(file), object);
    EXPECT_FALSE(object.isNull()) << file;
    return object;
}
} // namespace

TEST(goldenBayes, storedRecordsAreReadAndWrittenAsTheyWere)
{
    tkClassifierDistributionTypes types(Types::eBinomial);
    loadFromBytes(goldenBytes("tkClassifierDistributionTypes.v0.bin"), types);
    EXPECT_TRUE(types == golden::distributionTypes());
    EXPECT_EQ(storeToBytes(types), goldenBytes("tkClassifierDistributionTypes.v0.bin"));

    const auto params = goldenObject<Params>("tkClassifierTrainParamsBayesian.v0.bin");
    EXPECT_TRUE(*params == golden::trainParamsBayesian());
    EXPECT_EQ(storeToBytes(params), goldenBytes("tkClassifierTrainParamsBayesian.v0.bin"));

    const auto normal = goldenObject<tk_ProbabilityDensityFunction>("tk_PDFMultivariateNormal.v0.bin");
    EXPECT_TRUE(normal->isEquivalent(golden::normalDensity()));
    EXPECT_EQ(storeToBytes(normal), goldenBytes("tk_PDFMultivariateNormal.v0.bin"));

    const auto binomial = goldenObject<tk_ProbabilityDensityFunction>("tk_PDFBinomial.v0.bin");
    EXPECT_TRUE(binomial->isEquivalent(golden::binomialDensity()));
    EXPECT_EQ(storeToBytes(binomial), goldenBytes("tk_PDFBinomial.v0.bin"));

    const auto category = goldenObject<tk_CategoryModelBayesian>("tk_CategoryModelBayesian.v0.bin");
    EXPECT_TRUE(*category == golden::categoryModel());
    EXPECT_EQ(storeToBytes(category), goldenBytes("tk_CategoryModelBayesian.v0.bin"));

    const auto classifier = goldenObject<tk_ClassifierBayesian>("tk_ClassifierBayesian.v0.bin");
    EXPECT_TRUE(*classifier == golden::classifierBayesian());
    EXPECT_EQ(storeToBytes(classifier), goldenBytes("tk_ClassifierBayesian.v0.bin"));
    EXPECT_EQ(run(*classifier, {2.0, 3.0, 3.0}), run(golden::classifierBayesian(), {2.0, 3.0, 3.0}));
}
