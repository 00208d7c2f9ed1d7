#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>
#include <utility>

namespace
{
bool contains(const std::vector<long>& set, long index)
{
    return std::find(set.begin(), set.end(), index) != set.end();
}

/// The indices in the order in which they first occur.
std::vector<long> distinct(const std::vector<long>& indices)
{
    std::vector<long> result;
    for (const long index : indices)
        if (!contains(result, index))
            result.push_back(index);
    return result;
}

/// Removes the indices that the set holds, the last index taking the place of each: the order of the others in a merged
/// set depends on it. Whether there was one.
bool removeThoseIn(const std::vector<long>& set, std::vector<long>& indices)
{
    bool found = false;
    for (std::size_t i = 0; i < indices.size();)
    {
        if (!contains(set, indices[i]))
        {
            ++i;
            continue;
        }
        indices[i] = indices.back();
        indices.pop_back();
        found = true;
    }
    return found;
}

void checkCategory(long category)
{
    if (category < 0)
        throw tkClassifierDefs::BadLabel(L"Cateogory labels must be >= 0"); // the misspelling is deliberate
}

void checkIndex(long index)
{
    if (index < 0)
        throw tkClassifierDefs::BadIndex(tk_Messages::measurementIndicesNotNegative);
}
} // namespace

tkClassifierDistributionTypes::tkClassifierDistributionTypes(DistributionType defaultType) : defaultType_(defaultType)
{
}

void tkClassifierDistributionTypes::distributionTypeOverride(long category, long measurementIndex,
                                                             DistributionType type)
{
    if (type == defaultType_)
        return;
    for (std::size_t s = 0; s < sets_.size(); ++s)
        if (setCategories_[s] == category && contains(sets_[s], measurementIndex))
            throw tkClassifierDefs::BadParams(L"Cannot override distribution type of a feature measurement that is "
                                              L"already part of a dependency set.");
    const long position = distOverrideIndex_(category, measurementIndex);
    if (position >= 0)
    {
        overrideTypes_[static_cast<std::size_t>(position)] = type;
        return;
    }
    const std::size_t count = overrideTypes_.size();
    try
    {
        overrideCategories_.push_back(category);
        overrideIndices_.push_back(measurementIndex);
        overrideTypes_.push_back(type);
    }
    catch (...)
    {
        overrideCategories_.resize(count);
        overrideIndices_.resize(count);
        throw;
    }
}

void tkClassifierDistributionTypes::clearDistributionOverrides()
{
    overrideCategories_.clear();
    overrideIndices_.clear();
    overrideTypes_.clear();
}

tkClassifierDistributionTypes::DistributionType
tkClassifierDistributionTypes::distributionType(long category, long measurementIndex) const
{
    const long position = distOverrideIndex_(category, measurementIndex);
    return position >= 0 ? overrideTypes_[static_cast<std::size_t>(position)] : defaultType_;
}

void tkClassifierDistributionTypes::setDependent(long category, const std::vector<long>& measurementIndices)
{
    checkCategory(category);
    for (const long index : measurementIndices)
        checkIndex(index);
    std::vector<long> remaining = distinct(measurementIndices);
    if (remaining.empty())
        return;
    const DistributionType type = distributionType(category, remaining.front());
    for (const long index : remaining)
        if (distributionType(category, index) != type)
            throw tkClassifierDefs::BadParams(
                L"The distribution types of dependent feature measurements must be the same.");

    std::vector<bool> isMerged(sets_.size(), false);
    for (std::size_t s = 0; s < sets_.size(); ++s)
        isMerged[s] = setCategories_[s] == category && removeThoseIn(sets_[s], remaining);
    mergeSets_(category, isMerged, remaining);
}

/// The marked sets become one in the place of the first: its indices, then `remaining`, then those of the others in
/// their order. Without a marked set, `remaining` becomes a new last one.
void tkClassifierDistributionTypes::mergeSets_(long category, const std::vector<bool>& isMerged,
                                               const std::vector<long>& remaining)
{
    std::vector<long> newCategories;
    std::vector<std::vector<long>> newSets;
    std::size_t merged = sets_.size(); // position of the merged set, once there is one
    for (std::size_t s = 0; s < sets_.size(); ++s)
    {
        if (isMerged[s] && merged < sets_.size())
        {
            newSets[merged].insert(newSets[merged].end(), sets_[s].begin(), sets_[s].end());
            continue;
        }
        newCategories.push_back(setCategories_[s]);
        newSets.push_back(sets_[s]);
        if (isMerged[s])
        {
            merged = newSets.size() - 1;
            newSets[merged].insert(newSets[merged].end(), remaining.begin(), remaining.end());
        }
    }
    if (merged == sets_.size())
    {
        newCategories.push_back(category);
        newSets.push_back(remaining);
    }
    setCategories_ = std::move(newCategories);
    sets_ = std::move(newSets);
}

bool tkClassifierDistributionTypes::isDependent(long category, const std::vector<long>& measurementIndices) const
{
    checkCategory(category);
    if (measurementIndices.empty())
        return false;
    for (const long index : measurementIndices)
        checkIndex(index);
    for (std::size_t s = 0; s < sets_.size(); ++s)
        if (setCategories_[s] == category && contains(sets_[s], measurementIndices.front()))
            return std::all_of(measurementIndices.begin(), measurementIndices.end(),
                               [&](long index) { return contains(sets_[s], index); });
    return false;
}

long tkClassifierDistributionTypes::dependencySetCategory(long set) const
{
    TK_ASSERT(set >= 0 && set < numDependencySets());
    return setCategories_[static_cast<std::size_t>(set)];
}

const std::vector<long>& tkClassifierDistributionTypes::dependencySet(long set) const
{
    TK_ASSERT(set >= 0 && set < numDependencySets());
    return sets_[static_cast<std::size_t>(set)];
}

bool tkClassifierDistributionTypes::operator==(const tkClassifierDistributionTypes& other) const
{
    return defaultType_ == other.defaultType_ && overrideCategories_ == other.overrideCategories_ &&
           overrideIndices_ == other.overrideIndices_ && overrideTypes_ == other.overrideTypes_ &&
           setCategories_ == other.setCategories_ && sets_ == other.sets_;
}

long tkClassifierDistributionTypes::distOverrideIndex_(long category, long measurementIndex) const
{
    checkCategory(category);
    checkIndex(measurementIndex);
    for (std::size_t i = 0; i < overrideTypes_.size(); ++i)
        if (overrideCategories_[i] == category && overrideIndices_[i] == measurementIndex)
            return static_cast<long>(i);
    return -1;
}

tkArchive& operator||(tkArchive& archive, tkClassifierDistributionTypes& types)
{
    archive.exchangeVersion(tk_RecordPlaces::bayesSource, tk_RecordPlaces::distributionTypesLine);
    archive || types.defaultType_;
    tkExchangeParallel(archive, L"Overrides of distribution types have not as many categories and indices as types",
                       types.overrideCategories_, types.overrideIndices_, types.overrideTypes_);
    return tkExchangeParallel(archive, L"Dependency sets have not as many categories as sets", types.setCategories_,
                              types.sets_);
}
