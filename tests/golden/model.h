#ifndef TESTS_GOLDEN_MODEL_H
#define TESTS_GOLDEN_MODEL_H

#include "clss/model/tkPatternScaler.h"

/// The objects of the model layer whose records are stored in this folder.
namespace golden
{
inline tkPatternScaler scaler()
{
    return tkPatternScaler({-2.5, 0.0, 1000.25}, {0.125, 1.0, 3.0});
}
} // namespace golden

#endif
