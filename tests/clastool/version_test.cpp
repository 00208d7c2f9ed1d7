#include "clastool/version.h"

#include <gtest/gtest.h>

#include <string>

TEST(version, ofTheLibraryIsThatOfItsHeaders)
{
    EXPECT_STREQ(CLASTOOL_VERSION, tkVersion());
}

TEST(version, textIsMadeOfTheThreeNumbers)
{
    EXPECT_EQ(std::to_string(CLASTOOL_VERSION_MAJOR) + "." + std::to_string(CLASTOOL_VERSION_MINOR) + "." +
                  std::to_string(CLASTOOL_VERSION_PATCH),
              CLASTOOL_VERSION);
}
