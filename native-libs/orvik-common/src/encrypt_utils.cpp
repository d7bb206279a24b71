#include "common/encrypt_utils.h"

#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <limits>
#include <string>

namespace orvik {
namespace {

// RandomString's characters. The digits stand in it twice; see the header for what that does
// to the odds of each character.
constexpr char kRandomStringTable[] =
    "0123456789abcdefghijklmnopqrstuvwxyz"
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr size_t kRandomStringTableSize = sizeof kRandomStringTable - 1;
static_assert(kRandomStringTableSize == 72, "ten digits, 26 letters, twice");

}  // namespace

EncryptUtils& EncryptUtils::operator=(const EncryptUtils&) noexcept = default;
EncryptUtils& EncryptUtils::operator=(EncryptUtils&&) noexcept = default;

size_t EncryptUtils::Base64(unsigned char* dst, size_t dstLen, unsigned char* src, int srcLen) {
    if (srcLen < 0 || dstLen < Base64EncodeOutLen(src, static_cast<size_t>(srcLen))) {
        return 0;
    }
    // The count is an int; it is widened with its sign, as the caller of the int would see it.
    return static_cast<size_t>(static_cast<long long>(EVP_EncodeBlock(dst, src, srcLen)));
}

size_t EncryptUtils::Base64EncodeOutLen(const unsigned char*, size_t srcLen) {
    constexpr size_t kMax = std::numeric_limits<size_t>::max();
    if (srcLen > kMax - 2) {
        return 0;
    }
    const size_t groups = (srcLen + 2) / 3;
    if (groups > (kMax - 1) / 4) {
        return 0;
    }
    return groups * 4 + 1;
}

int EncryptUtils::RandomByte(unsigned char* buf, int len) {
    if (RAND_priv_bytes(buf, len) == 1) {
        return 1;
    }
    return RAND_bytes(buf, len);
}

char* EncryptUtils::RandomString(char* buf, int len) {
    RandomByte(reinterpret_cast<unsigned char*>(buf), len);
    for (int i = 0; i < len; ++i) {
        buf[i] = kRandomStringTable[static_cast<unsigned char>(buf[i]) % kRandomStringTableSize];
    }
    return buf;
}

size_t EncryptUtils::Sha1(unsigned char* dst, unsigned char* src, size_t srcLen) {
    SHA1(src, srcLen, dst);
    return SHA_DIGEST_LENGTH;
}

std::string EncryptUtils::ToHex(const void* data, size_t length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    const auto* bytes = static_cast<const unsigned char*>(data);
    std::string text(2 * length, '0');
    for (size_t i = 0; i < length; ++i) {
        text[2 * i] = kDigits[bytes[i] >> 4];
        text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
    }
    return text;
}

std::string EncryptUtils::Sha1Hex(const void* data, size_t length) {
    unsigned char digest[SHA_DIGEST_LENGTH];
    if (SHA1(static_cast<const unsigned char*>(data), length, digest) == nullptr) {
        return std::string();
    }
    return ToHex(digest, sizeof digest);
}

std::string EncryptUtils::Sha256Hex(const void* data, size_t length) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    if (SHA256(static_cast<const unsigned char*>(data), length, digest) == nullptr) {
        return std::string();
    }
    return ToHex(digest, sizeof digest);
}

}  // namespace orvik
