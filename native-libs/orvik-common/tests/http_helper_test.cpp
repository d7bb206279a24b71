#include "common/http_helper.h"

#include <gtest/gtest.h>

#include <string>

namespace orvik {

// Reaches HttpHelper's private members, as its friend.
class HttpHelperTestPeer {
public:
    static std::string ConvertHttpToHttps(std::string url) {
        return HttpHelper::ConvertHttpToHttps(std::move(url));
    }
    static std::string GetUrlDomain(const std::string& url) {
        return HttpHelper::GetUrlDomain(url);
    }
};

namespace {

struct Case {
    const char* input;
    const char* expected;
};

TEST(HttpHelperTest, ConvertHttpToHttpsChangesOnlyAPlainScheme) {
    const Case cases[] = {
        {"http://host/a", "https://host/a"},
        {"HTTP://Host/A", "https://Host/A"},
        {"hTtP:x", "https:x"},
        {"http:", "http:"},
        {"https://host/a", "https://host/a"},
        {"ftp://host/a", "ftp://host/a"},
        {"", ""},
        {" http://host/a", " http://host/a"},
        {"httpx://host", "httpx://host"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(HttpHelperTestPeer::ConvertHttpToHttps(c.input), c.expected);
        EXPECT_EQ(
            HttpHelperTestPeer::ConvertHttpToHttps(HttpHelperTestPeer::ConvertHttpToHttps(c.input)),
            c.expected);
    }
    // Bytes behind the scheme pass through unchanged, NULs included.
    const std::string binary("http:\0\xff", 7);
    EXPECT_EQ(HttpHelperTestPeer::ConvertHttpToHttps(binary), std::string("https:\0\xff", 8));
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
    for (const Case& c : cases) {
        SCOPED_TRACE(c.input);
        EXPECT_EQ(HttpHelperTestPeer::GetUrlDomain(c.input), c.expected);
    }
}

}  // namespace
}  // namespace orvik
