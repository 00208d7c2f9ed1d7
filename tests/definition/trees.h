#ifndef TESTS_DEFINITION_TREES_H
#define TESTS_DEFINITION_TREES_H

#include "clss/clastool/clastool/tkDecisionTree.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"

#include <vector>

/// What decision trees and the library's predicates are defined to do, written down plainly: recursive, path by path,
/// without a thought for sharing. Small trees only.
namespace definition
{
bool outcome(const tkPredicateFunction& predicate, const tkFeaturePattern& pattern);

const tkClassifierResult& classifyByTree(const tkDecisionTree& tree, const tkFeaturePattern& pattern);

std::vector<long> categoryLabels(const tkDecisionTree& tree);

bool isEqual(const tkDecisionTree& a, const tkDecisionTree& b);
} // namespace definition

#endif
