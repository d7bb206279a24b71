#include "common/encrypt_utils.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <cstring>
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

// The size of the Base64 text of `length` bytes with its NUL, for lengths where that cannot
// overflow (every int does not).
constexpr size_t EncodedSize(size_t length) {
    return (length + 2) / 3 * 4 + 1;
}

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of every 12-bit value, so that a group of three bytes takes two lookups.
struct Base64Pairs {
    char text[4096][2];
};
constexpr Base64Pairs MakeBase64Pairs() {
    Base64Pairs pairs{};
    for (unsigned value = 0; value < 4096; ++value) {
        pairs.text[value][0] = kBase64Alphabet[value >> 6];
        pairs.text[value][1] = kBase64Alphabet[value & 63];
    }
    return pairs;
}
constexpr Base64Pairs kBase64Pairs = MakeBase64Pairs();

// The standard alphabet, "=" padding, no line breaks, then a NUL: the text EVP_EncodeBlock
// writes, made here because a call of EVP_EncodeBlock costs more on short inputs than the
// whole encoding (it picks its alphabet and converts byte by byte). Returns the number of
// characters before the NUL. `dst` holds EncodedSize(length) bytes.
size_t EncodeBase64(unsigned char* dst, const unsigned char* src, size_t length) {
    unsigned char* out = dst;
    size_t at = 0;
    for (; length - at >= 3; at += 3, out += 4) {
        const unsigned group = static_cast<unsigned>(src[at]) << 16 |
                               static_cast<unsigned>(src[at + 1]) << 8 | src[at + 2];
        std::memcpy(out, kBase64Pairs.text[group >> 12], 2);
        std::memcpy(out + 2, kBase64Pairs.text[group & 0xFFF], 2);
    }
    if (at < length) {
        const bool two = length - at == 2;
        const unsigned group = static_cast<unsigned>(src[at]) << 16 |
                               (two ? static_cast<unsigned>(src[at + 1]) << 8 : 0U);
        std::memcpy(out, kBase64Pairs.text[group >> 12], 2);
        out[2] = two ? static_cast<unsigned char>(kBase64Alphabet[group >> 6 & 63]) : '=';
        out[3] = '=';
        out += 4;
    }
    *out = '\0';
    return static_cast<size_t>(out - dst);
}

}  // namespace

EncryptUtils& EncryptUtils::operator=(const EncryptUtils&) noexcept = default;
EncryptUtils& EncryptUtils::operator=(EncryptUtils&&) noexcept = default;

size_t EncryptUtils::Base64(unsigned char* dst, size_t dstLen, unsigned char* src, int srcLen) {
    if (srcLen < 0 || dstLen < EncodedSize(static_cast<size_t>(srcLen))) {
        return 0;
    }
    return EncodeBase64(dst, src, static_cast<size_t>(srcLen));
}

size_t EncryptUtils::Base64EncodeOutLen(const unsigned char*, size_t srcLen) {
    constexpr size_t kMax = std::numeric_limits<size_t>::max();
    if (srcLen > kMax - 2) {
        return 0;
    }
    if ((srcLen + 2) / 3 > (kMax - 1) / 4) {
        return 0;
    }
    return EncodedSize(srcLen);
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
