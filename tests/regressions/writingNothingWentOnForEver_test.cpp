#include "foundation/tkArchiveFile.h"
#include "tkFolder.h"
#include "tkSystemCalls.h"
#include "tkTest.h"

// Where the system took no byte of a write and named no error, tkArchiveFile tried again, for ever. It is an
// input/output error now.

#if defined(__linux__)
TEST(writingNothingWentOnForEver, savingAFileFailsAtTheFirstTry)
{
    const tkFolder folder;
    const std::filesystem::path path = folder.path / "file";
    tkArchiveFile::save(path, 5L);
    {
        const tkSystemCalls failing(tkSystemCalls::eWriteWritesNothing);
        EXPECT_TK_THROW(tkArchiveFile::save(path, 6L), tkArchive::Errors,
                        L"The file \"" + path.wstring() + L"\" cannot be written: Input/output error");
        EXPECT_EQ(1, tkSystemCalls::count());
    }
    long loaded = 0;
    tkArchiveFile::load(path, loaded);
    EXPECT_EQ(5, loaded);
    EXPECT_EQ((std::set<std::string>{"file"}), folder.names());
}
#endif
