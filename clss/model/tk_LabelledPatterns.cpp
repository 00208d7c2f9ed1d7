#include "clss/model/tk_LabelledPatterns.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"

#include <string>
#include <utility>

tk_LabelledPatterns::tk_LabelledPatterns(const tkClassifierDataProvider& data) : numMeasurements(data.numMeasurements())
{
    // Providers hand their patterns out through an operation that is not const, although reading is all it does: a
    // provider that computes or caches what it hands out is allowed to.
    auto& provider = const_cast<tkClassifierDataProvider&>(data);
    const long numPatterns = provider.numPatterns();
    for (long i = 0; i < numPatterns; ++i)
    {
        tkPtrHandle_const<tkFeaturePattern> pattern = provider.featurePattern(i);
        if (pattern->numMeasurements() != numMeasurements)
            throw tkClassifierDefs::BadFeatures(
                L"Pattern " + std::to_wstring(i) + L" has " + std::to_wstring(pattern->numMeasurements()) +
                L" measurements, the training data have " + std::to_wstring(numMeasurements) + L".");
        const long label = provider.categoryLabel(i);
        if (label < -1)
            throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegativeOrUnknown);
        if (label == -1)
            continue;
        add_(std::move(pattern), label, i);
    }
    if (patterns.empty())
        throw tkClassifierDefs::InsufficientTrainData(tk_Messages::noValidTrainData);
}

tk_LabelledPatterns tk_LabelledPatterns::usable(const tkClassifierDataProvider& data)
{
    auto& provider = const_cast<tkClassifierDataProvider&>(data); // as above
    tk_LabelledPatterns usable;
    usable.numMeasurements = data.numMeasurements();
    const long numPatterns = provider.numPatterns();
    for (long i = 0; i < numPatterns; ++i)
    {
        const long label = provider.categoryLabel(i);
        if (label < 0)
            continue;
        tkPtrHandle_const<tkFeaturePattern> pattern = provider.featurePattern(i);
        if (pattern->numMeasurements() == usable.numMeasurements)
            usable.add_(std::move(pattern), label, i);
    }
    return usable;
}

void tk_LabelledPatterns::add_(tkPtrHandle_const<tkFeaturePattern> pattern, long label, long index)
{
    patterns.push_back(std::move(pattern));
    labels.push_back(label);
    indices.push_back(index);
}
