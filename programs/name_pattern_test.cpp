#include "programs/name_pattern.h"

#include <gtest/gtest.h>

namespace programs {
namespace {

TEST(PatternOfNames, FitsTheWholeNameWithItsCase) {
  for (const auto& [name, pattern] :
       {std::pair("desk", "desk"), std::pair("desk", "*"), std::pair("", "*"), std::pair("", ""),
        std::pair("desk", "d*k"), std::pair("desk", "d??k"), std::pair("desk", "**s*"), std::pair("a.b.c", "*.c"),
        std::pair("aab", "*ab"), std::pair("\xC3\x96l", "?l"), std::pair("\xC3\x96l", "*\xC3\x96*")})
    EXPECT_TRUE(fitsPattern(name, pattern)) << name << " " << pattern;
  for (const auto& [name, pattern] :
       {std::pair("desk", "Desk"), std::pair("desk", "des"), std::pair("desk", "desk?"), std::pair("desk", ""),
        std::pair("", "?"), std::pair("desk", "*z*"), std::pair("\xC3\x96l", "??l"), std::pair("desk", "esk")})
    EXPECT_FALSE(fitsPattern(name, pattern)) << name << " " << pattern;
}

}  // namespace
}  // namespace programs
