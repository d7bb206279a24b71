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
    const struct {
        const char* name;
        void (*add)(JsonObject&);
        std::string expected;
    } cases[] = {
        {"string equal",
         [](JsonObject& o) { o.AddNodeIfNeed("k", std::string("v"), std::string("v")); }, "{}"},
        {"string differs by case",
         [](JsonObject& o) { o.AddNodeIfNeed("k", std::string("abc"), std::string("ABC")); },
         R"({"k":"abc"})"},
        {"int equal", [](JsonObject& o) { o.AddNodeIfNeed("k", 5, 5); }, "{}"},
        {"bool equal", [](JsonObject& o) { o.AddNodeIfNeed("k", true, true); }, "{}"},
        {"char equal", [](JsonObject& o) { o.AddNodeIfNeed("k", "v", "v"); }, "{}"},
        {"char equal ignoring case", [](JsonObject& o) { o.AddNodeIfNeed("k", "abc", "ABC"); },
         "{}"},
        {"char sorts below", [](JsonObject& o) { o.AddNodeIfNeed("k", "a", "b"); }, "{}"},
        {"char sorts above", [](JsonObject& o) { o.AddNodeIfNeed("k", "B", "a"); }, R"({"k":"B"})"},
        {"char longer", [](JsonObject& o) { o.AddNodeIfNeed("k", "ab", "A"); }, R"({"k":"ab"})"},
        {"char null value",
         [](JsonObject& o) { o.AddNodeIfNeed("k", static_cast<const char*>(nullptr), ""); }, "{}"},
        {"char null default",
         [](JsonObject& o) { o.AddNodeIfNeed("k", "v", static_cast<const char*>(nullptr)); }, "{}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        JsonObject object;
        c.add(object);
        EXPECT_EQ(object.ToString(), c.expected);
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
