#include "common/http_helper.h"

#include <cctype>
#include <string_view>

namespace orvik {
namespace {

constexpr std::string_view kPlainScheme = "http:";
constexpr std::string_view kSecureScheme = "https:";
constexpr std::string_view kSchemeSeparator = "://";
constexpr std::string_view kPathSeparator = "/";

}  // namespace

std::string HttpHelper::ConvertHttpToHttps(std::string url) {
    if (url.size() <= kPlainScheme.size()) {
        return url;
    }
    for (size_t i = 0; i < kPlainScheme.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(url[i])) != kPlainScheme[i]) {
            return url;
        }
    }
    url.replace(0, kPlainScheme.size(), kSecureScheme);
    return url;
}

std::string HttpHelper::GetUrlDomain(const std::string& url) {
    const size_t separator = url.find(kSchemeSeparator);
    if (separator == std::string::npos) {
        return std::string();
    }
    const size_t host = separator + kSchemeSeparator.size();
    const size_t path = url.find(kPathSeparator, host);
    return url.substr(host, path == std::string::npos ? std::string::npos : path - host);
}

}  // namespace orvik
