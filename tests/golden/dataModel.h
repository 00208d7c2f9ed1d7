#ifndef TESTS_GOLDEN_DATAMODEL_H
#define TESTS_GOLDEN_DATAMODEL_H

#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <limits>
#include <vector>

/// The objects whose records are stored in this folder: generate.cpp writes them, the tests expect them.
namespace golden
{
/// The message of every stored error: characters of one, two, three and four bytes in UTF-8.
inline const wchar_t errorMessage[] = L"Costs \u2265 0 \u00fcber \U0001F600";

inline tkFeaturePattern featurePattern()
{
    return tkFeaturePattern(
        {1.5, -2.25, -0.0, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::denorm_min()}, {1, 3});
}

/// Three patterns, the first and the last one object.
inline tkClassifierDataProviderMemory dataProvider()
{
    const tkPtrHandle_const<tkFeaturePattern> shared(new tkFeaturePattern({1.0, 2.0}));
    tkClassifierDataProviderMemory provider;
    provider.setName(L"M\u00fcnzen");
    provider.setDescription(L"coins");
    provider.data({shared, tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern({3.0, 4.0}, {0})), shared},
                  {7, -1, 2147483647});
    return provider;
}

inline tkClassifierCosts costs()
{
    tkClassifierCosts costs(2.5);
    costs.misclassificationCostOverride(3, 1, 20.0);
    costs.misclassificationCostOverride(0, 2147483647, 0.0);
    return costs;
}

inline tkClassifierFrequencies frequencies()
{
    tkClassifierFrequencies frequencies(0.25);
    frequencies.categoryFrequencyOverride(9, 3.0);
    frequencies.categoryFrequencyOverride(0, 1e-300);
    return frequencies;
}

inline tkClassifierCategoryResult categoryResult()
{
    return tkClassifierCategoryResult(258, 1.0, 0.75, 4.5);
}

inline tkClassifierResult result()
{
    return tkClassifierResult({{0, 0.5, 0.25, 0.75}, {1, 0.5, 0.75, 0.25}}, -12.5);
}
} // namespace golden

#endif
