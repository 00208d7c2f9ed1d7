#ifndef CLSS_CLASTOOL_CLASTOOL_TK_DATAGENERATOR_H
#define CLSS_CLASTOOL_CLASTOOL_TK_DATAGENERATOR_H

#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "foundation/tkPair.h"

#include <vector>

/// Draws the patterns of one category from independent normal distributions, one per feature. The seed is
/// fixed: equal parameters give equal data, on every platform.
///
/// Drawing changes the generator: one object is used by one thread at a time.
class TK_EXPORT tk_ClassDataGenerator
{
public:
    /// One pair of mean and standard deviation per feature, in feature order; the number of patterns to draw. Nothing
    /// is checked: any mean and deviation is used as it is, and a count below 1 draws nothing.
    tk_ClassDataGenerator(const std::vector<tkPair<double>>& featureDistributions = {}, long count = 0);
    tk_ClassDataGenerator(const tk_ClassDataGenerator&) = default;
    tk_ClassDataGenerator(tk_ClassDataGenerator&&) = default;
    /// Strong exception guarantee.
    tk_ClassDataGenerator& operator=(const tk_ClassDataGenerator& other)
    {
        return *this = tk_ClassDataGenerator(other);
    }
    tk_ClassDataGenerator& operator=(tk_ClassDataGenerator&&) = default;

    /// The data, all labelled 0: patterns one after the other, the features of each in their order. They are drawn at
    /// the first call and kept, with copies of the generator as well; what is returned shares their patterns.
    /// Without features every call appends `count` more patterns, as data without measurements count as not drawn.
    /// Costs one deviate of tkRandomGaussian for each measurement. Strong exception guarantee.
    tkClassifierDataProviderMemory generateData();

private:
    std::vector<tkPair<double>> featureDistributions_; // mean and standard deviation, in the unit of the feature
    long count_;
    tkClassifierDataProviderMemory generatedData_; // without measurements: not drawn yet
};

/// Merges the data of several categories and shuffles them; the generator at position g gives category g.
///
/// With n_m the number of measurements of a pattern: the first n_m patterns of each category in turn, then the first
/// n_m of all these, shuffled: positions 0 to n_m - 1 in turn are each swapped with one drawn from all of them. So
/// the data are n_m patterns of the first category that has any.
class TK_EXPORT tk_TotalDataGenerator
{
public:
    /// Copies the generators. Each draws with the same seed: equal parameters give equal patterns in two categories.
    tk_TotalDataGenerator(const std::vector<tk_ClassDataGenerator>& classGenerators = {});
    tk_TotalDataGenerator(const tk_TotalDataGenerator&) = default;
    tk_TotalDataGenerator(tk_TotalDataGenerator&&) = default;
    /// Strong exception guarantee.
    tk_TotalDataGenerator& operator=(const tk_TotalDataGenerator& other)
    {
        return *this = tk_TotalDataGenerator(other);
    }
    tk_TotalDataGenerator& operator=(tk_TotalDataGenerator&&) = default;

    /// The data; drawn at the first call that finds any, and kept. Throws what tkClassifierDataProviderMemory throws:
    /// tkClassifierDefs::BadIndex for a category with fewer than n_m patterns, tkClassifierDefs::BadFeatures for
    /// categories of different n_m.
    tkClassifierDataProviderMemory generateData();

private:
    std::vector<tk_ClassDataGenerator> classGenerators_; // the position is the label
    tkClassifierDataProviderMemory generatedData_;
};

#endif
