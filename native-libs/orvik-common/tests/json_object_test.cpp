#include "common/json_object.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "common/string_utils.h"

namespace orvik {
namespace {

// A node is added only when its value differs from the default: for const char*, only when it
// sorts above it ignoring case. Nothing is escaped; ToString wraps the nodes on every call.
TEST(JsonObjectTest, EachOverloadAddsOnlyWhenItsOwnTestPasses) {
    JsonObject child, object;
    child.AddNodeIfNeed("x", 1, 0);
    object.AddNodeIfNeed("s", std::string("say \"hi\"\\"), std::string("SAY \"HI\"\\"));
    object.AddNodeIfNeed("i", INT_MIN, 0);
    object.AddNodeIfNeed("t", true, false);
    object.AddNodeIfNeed("f", false, true);
    object.AddNode("n", child);
    object.AddNode("n2", child);
    EXPECT_EQ(object.ToString(),
              R"({"s":"say "hi"\","i":-2147483648,"t":true,"f":false,"n":{"x":1},"n2":{"x":1}})");
    EXPECT_EQ(child.ToString(), R"({"x":1})") << "the caller's child was not changed";
    child.AddNodeIfNeed("late", 2, 0);
    EXPECT_EQ(child.ToString(), R"({{"x":1}"late":2})");

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
