#include "clss/clastool/clastool/tkClassifierDefs.h"
#include "foundation/tkArchiveErrors.h"
#include "tkAllocations.h"
#include "tkTest.h"

// An exception keeps its message twice, wide and in UTF-8. When memory ran out between the two, an assignment that
// failed left the new message in one and the old one in the other. It changes nothing now.

namespace
{
template <class Error>
void expectStrongAssignment(const Error& before, const Error& other)
{
    bool failed = true;
    int failures = 0;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        Error error(before);
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                error = other;
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        const Error& expected = failed ? before : other;
        EXPECT_EQ(expected.message(), error.message());
        EXPECT_STREQ(expected.what(), error.what());
        EXPECT_EQ(storeToBytes(expected), storeToBytes(error));
        failures += failed;
    }
    EXPECT_GE(failures, 2) << "there are at least the two texts to allocate";
}
} // namespace

TEST(assignedExceptionWasHalfNew, assignmentIsStrong)
{
    const std::wstring text = L"a message that is too long to be stored within a string object";
    expectStrongAssignment(tkFailure(L"old"), tkFailure(text));
    expectStrongAssignment(tkArchive::Errors(L"old"), tkArchive::Errors(text));
    expectStrongAssignment(tkClassifierDefs::BadIndex(L"old"), tkClassifierDefs::BadIndex(text));
}

TEST(assignedExceptionWasHalfNew, assignmentOfThePlaceIsStrongToo)
{
    expectStrongAssignment(
        tkArchive::UnknownVersion("a", 1),
        tkArchive::UnknownVersion("a place that is too long to be stored within a string object", 2));
}
