#include "thrower.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tkPatternDistanceMetric.h"

void throwError(int kind)
{
    switch (kind)
    {
    case 0:
        throw tkClassifierDefs::BadParams(L"thrown");
    case 1:
        throw tkClassifierDefs::NotTrained(L"thrown");
    case 2:
        throw tkClassifierDefs::BadIndex(L"thrown");
    case 3:
        throw tkClassifierDefs::BadLabel(L"thrown");
    case 4:
        throw tkClassifierDefs::BadMethod(L"thrown");
    case 5:
        throw tkClassifierDefs::NotImplemented(L"thrown");
    case 6:
        throw tkClassifierDefs::BadFeatures(L"thrown");
    case 7:
        throw tkClassifierDefs::InsufficientTrainData(L"thrown");
    }
}

tkPersistent* newMetric()
{
    return new tkPatternDistanceMetricNorm(1.0);
}
