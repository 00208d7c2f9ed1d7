#include "foundation/tkPtrHandle.h"
#include "tkTest.h"

#include <memory>

// A handler for tkException catches the foundation's own errors, all but one: the error of a null handle was a
// std::runtime_error. It is one of the family now, with a number, a message, and a record.

namespace
{
class Object : public tkRepBase
{
};
} // namespace

TEST(nullHandleWasNoTkException, handlerForTkExceptionCatchesIt)
{
    const tkPtrHandle<Object> null;
    bool caught = false;
    try
    {
        *null;
    }
    catch (const tkException& thrown)
    {
        caught = true;
        EXPECT_EQ(typeid(tkBadPointer), typeid(thrown));
        EXPECT_EQ(0x10001003, thrown.errorNumber());
        EXPECT_EQ(L"Null handle dereferenced", thrown.message());
        EXPECT_STREQ("Null handle dereferenced", thrown.what());
    }
    EXPECT_TRUE(caught);
}

TEST(nullHandleWasNoTkException, isStoredAndThrownAgainAsItself)
{
    tkBadPointer stored;
    const std::string bytes = storePointerToBytes(stored);
    EXPECT_EQ(goldenBytes("tkBadPointer.v0.bin"), bytes);
    tkException* const loaded = dynamic_cast<tkException*>(loadPointerFromBytes(bytes).release());
    ASSERT_NE(nullptr, loaded);
    EXPECT_TK_THROW(loaded->suicideAndRethrow(), tkBadPointer, L"Null handle dereferenced");
}
