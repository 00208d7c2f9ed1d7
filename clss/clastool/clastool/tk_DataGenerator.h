#ifndef CLSS_CLASTOOL_CLASTOOL_TK_DATAGENERATOR_H
#define CLSS_CLASTOOL_CLASTOOL_TK_DATAGENERATOR_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "foundation/tkPair.h"

#include <vector>

/// Draws the patterns of one category from independent normal distributions, one per feature. The seed is
/// fixed: equal parameters give equal data, on every platform.
class TK_EXPORT tk_ClassDataGenerator
{
public:
    /// One pair of mean and standard deviation per feature; the number of patterns to draw.
    explicit tk_ClassDataGenerator(const std::vector<tkPair<double>>& featureDistributions = {}, long count = 0);
    tk_ClassDataGenerator(const tk_ClassDataGenerator&) = default;
    tk_ClassDataGenerator(tk_ClassDataGenerator&&) = default;
    /// Whole or, if memory runs out, not at all.
    tk_ClassDataGenerator& operator=(const tk_ClassDataGenerator& other)
    {
        return *this = tk_ClassDataGenerator(other);
    }
    tk_ClassDataGenerator& operator=(tk_ClassDataGenerator&&) = default;

    /// The data, all labelled 0. They are drawn at the first call and kept, with copies of the generator as well.
    /// Without features every call appends `count` more patterns, as data without measurements count as not drawn.
    tkClassifierDataProviderMemory generateData();

private:
    std::vector<tkPair<double>> featureDistributions_;
    long count_;
    tkClassifierDataProviderMemory generatedData_;
};

/// Merges the data of several categories and shuffles them; the generator at position g gives category g.
///
/// Of each category as many patterns are taken as they have measurements, and of all these as many are kept as
/// they have measurements: those of the first category that has any, in another order. A category with fewer
/// patterns than measurements is an error.
class TK_EXPORT tk_TotalDataGenerator
{
public:
    explicit tk_TotalDataGenerator(const std::vector<tk_ClassDataGenerator>& classGenerators = {});
    tk_TotalDataGenerator(const tk_TotalDataGenerator&) = default;
    tk_TotalDataGenerator(tk_TotalDataGenerator&&) = default;
    /// Whole or, if memory runs out, not at all.
    tk_TotalDataGenerator& operator=(const tk_TotalDataGenerator& other)
    {
        return *this = tk_TotalDataGenerator(other);
    }
    tk_TotalDataGenerator& operator=(tk_TotalDataGenerator&&) = default;

    /// The data; drawn at the first call and kept. Throws what tkClassifierDataProviderMemory throws:
    /// tkClassifierDefs::BadIndex for too few patterns, tkClassifierDefs::BadFeatures for categories of different
    /// numbers of measurements.
    tkClassifierDataProviderMemory generateData();

private:
    std::vector<tk_ClassDataGenerator> classGenerators_;
    tkClassifierDataProviderMemory generatedData_;
};

#endif
