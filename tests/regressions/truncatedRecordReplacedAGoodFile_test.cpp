#include "tkFolder.h"
#include "tkTest.h"

#include "foundation/tkArchiveFile.h"

// The record of an object may catch the error of one within it. The archive has failed then, but the outermost exchange
// returns as if all were well, and a truncated record took the place of a good file. Saving and loading a file now ask
// the archive.

namespace
{
/// An object whose record goes on when that of the object within it has failed.
class Swallowing : public tkPersistent
{
    void dispatchSerialize(tkArchive& archive) override
    {
        tkPersistent::dispatchSerialize(archive);
        tkFailure within;
        try
        {
            archive || within;
        }
        catch (const tkArchive::Errors&)
        {
        }
    }
};
} // namespace

TEST(truncatedRecordReplacedAGoodFile, savingFailsAndTheOldFileStays)
{
    const tkFolder folder;
    const std::filesystem::path file = folder.path / "object.tk";
    tkFolder::write(file, "the old file");
    EXPECT_NO_THROW(tkArchiveFile::save(folder.path / "whole.tk", Swallowing()));
    EXPECT_THROW(tkArchiveFile::save(file, Swallowing(), 1), tkArchive::Errors);
    EXPECT_EQ(tkFolder::read(file), "the old file");
}

TEST(truncatedRecordReplacedAGoodFile, loadingFails)
{
    const tkFolder folder;
    const std::filesystem::path file = folder.path / "object.tk";
    tkArchiveFile::save(file, Swallowing());
    Swallowing loaded;
    EXPECT_NO_THROW(tkArchiveFile::load(file, loaded));
    EXPECT_THROW(tkArchiveFile::load(file, loaded, 1), tkArchive::Errors);
}
