#include "foundation/tkArchiveFile.h"
#include "tkFolder.h"
#include "tkSystemCalls.h"
#include "tkTest.h"

#include <filesystem>

// When the system could not say what stands at a path, tkArchiveFile went on as if nothing stood there: with a disk
// that answered stat() with an input/output error, saving replaced a symbolic link by a file, and a file that only its
// owner could read by one for everybody. What is not known is not replaced now, and not loaded either.

#if defined(__linux__)
namespace fs = std::filesystem;

TEST(failingStatWasTakenForNoFile, savingAndLoadingNameTheErrorAndChangeNothing)
{
    const tkFolder folder;
    const fs::path target = folder.path / "target";
    const fs::path link = folder.path / "link";
    tkArchiveFile::save(target, 5L);
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("target", link);
    const std::string before = tkFolder::read(target);

    for (const fs::path& path : {target, link})
    {
        const std::wstring file = L"The file \"" + path.wstring() + L"\" ";
        long loaded = 7;
        {
            const tkSystemCalls failing(tkSystemCalls::eStatFails);
            EXPECT_TK_THROW(tkArchiveFile::save(path, 6L), tkArchive::Errors,
                            file + L"cannot be written: Input/output error");
            EXPECT_TK_THROW(tkArchiveFile::load(path, loaded), tkArchive::Errors,
                            file + L"cannot be read: Input/output error");
            EXPECT_GE(tkSystemCalls::count(), 2);
        }
        EXPECT_EQ(7, loaded);
    }
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    EXPECT_EQ(before, tkFolder::read(target));
    EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(target).permissions());
    EXPECT_EQ((std::set<std::string>{"target", "link"}), folder.names());
}
#endif
