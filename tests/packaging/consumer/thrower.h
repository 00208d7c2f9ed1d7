#ifndef CONSUMER_THROWER_H
#define CONSUMER_THROWER_H

#include "foundation/tkExport.h"

class tkPersistent;

/// Throws, from a library of its own, error `kind` of the eight of tkClassifierDefs, with the message "thrown".
TK_EXPORT void throwError(int kind);

/// A tkPatternDistanceMetricNorm as its root class. The caller deletes it.
TK_EXPORT tkPersistent* newMetric();

#endif
