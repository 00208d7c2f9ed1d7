#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

// After the standard library, which does not compile behind a macro `min` either.
#include "foreignMacros.h"

#include "clss/clastool/clastool.h"

// <X11/Xlib.h> and <windows.h> define macros with the names of ordinary things: None, Status, min. Behind them the
// library's headers did not compile: a normal distribution had a type named Status, and templates called std::min.
// Now no published header uses such a name. This file is the test, by being compiled.

TEST(macrosOfOtherHeadersDidNotCompile, libraryIsUsableBehindThem)
{
    const tkFeaturePattern pattern({1.0, 2.0}, {1});
    EXPECT_EQ(1, pattern.numInvalid());
}
