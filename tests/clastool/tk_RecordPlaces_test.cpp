#include "clss/clastool/bayes/tkClassifierDistributionTypes.h"
#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierFrequencies.h"
#include "clss/clastool/clastool/tkClassifierResult.h"
#include "clss/clastool/clastool/tkClassifierTool.h"
#include "foundation/tkArchiveErrors.h"
#include "tkTest.h"

#include <sstream>
#include <string>

namespace
{
using Types = tkClassifierDistributionTypes;

/// Loads a record of version 1, which no value type has.
template <class Value>
void loadVersion1(Value value = Value())
{
    std::string bytes = storeToBytes(value);
    bytes.at(0) = 1;
    std::istringstream stream(bytes);
    tkArchive archive(stream);
    archive || value;
}
} // namespace

TEST(tk_RecordPlaces, areNamedByTheErrorOfEachValueType)
{
    EXPECT_TK_THROW(loadVersion1<tkClassifierCategoryResult>(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 346)");
    EXPECT_TK_THROW(loadVersion1<tkClassifierCosts>(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 435)");
    EXPECT_TK_THROW(loadVersion1<tkClassifierFrequencies>(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 522)");
    EXPECT_TK_THROW(loadVersion1<tkClassifierResult>(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 670)");
    EXPECT_TK_THROW(loadVersion1<tkClassifierTool>(), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/clastool, 896)");
    EXPECT_TK_THROW(loadVersion1(Types(Types::eNormal)), tkArchive::UnknownVersion,
                    L"A record has an unknown version (clss/clastool/bayes, 262)");
}
