#include "tests/bayes/bayesTestData.h"
#include "tkTest.h"

#include "foundation/tkArchiveOperators.h"

#include <sstream>

// A Bayesian record names a category model again in a few bytes. Each mention became a category of its own, whose
// factors were copied: a record of 264 KB took 2.2 GB and 10 s to load. No classifier has one model twice, so that such
// a record is refused.

using namespace bayesTest;

namespace
{
std::string recordOf(const std::vector<tkPtrHandle<tk_CategoryModel>>& handles)
{
    std::ostringstream stream;
    {
        tkArchive archive(stream);
        unsigned char version = 0;
        tkPtrHandle_const<tkClassifierTrainParams> params(new Params);
        std::vector<long> labels(handles.size());
        std::vector<tkPtrHandle<tk_CategoryModel>> models(handles);
        archive || version || version || version || params || labels || models;
    }
    return stream.str();
}
} // namespace

TEST(repeatedCategoryModel, isRefusedWhenItIsLoaded)
{
    const tk_ClassifierBayesian trained = manyCategories(1, false);
    std::vector<tkPtrHandle<tk_CategoryModel>> models = trained.categoryModels();
    tk_ClassifierBayesian loaded;
    loadFromBytes(recordOf(models), loaded);
    EXPECT_EQ(loaded.categoryModels().size(), 27u);
    for (const std::size_t repeated : {0u, 13u, 26u})
    {
        models = trained.categoryModels();
        models.push_back(models[repeated]);
        std::istringstream stream(recordOf(models));
        tkArchive archive(stream);
        EXPECT_TK_THROW(archive || loaded, tkArchive::Errors,
                        L"A stored Bayesian classifier has the same category model more than once (reading, at byte " +
                            std::to_wstring(stream.str().size()) + L")");
        EXPECT_FALSE(loaded.isTrained());
    }
}
