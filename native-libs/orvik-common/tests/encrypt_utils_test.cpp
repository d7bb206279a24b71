#include "common/encrypt_utils.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <iterator>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace orvik {
namespace {

unsigned char* Bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

// Each vector also checks the exact size accepted with the byte behind it untouched, and that
// one byte less or a negative length is refused without a write.
TEST(EncryptUtilsTest, Base64EncodesTheStandardVectorsIntoExactlyTheSizeItAsksFor) {
    std::string inputs[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar", {"\xfb\xff\x00", 3}};
    const std::string outputs[] = {"",         "Zg==",     "Zm8=",     "Zm9v",
                                   "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy", "+/8A"};
    for (size_t i = 0; i < std::size(inputs); ++i) {
        std::string& input = inputs[i];
        const std::string& expected = outputs[i];
        SCOPED_TRACE(expected);
        const int size = static_cast<int>(input.size());
        const size_t needed = EncryptUtils::Base64EncodeOutLen(Bytes(input), input.size());
        ASSERT_EQ(needed, expected.size() + 1);
        std::vector<unsigned char> dst(needed + 1, '#');
        EXPECT_EQ(EncryptUtils::Base64(dst.data(), needed, Bytes(input), size), expected.size());
        EXPECT_EQ(std::string(dst.begin(), dst.end()), expected + '\0' + '#');

        std::vector<unsigned char> untouched(needed, '#');
        EXPECT_EQ(EncryptUtils::Base64(untouched.data(), needed - 1, Bytes(input), size), 0u);
        EXPECT_EQ(EncryptUtils::Base64(untouched.data(), needed, Bytes(input), -1), 0u);
        EXPECT_EQ(untouched, std::vector<unsigned char>(needed, '#'));
    }
}

// Every byte value in each of the three places of a group, at every length up to 256, gives
// libcrypto's text and count.
TEST(EncryptUtilsTest, Base64AgreesWithLibcryptoOnEveryByteAndLength) {
    std::vector<unsigned char> bytes(256);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    std::vector<unsigned char> ours(EncryptUtils::Base64EncodeOutLen(nullptr, bytes.size()));
    std::vector<unsigned char> theirs(ours.size());
    for (size_t offset = 0; offset < 3; ++offset) {
        for (size_t length = 0; offset + length <= bytes.size(); ++length) {
            const int size = static_cast<int>(length);
            const int expected = EVP_EncodeBlock(theirs.data(), bytes.data() + offset, size);
            ASSERT_EQ(EncryptUtils::Base64(ours.data(), ours.size(), bytes.data() + offset, size),
                      static_cast<size_t>(expected))
                << "offset " << offset << ", length " << length;
            ASSERT_EQ(std::memcmp(ours.data(), theirs.data(), static_cast<size_t>(expected) + 1), 0)
                << "offset " << offset << ", length " << length;
        }
    }
}

// Small lengths are checked with the vectors above.
TEST(EncryptUtilsTest, Base64EncodeOutLenReportsOverflowAsZero) {
    constexpr size_t kMax = std::numeric_limits<size_t>::max();
    constexpr size_t kLargest = (kMax / 4) * 3;  // the largest length whose size fits: kMax - 2
    EXPECT_EQ(EncryptUtils::Base64EncodeOutLen(nullptr, kLargest), kMax - 2);
    EXPECT_EQ(EncryptUtils::Base64EncodeOutLen(nullptr, kLargest + 1), 0u);
    EXPECT_EQ(EncryptUtils::Base64EncodeOutLen(nullptr, kMax - 2), 0u);
    EXPECT_EQ(EncryptUtils::Base64EncodeOutLen(nullptr, kMax), 0u);
}

TEST(EncryptUtilsTest, Sha1GivesTheStandardDigestsInTwentyBytes) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}};
    for (auto [input, expected] : cases) {
        SCOPED_TRACE(expected);
        unsigned char digest[21];
        digest[20] = 0x5a;
        EXPECT_EQ(EncryptUtils::Sha1(digest, Bytes(input), input.size()), 20u);
        EXPECT_EQ(EncryptUtils::ToHex(digest, 20), expected);
        EXPECT_EQ(digest[20], 0x5a);
        EXPECT_EQ(EncryptUtils::Sha1Hex(input.data(), input.size()), expected);
    }
}

// Bytes below 0x10 keep their leading zero, where StringUtils::GetHashText has a blank.
TEST(EncryptUtilsTest, HexTextIsZeroPaddedLowerCase) {
    const unsigned char bytes[] = {0x00, 0x01, 0x0f, 0x10, 0xab, 0xff};
    EXPECT_EQ(EncryptUtils::ToHex(bytes, sizeof bytes), "00010f10abff");
    EXPECT_EQ(EncryptUtils::ToHex(bytes, 0), "");
    const std::pair<std::string, std::string> cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}};
    for (const auto& [input, expected] : cases) {
        SCOPED_TRACE(input);
        EXPECT_EQ(EncryptUtils::Sha256Hex(input.data(), input.size()), expected);
    }
}

TEST(EncryptUtilsTest, RandomByteFillsTheBuffer) {
    unsigned char first[32] = {}, second[32] = {};
    EXPECT_EQ(EncryptUtils::RandomByte(first, sizeof first), 1);
    EXPECT_EQ(EncryptUtils::RandomByte(second, sizeof second), 1);
    EXPECT_NE(std::memcmp(first, second, sizeof first), 0);
    EXPECT_EQ(EncryptUtils::RandomByte(first, 0), 1);
    EXPECT_NE(EncryptUtils::RandomByte(first, -1), 1);
}

// A sample of 20000 misses one of the 62 characters with a chance far below 1e-90.
TEST(EncryptUtilsTest, RandomStringUsesTheWholeAlphabetAndLeavesBufLenAlone) {
    std::string buf(20001, '\x7f');
    EXPECT_EQ(EncryptUtils::RandomString(buf.data(), 20000), buf.data());
    EXPECT_EQ(buf.back(), '\x7f');
    buf.pop_back();
    const std::set<char> seen(buf.begin(), buf.end());
    EXPECT_EQ(std::string(seen.begin(), seen.end()),
              "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");

    // Nothing changes for a length below 1.
    const std::string before = buf;
    EXPECT_EQ(EncryptUtils::RandomString(buf.data(), 0), buf.data());
    EXPECT_EQ(EncryptUtils::RandomString(buf.data(), -3), buf.data());
    EXPECT_EQ(buf, before);
}

}  // namespace
}  // namespace orvik
