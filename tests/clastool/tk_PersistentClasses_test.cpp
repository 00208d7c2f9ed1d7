#include "tkTest.h"

#include "clss/clastool/clastool/tk_PersistentClasses.h"

#include <memory>
#include <set>

namespace
{
std::string nameOf(const tkPersistent::Registration& registration)
{
    const std::unique_ptr<tkPersistent> created(registration.create());
    const tkPersistent& object = *created;
    return tkPersistent::typeName(typeid(object));
}
} // namespace

TEST(tk_PersistentClasses, listsEveryRegisteredClassOfTheLibraryAboveItsFoundation)
{
    // The foundation's classes are linked with the archive itself; a class of the tests does not begin with "tk".
    const std::set<std::string> foundation = {"tkArchive::Errors", "tkArchive::UnknownVersion", "tkBadPointer",
                                              "tkFailure"};
    std::set<std::string> registered;
    for (const std::string& name : tkPersistent::Registration::typeNames())
        if (name.rfind("tk", 0) == 0 && foundation.count(name) == 0)
            registered.insert(name);

    std::set<std::string> listed;
    for (const tkPersistent::Registration* registration : tk_persistentClasses())
        EXPECT_TRUE(listed.insert(nameOf(*registration)).second) << nameOf(*registration) << " twice";

    EXPECT_EQ(listed, registered);
    EXPECT_EQ(registered.count("tk_ClassifierKNN"), 1u);
}

TEST(tk_PersistentClasses, anArchiveCanCreateEveryListedClass)
{
    for (const tkPersistent::Registration* registration : tk_persistentClasses())
        EXPECT_EQ(tkPersistent::Registration::find(nameOf(*registration)), registration) << nameOf(*registration);
}
