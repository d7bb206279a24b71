#include "common/encrypt_utils.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace orvik {
namespace {

unsigned char* Bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

std::string Hex(const unsigned char* bytes, size_t size) {
    std::string hex;
    char digits[3];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        hex += digits;
    }
    return hex;
}

TEST(EncryptUtilsTest, Base64EncodesTheStandardVectors) {
    const struct {
        std::string input;
        std::string expected;
    } cases[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {std::string("\xfb\xff\x00", 3), "+/8A"},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.expected);
        const int size = static_cast<int>(c.input.size());
        const size_t needed = EncryptUtils::Base64EncodeOutLen(Bytes(c.input), c.input.size());
        ASSERT_EQ(needed, c.expected.size() + 1);
        // Exactly the needed size is accepted; the byte behind it stays untouched.
        std::vector<unsigned char> dst(needed + 1, '#');
        EXPECT_EQ(EncryptUtils::Base64(dst.data(), needed, Bytes(c.input), size),
                  c.expected.size());
        EXPECT_EQ(std::string(dst.begin(), dst.begin() + needed - 1), c.expected);
        EXPECT_EQ(dst[needed - 1], '\0');
        EXPECT_EQ(dst[needed], '#');

        // One byte less, or a negative length, is refused and writes nothing.
        std::vector<unsigned char> untouched(needed, '#');
        EXPECT_EQ(EncryptUtils::Base64(untouched.data(), needed - 1, Bytes(c.input), size), 0u);
        EXPECT_EQ(EncryptUtils::Base64(untouched.data(), needed, Bytes(c.input), -1), 0u);
        EXPECT_EQ(untouched, std::vector<unsigned char>(needed, '#'));
    }
}

TEST(EncryptUtilsTest, Base64EncodeOutLenCountsTheNulAndReportsOverflowAsZero) {
    constexpr size_t kMax = std::numeric_limits<size_t>::max();
    // The largest length whose size fits: (2^62 - 1) groups of 3 bytes => kMax - 2.
    constexpr size_t kLargest = (kMax / 4) * 3;
    const struct {
        size_t srcLen;
        size_t expected;
    } cases[] = {
        {0, 1},
        {1, 5},
        {2, 5},
        {3, 5},
        {4, 9},
        {6, 9},
        {7, 13},
        {kLargest, kMax - 2},
        {kLargest + 1, 0},
        {kMax - 2, 0},
        {kMax - 1, 0},
        {kMax, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.srcLen);
        EXPECT_EQ(EncryptUtils::Base64EncodeOutLen(nullptr, c.srcLen), c.expected);
    }
}

TEST(EncryptUtilsTest, Sha1GivesTheStandardDigests) {
    const struct {
        std::string input;
        const char* expected;
    } cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.expected);
        unsigned char digest[21];
        digest[20] = 0x5a;
        EXPECT_EQ(EncryptUtils::Sha1(digest, Bytes(c.input), c.input.size()), 20u);
        EXPECT_EQ(Hex(digest, 20), c.expected);
        EXPECT_EQ(digest[20], 0x5a);
    }
}

TEST(EncryptUtilsTest, RandomByteFillsTheBuffer) {
    unsigned char first[32] = {};
    unsigned char second[32] = {};
    EXPECT_EQ(EncryptUtils::RandomByte(first, sizeof first), 1);
    EXPECT_EQ(EncryptUtils::RandomByte(second, sizeof second), 1);
    EXPECT_NE(Hex(first, sizeof first), Hex(second, sizeof second));
    EXPECT_EQ(EncryptUtils::RandomByte(first, 0), 1);
    EXPECT_NE(EncryptUtils::RandomByte(first, -1), 1);
}

TEST(EncryptUtilsTest, RandomStringDrawsFromDigitsAndLettersAndLeavesBufLenAlone) {
    const std::string alphabet = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    char buf[17];
    buf[16] = '\x7f';
    EXPECT_EQ(EncryptUtils::RandomString(buf, 16), buf);
    EXPECT_EQ(buf[16], '\x7f');
    for (int i = 0; i < 16; ++i) {
        EXPECT_NE(alphabet.find(buf[i]), std::string::npos) << "byte " << i;
    }

    // Nothing changes for a length below 1.
    const std::string before(buf, sizeof buf);
    EXPECT_EQ(EncryptUtils::RandomString(buf, 0), buf);
    EXPECT_EQ(EncryptUtils::RandomString(buf, -3), buf);
    EXPECT_EQ(std::string(buf, sizeof buf), before);

    // Every character of the alphabet turns up, and nothing else: a sample of 20000 misses
    // one of them with a chance far below 1e-90.
    std::string sample(20000, '\0');
    EncryptUtils::RandomString(sample.data(), static_cast<int>(sample.size()));
    const std::set<char> seen(sample.begin(), sample.end());
    EXPECT_EQ(std::string(seen.begin(), seen.end()),
              "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

}  // namespace
}  // namespace orvik
