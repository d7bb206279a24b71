// HttpHelper, reached as the tests reach it: through its friend HttpHelperTestPeer. Properties
// (common/http_helper.h), against the documented rules written out here:
//   - ConvertHttpToHttps: a text of more than 5 bytes whose first five bytes are "http:" in any
//     (ASCII) case gets "https:" in their place; every other text comes back unchanged. A
//     second application changes nothing more.
//   - GetUrlDomain: the bytes between the first "://" and the first "/" behind it (or the
//     end); "" without "://".
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/http_helper.h"
#include "fuzz_check.h"

namespace orvik {
class HttpHelperTestPeer {
public:
    static std::string Https(std::string url) { return HttpHelper::ConvertHttpToHttps(url); }
    static std::string Domain(const std::string& url) { return HttpHelper::GetUrlDomain(url); }
};
}  // namespace orvik

using orvik::HttpHelperTestPeer;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(reinterpret_cast<const char*>(data), size);

    std::string head = url.substr(0, 5);
    for (char& c : head) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    const std::string https = url.size() > 5 && head == "http:" ? "https:" + url.substr(5) : url;
    FUZZ_CHECK(HttpHelperTestPeer::Https(url) == https);
    FUZZ_CHECK(HttpHelperTestPeer::Https(https) == https);

    std::string domain;
    const std::size_t mark = url.find("://");
    if (mark != std::string::npos) {
        domain = url.substr(mark + 3);
        domain = domain.substr(0, domain.find('/'));
    }
    FUZZ_CHECK(HttpHelperTestPeer::Domain(url) == domain);
    return 0;
}
