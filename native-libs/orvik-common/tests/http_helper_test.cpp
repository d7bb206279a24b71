#include "common/http_helper.h"

#include <gtest/gtest.h>

#include <string>

namespace orvik {

// Reaches HttpHelper's private members, as its friend.
class HttpHelperTestPeer {
public:
    static std::string Https(std::string url) { return HttpHelper::ConvertHttpToHttps(url); }
    static std::string Domain(const std::string& url) { return HttpHelper::GetUrlDomain(url); }
};

namespace {

// "http:" in any case and with more behind it becomes "https:"; the domain is "://" to "/".
TEST(HttpHelperTest, HttpsConversionAndDomainCut) {
    const struct {
        std::string url, https, domain;
    } cases[] = {
        {"HTTP://user:pw@Host:80/A", "https://user:pw@Host:80/A", "user:pw@Host:80"},
        {"http:", "http:", ""},
        {"https://host", "https://host", "host"},
        {"ftp:///a", "ftp:///a", ""},
        {"a://b://c/d", "a://b://c/d", "b:"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        EXPECT_EQ(HttpHelperTestPeer::Https(c.url), c.https);
        EXPECT_EQ(HttpHelperTestPeer::Domain(c.url), c.domain);
    }
}

}  // namespace
}  // namespace orvik
