#include "clss/clastool/clastool/tkClassifierDataProvider.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_NeighborIndex.h"
#include "foundation/tkArchiveOperators.h"

#include <set>
#include <utility>

namespace
{
void checkLabel(long label)
{
    if (label < -1)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegativeOrUnknown);
}

/// Whether patterns of the same index are equal by value; *requires* as many of one as of the other.
///
/// A record names a pattern again in a few bytes, however large it is. A pair of large ones that was found equal is
/// therefore not compared a second time: looking it up costs less than comparing.
bool areEqual(const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns,
              const std::vector<tkPtrHandle_const<tkFeaturePattern>>& others)
{
    constexpr long large = 64;
    std::set<std::pair<const tkFeaturePattern*, const tkFeaturePattern*>> foundEqual;
    for (std::size_t i = 0; i < patterns.size(); ++i)
    {
        const tkFeaturePattern& pattern = *patterns[i];
        const tkFeaturePattern& other = *others[i];
        const bool isLarge = pattern.numMeasurements() >= large;
        if (isLarge && foundEqual.count({&pattern, &other}) != 0)
            continue;
        if (pattern != other)
            return false;
        if (isLarge)
            foundEqual.insert({&pattern, &other});
    }
    return true;
}
} // namespace

bool tkClassifierDataProvider::isEqual_(const tkClassifierDataProvider&) const
{
    return true;
}

TK_DEFINE_RECORD(tkClassifierDataProvider, 0)

void tkClassifierDataProvider::serialize_(tkArchive& archive, unsigned char)
{
    tkPersistent::dispatchSerialize(archive);
}

tkClassifierDataProviderMemory::tkClassifierDataProviderMemory() = default;

tkClassifierDataProviderMemory::tkClassifierDataProviderMemory(const tkClassifierDataProviderMemory& other)
    : tkClassifierDataProvider(other),
      name_(other.name_),
      description_(other.description_),
      patterns_(other.patterns_),
      labels_(other.labels_)
{
}

tkClassifierDataProviderMemory::tkClassifierDataProviderMemory(tkClassifierDataProviderMemory&&) noexcept = default;

tkClassifierDataProviderMemory::~tkClassifierDataProviderMemory() = default;

tkClassifierDataProviderMemory& tkClassifierDataProviderMemory::operator=(const tkClassifierDataProviderMemory& other)
{
    return *this = tkClassifierDataProviderMemory(other);
}

tkClassifierDataProviderMemory&
tkClassifierDataProviderMemory::operator=(tkClassifierDataProviderMemory&&) noexcept = default;

std::wstring tkClassifierDataProviderMemory::name()
{
    return name_;
}

void tkClassifierDataProviderMemory::setName(const std::wstring& name)
{
    name_ = name;
}

std::wstring tkClassifierDataProviderMemory::description()
{
    return description_;
}

void tkClassifierDataProviderMemory::setDescription(const std::wstring& description)
{
    description_ = description;
}

void tkClassifierDataProviderMemory::data(const std::vector<tkPtrHandle_const<tkFeaturePattern>>& patterns,
                                          const std::vector<long>& labels)
{
    if (patterns.size() != labels.size())
        throw tkClassifierDefs::BadFeatures(
            L"The number of the feature patterns must be equal to the number of category labels");
    for (const auto& pattern : patterns)
        if (pattern->numMeasurements() != patterns.front()->numMeasurements())
            throw tkClassifierDefs::BadFeatures(L"Feature patterns must all have the same number of measurements");
    for (const long label : labels)
        checkLabel(label);

    auto newPatterns = patterns;
    auto newLabels = labels;
    patterns_ = std::move(newPatterns);
    labels_ = std::move(newLabels);
    neighborIndex_.reset();
}

void tkClassifierDataProviderMemory::addData(const tkPtrHandle_const<tkFeaturePattern>& pattern, long label)
{
    const long measurements = pattern->numMeasurements();
    if (numPatterns() > 0 && measurements != numMeasurements())
        throw tkClassifierDefs::BadFeatures(
            L"Feature pattern must have the same number of measurements as the rest of the data.");
    checkLabel(label);

    labels_.push_back(label);
    try
    {
        patterns_.push_back(pattern);
    }
    catch (...)
    {
        labels_.pop_back();
        throw;
    }
    if (neighborIndex_)
        neighborIndex_->update(patterns_);
}

void tkClassifierDataProviderMemory::addData(const std::vector<double>& measurements, long label)
{
    addData(tkPtrHandle_const<tkFeaturePattern>(new tkFeaturePattern(measurements)), label);
}

long tkClassifierDataProviderMemory::numMeasurements() const
{
    return patterns_.empty() ? 0 : patterns_.front()->numMeasurements();
}

long tkClassifierDataProviderMemory::numPatterns() const
{
    return static_cast<long>(patterns_.size());
}

tkPtrHandle_const<tkFeaturePattern> tkClassifierDataProviderMemory::featurePattern(long index)
{
    if (index < 0 || index >= numPatterns())
        throw tkClassifierDefs::BadIndex(L"Feature pattern index must be >=0 and < number of patterns.");
    return patterns_[static_cast<std::size_t>(index)];
}

long tkClassifierDataProviderMemory::categoryLabel(long index) const
{
    if (index < 0 || index >= numPatterns())
        throw tkClassifierDefs::BadIndex(L"Category label index must be >=0 and < number of patterns.");
    return labels_[static_cast<std::size_t>(index)];
}

void tkClassifierDataProviderMemory::indexNeighbors()
{
    if (!neighborIndex_)
        neighborIndex_ = std::make_unique<tk_NeighborIndex>(patterns_);
}

bool tkClassifierDataProviderMemory::isEqual_(const tkClassifierDataProvider& other) const
{
    if (!tkClassifierDataProvider::isEqual_(other) || typeid(*this) != typeid(other))
        return false;
    const auto& memory = dynamic_cast<const tkClassifierDataProviderMemory&>(other);
    if (patterns_.size() != memory.patterns_.size())
        return false;
    if (!areEqual(patterns_, memory.patterns_))
        return false;
    return name_ == memory.name_ && description_ == memory.description_ && labels_ == memory.labels_;
}

TK_DEFINE_FACTORY_RECORD(tkClassifierDataProviderMemory, 0)

void tkClassifierDataProviderMemory::serialize_(tkArchive& archive, unsigned char)
{
    tkClassifierDataProvider::dispatchSerialize(archive);
    archive || name_ || description_;
    if (archive.isLoading())
        neighborIndex_.reset();
    tkExchangeParallel(archive, L"Training data have not as many labels as patterns", patterns_, labels_);
}
