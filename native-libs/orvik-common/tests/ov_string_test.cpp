#include "common/ov_string.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace orvik {
namespace {

TEST(OvStringTest, NullIsEmptyAndTheBlockIsReusedCopiedDeepAndCut) {
    OvString s("text");
    const char* block = s.Cstr();
    for (const char* text : {static_cast<const char*>(nullptr), "", "abcd", "hi"}) {
        s = text;
        EXPECT_EQ(s.Cstr(), block) << "no new block";
        EXPECT_STREQ(s.Cstr(), text ? text : "");
        EXPECT_EQ(s.IsEmpty(), s.Length() == 0);
    }
    EXPECT_EQ(OvString(static_cast<const char*>(nullptr)), OvString(""));
    s = "abcdef";
    s = s.Cstr() + 2;  // a source inside the own block
    OvString copy(s);
    s = "longer text";
    EXPECT_STREQ(s.Cstr(), "longer text");
    EXPECT_STREQ(copy.Cstr(), "cdef");
    EXPECT_NE(OvString("a"), OvString("A"));

    std::string text(0xFFFFFE + 10, 'x');  // plain strings are cut at the limit, copies are not
    s = text.c_str();
    EXPECT_EQ(OvString(s).Length(), 0xFFFFFEu);
}

TEST(OvStringTest, PairMovesCopyBothTextsAndLeaveTheSource) {
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

}  // namespace
}  // namespace orvik
