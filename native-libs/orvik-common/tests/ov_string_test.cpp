#include "common/ov_string.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace orvik {
namespace {

TEST(OvStringTest, NullAndEmptyAreTheSameValidEmptyString) {
    OvString assigned("text");
    assigned = static_cast<const char*>(nullptr);
    for (const OvString& s :
         {OvString(static_cast<const char*>(nullptr)), OvString(""), OvString(), assigned}) {
        ASSERT_NE(s.Cstr(), nullptr);
        EXPECT_EQ(std::string(s.Cstr()), "");
        EXPECT_TRUE(s.IsEmpty() && s.Length() == 0 && s == OvString());
    }
}

TEST(OvStringTest, BlockGrowsToTheExactNeedAndIsReusedForShorterText) {
    OvString s("hello");
    const char* block = s.Cstr();
    for (const char* text : {"", "world", "hi"}) {
        s = text;
        EXPECT_EQ(s.Cstr(), block) << "no new block for '" << text << "'";
        EXPECT_STREQ(s.Cstr(), text);
    }
    s = "longer";
    EXPECT_STREQ(s.Cstr(), "longer");
}

TEST(OvStringTest, CopiesAreDeepAndSelfAssignmentKeepsTheText) {
    OvString s("abcdef");
    const OvString& alias = s;
    s = alias;
    EXPECT_STREQ(s.Cstr(), "abcdef");
    s = s.Cstr() + 2;  // a source inside the own block
    EXPECT_STREQ(s.Cstr(), "cdef");
    OvString copy(s);
    s = "two";
    EXPECT_STREQ(copy.Cstr(), "cdef");
    EXPECT_TRUE(copy != s && !(OvString("a") == OvString("A")));

    // OvStringPair's moves copy both texts and leave the source as it was.
    OvStringPair pair, moved;
    pair.first = "key";
    pair.second = "value";
    moved = std::move(pair);
    OvStringPair copied(std::move(moved));
    for (OvStringPair* each : {&pair, &moved, &copied}) {
        EXPECT_STREQ(each->first.Cstr(), "key");
        EXPECT_STREQ(each->second.Cstr(), "value");
    }
}

TEST(OvStringTest, PlainStringsAreCutAtTheLimit) {
    const size_t limit = 0xFFFFFE;
    std::string text(limit + 10, 'x');
    OvString s(text.c_str());
    EXPECT_EQ(s.Length(), limit);
    EXPECT_EQ(OvString(s).Length(), limit);
    text.resize(limit);
    s = text.c_str();
    EXPECT_EQ(s.Length(), limit);
}

}  // namespace
}  // namespace orvik
