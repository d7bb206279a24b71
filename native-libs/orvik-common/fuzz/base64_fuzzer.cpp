// EncryptUtils::Base64 and Base64EncodeOutLen with hostile lengths. Properties
// (common/encrypt_utils.h), with guard bytes on both sides of the destination:
//   - Base64EncodeOutLen(n) is ((n + 2) / 3) * 4 + 1, or 0 when that does not fit a size_t.
//   - Refused calls (negative srcLen, dstLen below the needed size, whatever srcLen claims)
//     return 0 and write nothing.
//   - Accepted calls write exactly needed - 1 characters of the standard alphabet with "="
//     padding, then a NUL, and nothing else, even when dstLen claims far more room; the text
//     decodes (OpenSSL's EVP_DecodeBlock) back to the source bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <openssl/evp.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "common/encrypt_utils.h"
#include "fuzz_check.h"

using orvik::EncryptUtils;

namespace {

constexpr std::size_t kGuard = 16;
constexpr unsigned char kGuardByte = 0xA5;

std::size_t ExpectedOutLen(std::size_t n) {
    const unsigned __int128 need = (static_cast<unsigned __int128>(n) + 2) / 3 * 4 + 1;
    return need > std::numeric_limits<std::size_t>::max() ? 0 : static_cast<std::size_t>(need);
}

bool Untouched(const std::vector<unsigned char>& buffer, std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
        if (buffer[i] != kGuardByte) {
            return false;
        }
    }
    return true;
}

bool IsBase64Text(const unsigned char* text, std::size_t length) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t padding = 0;
    while (padding < 2 && padding < length && text[length - 1 - padding] == '=') {
        ++padding;
    }
    for (std::size_t i = 0; i + padding < length; ++i) {
        if (text[i] == 0 || std::strchr(kAlphabet, text[i]) == nullptr) {
            return false;
        }
    }
    return length % 4 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    const std::size_t anyLength = provider.ConsumeIntegral<std::size_t>();
    FUZZ_CHECK(EncryptUtils::Base64EncodeOutLen(nullptr, anyLength) == ExpectedOutLen(anyLength));

    const int lengthMode = provider.ConsumeIntegralInRange(0, 3);
    const int roomMode = provider.ConsumeIntegralInRange(0, 3);
    const std::size_t extra = provider.ConsumeIntegralInRange<std::size_t>(0, 8);
    std::vector<unsigned char> src = provider.ConsumeRemainingBytes<unsigned char>();

    // What the call is told: the true length, a negative one, or a huge one.
    int srcLen = static_cast<int>(src.size());
    if (lengthMode == 1) {
        srcLen = -1 - static_cast<int>(extra);
    } else if (lengthMode == 2) {
        srcLen = INT_MAX - static_cast<int>(extra);
    }
    const std::size_t needed = EncryptUtils::Base64EncodeOutLen(src.data(), src.size());
    std::size_t dstLen = needed + extra;  // room enough
    if (roomMode == 1) {
        dstLen = needed > extra ? needed - 1 - extra % needed : 0;  // too small
    } else if (roomMode == 2) {
        dstLen = std::numeric_limits<std::size_t>::max() - extra;  // claims far more
    }
    const bool refused = srcLen < 0 || dstLen < EncryptUtils::Base64EncodeOutLen(
                                                    nullptr, static_cast<std::size_t>(srcLen));
    if (lengthMode == 2 && !refused) {
        return 0;  // a caller who lies about srcLen and leaves room for it: not our case
    }

    // Guards, then the real room: dstLen when refused, else what the text needs (plus extra).
    const std::size_t room = refused ? std::min(dstLen, needed + extra) : needed + extra;
    std::vector<unsigned char> buffer(kGuard + room + kGuard, kGuardByte);
    unsigned char* dst = buffer.data() + kGuard;
    const std::size_t written = EncryptUtils::Base64(dst, dstLen, src.data(), srcLen);
    if (refused) {
        FUZZ_CHECK(written == 0);
        FUZZ_CHECK(Untouched(buffer, 0, buffer.size()));
        return 0;
    }
    FUZZ_CHECK(written == needed - 1);
    FUZZ_CHECK(dst[written] == 0);
    FUZZ_CHECK(Untouched(buffer, 0, kGuard));
    FUZZ_CHECK(Untouched(buffer, kGuard + needed, buffer.size()));
    FUZZ_CHECK(IsBase64Text(dst, written));

    std::vector<unsigned char> decoded(written / 4 * 3 + 1);
    const int decodedLen = EVP_DecodeBlock(decoded.data(), dst, static_cast<int>(written));
    FUZZ_CHECK(decodedLen >= 0);
    const std::size_t padding =
        written >= 2 ? (dst[written - 1] == '=') + (dst[written - 2] == '=') : 0;
    FUZZ_CHECK(static_cast<std::size_t>(decodedLen) - padding == src.size());
    FUZZ_CHECK(src.empty() || std::memcmp(decoded.data(), src.data(), src.size()) == 0);
    return 0;
}
