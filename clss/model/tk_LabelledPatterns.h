#ifndef CLSS_MODEL_TK_LABELLEDPATTERNS_H
#define CLSS_MODEL_TK_LABELLEDPATTERNS_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"

#include <vector>

/// The patterns of a data provider whose category is known, in their order; the patterns are shared with the provider.
struct TK_EXPORT tk_LabelledPatterns
{
    /// For the patterns in turn throws tkBadPointer for a null handle, tkClassifierDefs::BadFeatures if the pattern has
    /// not data.numMeasurements(), then tkClassifierDefs::BadLabel if the label is below -1; and lastly
    /// tkClassifierDefs::InsufficientTrainData if no pattern has a label.
    explicit tk_LabelledPatterns(const tkClassifierDataProvider& data);

    /// Those that have data.numMeasurements(); there may be none. Throws tkBadPointer for a null handle with a label.
    static tk_LabelledPatterns usable(const tkClassifierDataProvider& data);

    long numMeasurements = 0;
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns;
    std::vector<long> labels;  // parallel, >= 0
    std::vector<long> indices; // parallel: the pattern's number in the data

private:
    tk_LabelledPatterns() = default;
    void add_(tkPtrHandle_const<tkFeaturePattern> pattern, long label, long index);
};

#endif
