#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierDataProvider.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "clss/clastool/clastool/tkFeaturePattern.h"
#include "clss/model/tkAssessment.h"
#include "clss/model/tkConfusionMatrix.h"
#include "clss/model/tkCovariancePooling.h"
#include "clss/model/tkDecisionRule.h"
#include "clss/model/tkIncompleteTraining.h"
#include "clss/model/tkNovelty.h"
#include "clss/model/tkPatternScaler.h"
#include "clss/model/tkTrainingReport.h"
#include "foundation/archiveTestObjects.h"
#include "foundation/tkRange.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace
{
template <class Object>
std::string stored(Object& object)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    archive || object;
    return stream.str();
}

template <class Object>
void load(const std::string& bytes, Object& object)
{
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    archive || object;
}

/// Loads an object from the bytes. They may be refused by an exception of the library; what they do give can
/// be stored and then comes back as it was, unless it is a rule of an unknown kind, which loads as a null handle.
template <class Object>
void loadHostile(const std::string& bytes)
{
    Object object{};
    try
    {
        load(bytes, object);
    }
    catch (const tkArchive::Errors&)
    {
        return;
    }
    std::string once;
    try
    {
        once = stored(object);
    }
    catch (const tkBadPointer&)
    {
        return;
    }
    Object again{};
    load(once, again);
    if (stored(again) != once)
        std::abort();
}

/// The first byte of an input is an index into this list. New types go to its end, so that the inputs in the
/// corpus keep their meaning.
void (*const types[])(const std::string& bytes) = {
    &loadHostile<tkRange>,
    &loadHostile<std::wstring>,
    &loadHostile<std::vector<bool>>,
    &loadHostile<std::vector<std::vector<double>>>,
    &loadHostile<tkFailure>,
    &loadHostile<tkArchive::UnknownVersion>,
    &loadHostile<tkPtrHandle<ArchiveNode>>,
    &loadHostile<std::vector<tkPtrHandle_const<ArchiveNode>>>,
    &loadHostile<tkPtrHandle<tkFeaturePattern>>,
    &loadHostile<tkPtrHandle<tkClassifierDataProviderMemory>>,
    &loadHostile<tkClassifierResult>,
    &loadHostile<tkClassifierCosts>,
    &loadHostile<tkClassifierFrequencies>,
    &loadHostile<tkClassifierRuleTable>,
    &loadHostile<tkClassifierTool>,
    &loadHostile<tkPatternScaler>,
    &loadHostile<tkDecisionRule>,
    &loadHostile<tkAssessment>,
    &loadHostile<tkPtrHandle<tkCovariancePooling>>,
    &loadHostile<tkPtrHandle<tkIncompleteTraining>>,
    &loadHostile<tkTrainingReport>,
    &loadHostile<tkConfusionMatrix>,
    &loadHostile<tkNovelty>,
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > 0 && data[0] < std::size(types))
        types[data[0]](std::string(data + 1, data + size));
    return 0;
}
