#ifndef CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERDATAPROVIDER_H
#define CLSS_CLASTOOL_CLASTOOL_TKCLASSIFIERDATAPROVIDER_H

#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "foundation/tkPtrHandle.h"

#include <memory>
#include <string>
#include <vector>

class tk_NeighborIndex;

/// Source of training data: a numbered sequence of feature patterns, all of the same number of
/// measurements, each with a category label (>= 0, or -1 where the category is unknown).
class TK_EXPORT tkClassifierDataProvider : public tkPersistent, public tkRepBase
{
public:
    /// Free texts for people; no classification looks at them.
    virtual std::wstring name() = 0;
    virtual std::wstring description() = 0;

    /// Number of measurements of every pattern.
    virtual long numMeasurements() const = 0;
    /// Number of patterns; they are numbered from 0 on.
    virtual long numPatterns() const = 0;

    /// Pattern and label at `index`, 0 <= index < numPatterns(); throw tkClassifierDefs::BadIndex for others.
    virtual tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) = 0;
    virtual long categoryLabel(long index) const = 0;

protected:
    tkClassifierDataProvider() = default;
    tkClassifierDataProvider(const tkClassifierDataProvider&) = default;
    tkClassifierDataProvider& operator=(const tkClassifierDataProvider&) = default;

    TK_RECORD;

    /// Whether the other provider holds the same; an override asks the base first.
    virtual bool isEqual_(const tkClassifierDataProvider& other) const;
};

/// Training data in memory. The patterns are shared with whoever added them, and with copies.
///
/// Once nearest-neighbour classification has asked for it, an index of the patterns stands beside them. It is no
/// part of the value: it is neither copied nor compared nor stored.
class TK_EXPORT tkClassifierDataProviderMemory : public tkClassifierDataProvider
{
public:
    /// No patterns, empty texts.
    tkClassifierDataProviderMemory();
    tkClassifierDataProviderMemory(const tkClassifierDataProviderMemory& other);
    tkClassifierDataProviderMemory(tkClassifierDataProviderMemory&& other) noexcept;
    ~tkClassifierDataProviderMemory() override;
    /// Strong exception guarantee.
    tkClassifierDataProviderMemory& operator=(const tkClassifierDataProviderMemory& other);
    tkClassifierDataProviderMemory& operator=(tkClassifierDataProviderMemory&& other) noexcept;

    /// Free texts.
    std::wstring name() override;
    void setName(const std::wstring& name);
    std::wstring description() override;
    void setDescription(const std::wstring& description);

    /// Replaces the whole contents. Throws tkClassifierDefs::BadFeatures if the numbers of patterns and labels
    /// differ, then if the patterns differ in length (tkBadPointer for a null handle), then
    /// tkClassifierDefs::BadLabel if a label is below -1.
    void data(const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns, const std::vector<long>& labels);

    /// Appends one pattern. Throws tkBadPointer for a null handle, tkClassifierDefs::BadFeatures if the pattern's
    /// length is not that of the data so far, then tkClassifierDefs::BadLabel if the label is below -1.
    /// Amortised constant time.
    void addData(const tkPtrHandle_const<tkFeaturePattern>& pattern, long label);
    /// The same with a new pattern of these measurements, all valid.
    void addData(const std::vector<double>& measurements, long label);

    /// Number of measurements of pattern 0, 0 without patterns. Throws tkBadPointer if pattern 0 is null, as a loaded
    /// one may be.
    long numMeasurements() const override;
    long numPatterns() const override;
    /// Throw as the base says; constant time.
    tkPtrHandle_const<tkFeaturePattern> featurePattern(long index) override;
    long categoryLabel(long index) const override;

    /// All patterns, and their labels in the same order, where they stand: until the next change of this.
    const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns() const { return patterns_; }
    const std::vector<long>& labels() const { return labels_; }

    /// Makes the index of the patterns unless there is one; addData() keeps it up to date, data() and loading drop it.
    /// *Requires* that nobody assigns to a pattern from then on: the index holds its values. Linear in the measurements
    /// of the distinct patterns.
    void indexNeighbors();
    /// The index; null if there is none.
    const tk_NeighborIndex* neighborIndex() const { return neighborIndex_.get(); }

    /// The same class, equal patterns (by value) and labels in the same order, equal name and description.
    /// Throws tkBadPointer if it meets a null handle, which only a loaded provider can hold.
    bool operator==(const tkClassifierDataProvider& other) const { return isEqual_(other); }
    bool operator!=(const tkClassifierDataProvider& other) const { return !(*this == other); }

protected:
    bool isEqual_(const tkClassifierDataProvider& other) const override;

private:
    TK_FACTORY_RECORD;

    std::wstring name_;
    std::wstring description_;
    std::vector<tkPtrHandle_const<tkFeaturePattern>> patterns_;
    std::vector<long> labels_; // parallel to patterns_, each >= -1

    // Derived from patterns_; null until it is asked for. It stands here and not in a classifier, since copies of a
    // classifier share these data, and a pattern that one of them adds has to reach the index of all.
    std::unique_ptr<tk_NeighborIndex> neighborIndex_;
};

#endif
