#include "foundation/tkArchiveFile.h"
#include "foundation/tkArchiveOperators.h"
#include "tkAllocations.h"
#include "tkFolder.h"
#include "tkTest.h"

#include <vector>

// After the new file stood in the place of the old one, tkArchiveFile::save allocated the path of the folder, to flush
// it. When memory ran out there, saving failed although it had happened. All memory is taken before now.

TEST(savingFailedAfterItHadReplaced, everyFailureLeavesTheOldFile)
{
    const tkFolder folder;
    const std::filesystem::path path = folder.path / "a name that is too long to be stored within a string object";
    const std::vector<long> older{1, 2, 3};
    const std::vector<long> newer{4, 5};
    tkArchiveFile::save(path, older);
    const std::string before = tkFolder::read(path);
    bool failed = true;
    for (std::size_t allowed = 0; failed; ++allowed)
    {
        failed = false;
        {
            const tkAllocations limited(allowed);
            try
            {
                tkArchiveFile::save(path, newer);
            }
            catch (const std::bad_alloc&)
            {
                failed = true;
            }
        }
        if (failed)
        {
            ASSERT_EQ(before, tkFolder::read(path)) << "after " << allowed << " allocations";
        }
    }
    std::vector<long> loaded;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(newer, loaded);
    EXPECT_EQ(1u, folder.names().size());
}
