#include "common/json_object.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "common/string_utils.h"

namespace orvik {
namespace {

TEST(JsonObjectTest, EachOverloadAddsOnlyWhenItsOwnTestPasses) {
    JsonObject object;
    object.AddNodeIfNeed("s", std::string("say \"hi\"\\"), std::string("SAY \"HI\"\\"));
    object.AddNodeIfNeed("-", std::string("v"), std::string("v"));
    object.AddNodeIfNeed("i", INT_MIN, 0);
    object.AddNodeIfNeed("-", 5, 5);
    object.AddNodeIfNeed("t", true, false);
    object.AddNodeIfNeed("f", false, true);
    object.AddNodeIfNeed("-", true, true);
    object.AddNode("n", JsonObject());
    // Nothing is escaped.
    EXPECT_EQ(object.ToString(), R"({"s":"say "hi"\","i":-2147483648,"t":true,"f":false,"n":{}})");

    // const char* compares order ignoring case: only a value above the default is added.
    const struct {
        const char *value, *defaultValue;
        bool added;
    } cases[] = {{"a", "b", false},    {"B", "a", true},      {"ab", "A", true},
                 {"A", "ab", false},   {"abc", "ABC", false}, {"v", "", true},
                 {nullptr, "", false}, {"v", nullptr, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        JsonObject one;
        one.AddNodeIfNeed("k", c.value, c.defaultValue);
        EXPECT_EQ(one.ToString(), c.added ? "{\"k\":\"" + std::string(c.value) + "\"}" : "{}");
    }
}

TEST(JsonObjectTest, NestingCopiesTheChildAndToStringWrapsAgain) {
    JsonObject child;
    child.AddNodeIfNeed("x", 1, 0);
    JsonObject parent;
    parent.AddNode("c", child);
    parent.AddNode("c2", child);
    EXPECT_EQ(parent.ToString(), R"({"c":{"x":1},"c2":{"x":1}})");
    EXPECT_EQ(child.ToString(), R"({"x":1})") << "the caller's child was not changed";
    EXPECT_EQ(child.ToString(), R"({{"x":1}})");
    child.AddNodeIfNeed("late", 2, 0);
    EXPECT_EQ(child.ToString(), R"({{{"x":1}}"late":2})");
}

TEST(AppendJsonStringTest, PairsFirstThenTheBodysContent) {
    const struct {
        std::string body;
        std::initializer_list<std::string> pairs;
        std::string expected;
    } cases[] = {{"", {}, "{}"},
                 {R"({"x":1})", {"a", "b"}, R"({"a":"b","x":1})"},
                 {R"({"x":1})", {}, R"({"x":1})"},
                 {"plain", {"a", "b"}, R"({"a":"b"})"},
                 {"{}", {"a", "b"}, R"({"a":"b"})"},
                 {"{", {"a", "b"}, R"({"a":"b"})"},
                 {"", {"a", "b", "c", "d", "e"}, R"({"a":"b","c":"d"})"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        EXPECT_EQ(StringUtils::AppendJsonString(c.body, c.pairs), c.expected);
    }
}

}  // namespace
}  // namespace orvik
