#include "common/ov_string.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace orvik {
namespace {

TEST(OvStringTest, NullAndEmptyAreTheSameValidEmptyString) {
    const OvString fromNull(static_cast<const char*>(nullptr));
    const OvString fromEmpty("");
    const OvString byDefault;
    for (const OvString* s : {&fromNull, &fromEmpty, &byDefault}) {
        ASSERT_NE(s->Cstr(), nullptr);
        EXPECT_EQ(s->Cstr()[0], '\0');
        EXPECT_EQ(s->Length(), 0u);
        EXPECT_TRUE(s->IsEmpty());
    }
    EXPECT_TRUE(byDefault == fromEmpty);

    OvString assigned("text");
    assigned = static_cast<const char*>(nullptr);
    EXPECT_TRUE(assigned.IsEmpty());
}

TEST(OvStringTest, BlockGrowsToTheExactNeedAndIsReusedForShorterText) {
    OvString s("hello");
    const char* block = s.Cstr();

    s = "";
    EXPECT_EQ(s.Length(), 0u);
    EXPECT_EQ(s.Cstr(), block) << "emptying keeps the block";
    s = "world";
    EXPECT_EQ(s.Cstr(), block) << "the former length fits without a new block";
    s = "hi";
    EXPECT_EQ(s.Cstr(), block);
    EXPECT_STREQ(s.Cstr(), "hi");

    s = "longer";
    EXPECT_STREQ(s.Cstr(), "longer");
    const char* grown = s.Cstr();
    s = "longe";
    EXPECT_EQ(s.Cstr(), grown);
}

TEST(OvStringTest, CopiesAreDeepAndSelfAssignmentKeepsTheText) {
    OvString s("abcdef");
    const OvString& alias = s;
    s = alias;
    EXPECT_STREQ(s.Cstr(), "abcdef");
    s = s.Cstr() + 2;  // a source inside the own block
    EXPECT_STREQ(s.Cstr(), "cdef");

    OvString copy(s);
    EXPECT_NE(copy.Cstr(), s.Cstr());
    s = "two";
    EXPECT_STREQ(copy.Cstr(), "cdef");
    EXPECT_TRUE(copy != s);
    EXPECT_FALSE(OvString("a") == OvString("A"));

    const char raw[] = "ab\0cd";  // text behind an embedded zero is invisible
    EXPECT_EQ(OvString(raw).Length(), 2u);
    EXPECT_TRUE(OvString(raw) == OvString("ab"));
}

TEST(OvStringTest, PlainStringsAreCutAtTheLimit) {
    const size_t limit = 0xFFFFFE;
    const std::string huge(limit + 10, 'x');
    OvString s(huge.c_str());
    EXPECT_EQ(s.Length(), limit);
    EXPECT_EQ(OvString(s).Length(), limit);

    const std::string exact(limit, 'y');
    s = exact.c_str();
    EXPECT_EQ(s.Length(), limit);
    EXPECT_EQ(s.Cstr()[limit - 1], 'y');
}

TEST(OvStringPairTest, MovesCopyAndLeaveTheSourceIntact) {
    OvStringPair source;
    source.first = "key";
    source.second = "value";
    OvStringPair moved(std::move(source));
    OvStringPair assigned;
    assigned = std::move(source);
    for (const OvStringPair* pair : {&moved, &assigned, &source}) {
        EXPECT_STREQ(pair->first.Cstr(), "key");
        EXPECT_STREQ(pair->second.Cstr(), "value");
    }
}

}  // namespace
}  // namespace orvik
