#include "clss/clastool/clastool/tkClassifierCosts.h"
#include "clss/clastool/clastool/tkClassifierRuleTable.h"
#include "foundation/tkArchiveOperators.h"
#include "numerics/tkNMMatrix.h"
#include "tkAllocations.h"
#include "tkTest.h"

#include <sstream>
#include <vector>

// Once an exchange has failed, its place in the stream is lost, and every further exchange with the archive fails: so
// tkArchive promises. For objects that held; but where a vector or another value that stands outside of an object
// failed by something else than the stream's end, the archive went on, and took the middle of one record for the
// beginning of the next. And what found the fields of a record at odds did not say at which byte.

namespace
{
template <class Object>
void expectFails(tkArchive& archive, Object& object, const std::wstring& text)
{
    EXPECT_TK_THROW(archive || object, tkArchive::Errors, text);
    long next = 0;
    EXPECT_THROW(archive || next, tkArchive::Errors);
}

/// A value whose operator fails by itself.
struct Refusing
{
};
tkArchive& operator||(tkArchive&, Refusing&)
{
    throw 5;
}
} // namespace

TEST(failedValuesLeftTheArchiveGoing, parallelVectorsOfDifferentLengthNameTheByte)
{
    // Default, one true category, none decided for, no cost.
    std::istringstream stream(storeToBytes(tkClassifierCosts()).substr(0, 9) + std::string("\0\1\0\0\0\7\0\0\0", 9) +
                              std::string(10, '\0') + "more");
    tkArchive archive(stream);
    tkClassifierCosts costs;
    expectFails(archive, costs, L"Cost overrides have not as many labels as costs (reading, at byte 28)");
}

TEST(failedValuesLeftTheArchiveGoing, matrixThatIsNoneNamesTheByte)
{
    // Version, two rows, one column, no element.
    std::istringstream stream(std::string("\0\2\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0more", 23));
    tkArchive archive(stream);
    tkNMMatrix matrix;
    expectFails(archive, matrix,
                L"A stored matrix has another number of elements than its size says (reading, at byte 19)");
}

TEST(failedValuesLeftTheArchiveGoing, vectorWhoseElementFailsByItself)
{
    std::ostringstream stream;
    tkArchive archive(stream);
    std::vector<Refusing> elements(1);
    EXPECT_THROW(archive || elements, int);
    long next = 0;
    EXPECT_THROW(archive || next, tkArchive::Errors);
}

TEST(failedValuesLeftTheArchiveGoing, memoryThatRunsOutForATextOrAVector)
{
    const auto expectFailure = [](auto value)
    {
        std::istringstream stream(storeToBytes(value) + std::string(4, '\0'));
        tkArchive archive(stream);
        auto loaded = decltype(value)();
        {
            const tkAllocations none(0);
            EXPECT_THROW(archive || loaded, std::bad_alloc);
        }
        long next = 0;
        EXPECT_THROW(archive || next, tkArchive::Errors);
    };
    expectFailure(std::wstring(1000, L'x'));
    expectFailure(std::vector<double>(1000));
    expectFailure(std::vector<bool>(1000));
    expectFailure(std::vector<long>(1000));
}

TEST(failedValuesLeftTheArchiveGoing, memoryThatRunsOutForARule)
{
    tkClassifierRule rule;
    rule.init({tkPtrHandle<tkClsFtSc>(new tkClassifierFeatureScoreTwoSided)}, 7);
    const std::string bytes = storeToBytes(rule) + std::string(4, '\0');
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        std::istringstream stream(bytes);
        tkArchive archive(stream);
        tkClassifierRule loaded;
        failed = false;
        try
        {
            const tkAllocations limited(allowed);
            archive || loaded;
        }
        catch (const std::bad_alloc&)
        {
            failed = true;
        }
        if (failed)
        {
            long next = 0;
            EXPECT_THROW(archive || next, tkArchive::Errors) << allowed;
        }
    }
}
