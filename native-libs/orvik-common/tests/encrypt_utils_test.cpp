#include "common/encrypt_utils.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <numeric>
#include <set>
#include <vector>

namespace orvik {
namespace {

using E = EncryptUtils;

// Our encoder against libcrypto's: every byte in each place of a group, lengths 0 to 256, in
// exactly the size it asks for (one byte less gives 0); and the digests of "abc".
TEST(EncryptUtilsTest, Base64AgreesWithLibcryptoAndDigestsAreStandard) {
    std::vector<unsigned char> bytes(259), theirs(400);
    std::iota(bytes.begin(), bytes.end(), 0);
    for (int at = 0; at < 3 * 257; ++at) {
        unsigned char* src = bytes.data() + at / 257;
        const int length = at % 257;
        const auto expected = static_cast<size_t>(EVP_EncodeBlock(theirs.data(), src, length));
        const size_t needed = E::Base64EncodeOutLen(src, length);
        std::vector<unsigned char> ours(needed + 1, '#');
        ASSERT_EQ(E::Base64(ours.data(), needed - 1, src, length), 0u);
        ASSERT_EQ(E::Base64(ours.data(), needed, src, length), expected);
        ASSERT_EQ(std::memcmp(ours.data(), theirs.data(), expected + 1) + ours[needed], '#') << at;
    }
    EXPECT_EQ(E::Base64(theirs.data(), 400, bytes.data(), -1), 0u);
    constexpr size_t kMax = ~size_t{0}, kLargest = kMax / 4 * 3;  // the last length that fits
    EXPECT_EQ(E::Base64EncodeOutLen(nullptr, kLargest), kMax - 2);
    for (const size_t overflowing : {kLargest + 1, kMax - 1, kMax}) {
        EXPECT_EQ(E::Base64EncodeOutLen(nullptr, overflowing), 0u) << overflowing;
    }
    unsigned char abc[] = "abc", digest[20];
    EXPECT_EQ(E::Sha1Hex(abc, 3), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(E::ToHex(digest, E::Sha1(digest, abc, 3)), E::Sha1Hex(abc, 3));
    EXPECT_EQ(E::Sha256Hex(abc, 3),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // 20000 characters miss one of the 62 with a chance far below 1e-90; the 0x7f behind stays.
    EXPECT_EQ(E::RandomByte(digest, 8), 1);
    EXPECT_NE(E::RandomByte(digest, -1), 1);
    std::string buf(20001, '\x7f');
    EXPECT_EQ(E::RandomString(buf.data(), -3), std::string(20001, '\x7f'));
    EXPECT_EQ(E::RandomString(buf.data(), 20000), buf.data());
    EXPECT_EQ(std::set<char>(buf.begin(), buf.end()).size(), 63u);
}

}  // namespace
}  // namespace orvik
