// Two plain text operations on URLs: raising an address from HTTP to HTTPS, and cutting out
// its host part. Neither parses a URL: each looks for fixed marks ("http:", "://", "/") in
// the text and leaves everything else as it found it.
//
// Both members are private: only members and friends of the class may call them, and this
// library has no such caller.
//
// Thread-safety: no state, no lock; both may be called from any thread.
#ifndef ORVIK_COMMON_HTTP_HELPER_H
#define ORVIK_COMMON_HTTP_HELPER_H

#include <string>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API HttpHelper {
    // The library's own tests; defined only there.
    friend class HttpHelperTestPeer;

    // Replaces a leading "http:", in any case, by "https:" and keeps the rest byte for byte;
    // any other text, and a text of 5 bytes or fewer, comes back unchanged. Case is compared
    // byte by byte with the C library's tolower. Applying it twice changes nothing more.
    //   "HTTP://Host/A"   =>  "https://Host/A"
    //   "hTtP:x"          =>  "https:x"
    //   "http:"           =>  "http:"            (too short)
    //   "https://host/a"  =>  "https://host/a"
    //   " http://host"    =>  " http://host"
    static std::string ConvertHttpToHttps(std::string url);

    // The text between the first "://" and the first "/" behind it (or the end), case kept;
    // empty when there is no "://". The scheme is not looked at, and nothing is removed from
    // the host: port, user information, and a query or fragment not preceded by a "/" stay.
    //   "https://host:443/a"  =>  "host:443"
    //   "https://host?x=/a"   =>  "host?x="
    //   "://host/a"           =>  "host"
    //   "https:///a"          =>  ""
    //   "host/a"              =>  ""
    static std::string GetUrlDomain(const std::string& url);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_HTTP_HELPER_H
