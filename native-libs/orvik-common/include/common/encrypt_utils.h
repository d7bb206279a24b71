// Small cryptographic conveniences over the system's libcrypto: Base64 text, random bytes, a
// random text of fixed length and the SHA-1 digest. Everything works on buffers the caller
// supplies and sizes; nothing here allocates, logs or throws.
//
// Thread-safety: stateless; concurrent calls on separate buffers are as safe as libcrypto.
#ifndef ORVIK_COMMON_ENCRYPT_UTILS_H
#define ORVIK_COMMON_ENCRYPT_UTILS_H

#include <cstddef>

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
};

}  // namespace orvik

#endif  // ORVIK_COMMON_ENCRYPT_UTILS_H
