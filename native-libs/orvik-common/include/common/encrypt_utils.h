// Small cryptographic conveniences over the system's libcrypto: Base64 text, random bytes, a
// random text of fixed length, the SHA-1 digest, and digests as printable hexadecimal text.
// Apart from the hex helpers, which return a std::string, everything works on buffers the
// caller supplies and sizes and allocates nothing; nothing here logs or throws (allocation
// failures aside).
//
// Thread-safety: stateless; concurrent calls on separate buffers are as safe as libcrypto.
#ifndef ORVIK_COMMON_ENCRYPT_UTILS_H
#define ORVIK_COMMON_ENCRYPT_UTILS_H

#include <cstddef>
#include <string>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API EncryptUtils {
public:
    EncryptUtils() = default;
    EncryptUtils(const EncryptUtils&) = default;
    EncryptUtils(EncryptUtils&&) = default;
    ~EncryptUtils() = default;
    // The class has no state; both assignments do nothing and return *this. They are defined
    // in the library so that they are part of its published surface.
    EncryptUtils& operator=(const EncryptUtils&) noexcept;
    EncryptUtils& operator=(EncryptUtils&&) noexcept;

    // Writes the Base64 text of the `srcLen` bytes at `src` to `dst`: standard alphabet, "="
    // padding, no line breaks, then a terminating NUL. Returns the number of characters
    // before the NUL:
    //   ""    => "" (only the NUL is written), 0     "abc"  => "YWJj", 4
    //   "f"   => "Zg==", 4                             "foob" => "Zm9vYg==", 8
    // Refused, with 0 returned and nothing written: a negative `srcLen`, and a `dstLen`
    // smaller than Base64EncodeOutLen(src, srcLen). So `dst` is never written past `dstLen`.
    static size_t Base64(unsigned char* dst, size_t dstLen, unsigned char* src, int srcLen);

    // The size of the buffer Base64 needs for `srcLen` bytes, the NUL included:
    // ((srcLen + 2) / 3) * 4 + 1, so 0 => 1, 1..3 => 5, 4 => 9. Does not read `src`. Returns 0
    // when the size does not fit a size_t.
    static size_t Base64EncodeOutLen(const unsigned char* src, size_t srcLen);

    // Fills the `len` bytes at `buf` with cryptographically strong random bytes, from the
    // private generator and, should that fail, from the public one. Returns 1 on success,
    // otherwise the public generator's failure value (0 or -1). A negative `len` fails.
    static int RandomByte(unsigned char* buf, int len);

    // Fills the `len` bytes at `buf` with random characters from the digits and the letters
    // of both cases, and returns `buf`. Writes no terminator: buf[len] is left as it was, so
    // a caller who wants a C string supplies len + 1 bytes and writes the NUL. Each byte is
    // drawn as RandomByte's byte modulo a 72-entry table (the digits stand in it twice),
    // so the characters are not equally likely: digits are the most frequent, and the
    // upper-case letters are drawn a quarter less often than the lower-case ones. With
    // `len` < 1 nothing is changed. The result is always `buf`; it does not tell whether the
    // random source worked.
    static char* RandomString(char* buf, int len);

    // Writes the 20 raw bytes (not hexadecimal text) of the SHA-1 digest of the `srcLen`
    // bytes at `src` to `dst`, which must hold 20 bytes. Returns 20.
    static size_t Sha1(unsigned char* dst, unsigned char* src, size_t srcLen);

    // The `length` bytes at `data` as lower-case hexadecimal text, two digits per byte, zero
    // padded:
    //   {0x00, 0x0f, 0xa0}  =>  "000fa0"      no bytes  =>  ""
    static std::string ToHex(const void* data, size_t length);

    // The SHA-1 and SHA-256 digests of the `length` bytes at `data` as ToHex text: 40 and 64
    // digits. Unlike StringUtils::GetHashText, a byte below 0x10 gives "0" and a digit, never a
    // blank:
    //   Sha1Hex("abc", 3)    =>  "a9993e364706816aba3e25717850c26c9cd0d89d"
    //   Sha256Hex("", 0)     =>  "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"
    // Empty if libcrypto fails.
    static std::string Sha1Hex(const void* data, size_t length);
    static std::string Sha256Hex(const void* data, size_t length);
};

}  // namespace orvik

#endif  // ORVIK_COMMON_ENCRYPT_UTILS_H
