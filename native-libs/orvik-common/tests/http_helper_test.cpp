#include "common/http_helper.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace orvik {

// Reaches HttpHelper's private members, as its friend.
class HttpHelperTestPeer {
public:
    static std::string Https(std::string url) { return HttpHelper::ConvertHttpToHttps(url); }
    static std::string Domain(const std::string& url) { return HttpHelper::GetUrlDomain(url); }
};

namespace {

using Case = std::pair<std::string, std::string>;

TEST(HttpHelperTest, ConvertHttpToHttpsChangesOnlyAPlainScheme) {
    const Case cases[] = {
        {"http://host/a", "https://host/a"},
        {"HTTP://Host/A", "https://Host/A"},
        {"hTtP:x", "https:x"},
        {{"http:\0\xff", 7}, {"https:\0\xff", 8}},
        {"http:", "http:"},
        {"https://host/a", "https://host/a"},
        {"ftp://host/a", "ftp://host/a"},
        {"", ""},
        {" http://host/a", " http://host/a"},
        {"httpx://host", "httpx://host"},
    };
    for (const auto& [input, expected] : cases) {
        SCOPED_TRACE(input);
        EXPECT_EQ(HttpHelperTestPeer::Https(input), expected);
    }
}

TEST(HttpHelperTest, GetUrlDomainCutsBetweenSchemeSeparatorAndPath) {
    const Case cases[] = {
        {"https://host/a/b", "host"},
        {"https://host", "host"},
        {"https://host:443/a", "host:443"},
        {"https://user:pw@host/a", "user:pw@host"},
        {"https://host?x=1", "host?x=1"},
        {"https://host?x=/a", "host?x="},
        {"HTTPS://Host/A", "Host"},
        {"any://host/a", "host"},
        {"://host/a", "host"},
        {"https://", ""},
        {"https:///a", ""},
        {"host/a", ""},
        {"", ""},
        {"a://b://c/d", "b:"},
    };
    for (const auto& [input, expected] : cases) {
        SCOPED_TRACE(input);
        EXPECT_EQ(HttpHelperTestPeer::Domain(input), expected);
    }
}

}  // namespace
}  // namespace orvik
