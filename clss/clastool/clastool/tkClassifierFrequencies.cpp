#include "clss/clastool/clastool/tkClassifierFrequencies.h"

#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "clss/clastool/clastool/tk_Messages.h"
#include "clss/clastool/clastool/tk_RecordPlaces.h"
#include "foundation/tkArchiveOperators.h"
#include "foundation/tkAssert.h"

#include <algorithm>

tkClassifierFrequencies::tkClassifierFrequencies(double frequency)
{
    defaultCategoryFrequency(frequency);
}

void tkClassifierFrequencies::defaultCategoryFrequency(double frequency)
{
    if (0.0 >= frequency)
        throw tkClassifierDefs::BadParams(tk_Messages::frequenciesPositive);
    defaultFrequency_ = frequency;
}

void tkClassifierFrequencies::categoryFrequencyOverride(long label, double frequency)
{
    if (0.0 >= frequency)
        throw tkClassifierDefs::BadParams(tk_Messages::frequenciesPositive);
    const long index = freqOverrideIndex_(label);
    if (index >= 0)
    {
        frequencies_[static_cast<std::size_t>(index)] = frequency;
        return;
    }
    labels_.push_back(label);
    try
    {
        frequencies_.push_back(frequency);
    }
    catch (...)
    {
        labels_.pop_back();
        throw;
    }
}

double tkClassifierFrequencies::categoryFrequency(long label) const
{
    const long index = freqOverrideIndex_(label);
    return index >= 0 ? frequencies_[static_cast<std::size_t>(index)] : defaultFrequency_;
}

void tkClassifierFrequencies::clearFrequencyOverrides()
{
    labels_.clear();
    frequencies_.clear();
}

tkClassifierFrequencies::Override tkClassifierFrequencies::frequencyOverride(long index) const
{
    TK_ASSERT(index >= 0 && index < numFrequencyOverrides());
    const auto i = static_cast<std::size_t>(index);
    return {labels_[i], frequencies_[i]};
}

bool tkClassifierFrequencies::operator==(const tkClassifierFrequencies& other) const
{
    return defaultFrequency_ == other.defaultFrequency_ && labels_ == other.labels_ &&
           frequencies_ == other.frequencies_;
}

long tkClassifierFrequencies::freqOverrideIndex_(long label) const
{
    if (label < 0)
        throw tkClassifierDefs::BadLabel(tk_Messages::labelsNotNegative);
    const auto found = std::find(labels_.begin(), labels_.end(), label);
    return found != labels_.end() ? static_cast<long>(found - labels_.begin()) : -1;
}

tkArchive& operator||(tkArchive& archive, tkClassifierFrequencies& frequencies)
{
    archive.exchangeVersion(tk_RecordPlaces::source, tk_RecordPlaces::frequenciesLine);
    archive || frequencies.defaultFrequency_;
    return tkExchangeParallel(archive, L"Frequency overrides have not as many labels as frequencies",
                              frequencies.labels_, frequencies.frequencies_);
}
