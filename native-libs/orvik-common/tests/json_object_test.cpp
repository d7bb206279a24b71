#include "common/json_object.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "common/string_utils.h"

namespace orvik {
namespace {

TEST(JsonObjectTest, EntriesOfEveryKindInOrder) {
    JsonObject object;
    EXPECT_EQ(JsonObject().ToString(), "{}");

    object.AddNodeIfNeed("a", 1, 0);
    object.AddNodeIfNeed("b", std::string("x"), std::string());
    object.AddNodeIfNeed("c", INT_MIN, 0);
    object.AddNodeIfNeed("d", true, false);
    object.AddNodeIfNeed("e", false, true);
    object.AddNodeIfNeed("f", "v", "");
    object.AddNode("n", JsonObject());
    EXPECT_EQ(object.ToString(),
              R"({"a":1,"b":"x","c":-2147483648,"d":true,"e":false,"f":"v","n":{}})");
}

TEST(JsonObjectTest, EachOverloadHasItsOwnTest) {
    JsonObject equal;
    equal.AddNodeIfNeed("s", std::string("v"), std::string("v"));
    equal.AddNodeIfNeed("i", 5, 5);
    equal.AddNodeIfNeed("b", true, true);
    equal.AddNodeIfNeed("c", "v", "v");
    EXPECT_EQ(equal.ToString(), "{}");

    JsonObject byCase;
    byCase.AddNodeIfNeed("s", std::string("abc"), std::string("ABC"));
    byCase.AddNodeIfNeed("c", "abc", "ABC");
    EXPECT_EQ(byCase.ToString(), R"({"s":"abc"})");

    // The const char* test is one of order, ignoring case: only a value above the default.
    const struct {
        const char *value, *defaultValue;
        bool added;
    } cases[] = {{"a", "b", false},    {"B", "a", true},      {"ab", "A", true}, {"A", "ab", false},
                 {nullptr, "", false}, {"v", nullptr, false}, {"", "", false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.value ? c.value : "null") + " / " +
                     (c.defaultValue ? c.defaultValue : "null"));
        JsonObject object;
        object.AddNodeIfNeed("k", c.value, c.defaultValue);
        EXPECT_EQ(object.ToString(), c.added ? "{\"k\":\"" + std::string(c.value) + "\"}" : "{}");
    }
}

TEST(JsonObjectTest, NothingIsEscaped) {
    JsonObject object;
    object.AddNodeIfNeed("q\"k", std::string("say \"hi\"\\"), std::string());
    EXPECT_EQ(object.ToString(), R"({"q"k":"say "hi"\"})");
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
    } cases[] = {
        {"", {}, "{}"},
        {R"({"x":1})", {"a", "b"}, R"({"a":"b","x":1})"},
        {R"({"x":1})", {}, R"({"x":1})"},
        {"plain", {"a", "b"}, R"({"a":"b"})"},
        {"{}", {"a", "b"}, R"({"a":"b"})"},
        {"{", {"a", "b"}, R"({"a":"b"})"},
        {"", {"a", "b", "c"}, R"({"a":"b"})"},
        {"", {"a", "b", "c", "d"}, R"({"a":"b","c":"d"})"},
        {R"({"a":0})", {"a", "1"}, R"({"a":"1","a":0})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        EXPECT_EQ(StringUtils::AppendJsonString(c.body, c.pairs), c.expected);
    }
}

}  // namespace
}  // namespace orvik
