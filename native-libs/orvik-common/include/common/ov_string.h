// A small self-contained owner of one zero-terminated byte string, and a pair of them, for
// callers that want a string type with a stable layout across a library boundary.
//
// OvString owns at most one heap block and never shares it: every copy is a deep copy. The
// block grows to the exact need of a longer text and never shrinks, so assigning a shorter
// text, or one of the former length again, allocates nothing. The length is not stored; it
// is counted up to the first zero byte on every call, so text behind an embedded zero byte is
// invisible to Length, to copies and to comparison.
//
// Thread-safety: no lock. Concurrent reads of one object are safe; a write needs exclusive
// access. Running out of memory goes out as std::bad_alloc; nothing here logs.
#ifndef ORVIK_COMMON_OV_STRING_H
#define ORVIK_COMMON_OV_STRING_H

#include <cstddef>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API OvString {
public:
    // The empty string; no heap block.
    OvString();
    // As default construction followed by assignment of `text` (null counts as empty).
    OvString(const char* text);  // NOLINT: implicit on purpose, like std::string's
    // A deep copy of `other`'s text.
    OvString(const OvString& other);
    virtual ~OvString();

    // Copies other.Length() bytes; no length limit. Assignment to itself keeps the text.
    OvString& operator=(const OvString& other);
    // A null `text` counts as the empty string. Otherwise at most 16,777,214 (0xFFFFFE) bytes
    // are taken, up to the first zero byte: a longer text is cut at that limit.
    OvString& operator=(const char* text);

    // Byte-for-byte equality of the two texts, case significant.
    bool operator==(const OvString& other) const;
    bool operator!=(const OvString& other) const;

    // The text, zero-terminated, never null. Valid until the object is next assigned to or
    // destroyed.
    const char* Cstr() const;
    // Bytes before the first zero byte, counted afresh on every call.
    size_t Length() const;
    bool IsEmpty() const;

private:
    // Points the raw fields at the built-in empty text; frees nothing.
    void Init();
    // Replaces the text by `length` bytes at `text` (which may lie inside the own block).
    void PutData(const char* text, size_t length);

    char* data;       // the text: &emptyByte, or the heap block owned by this object
    char emptyByte;   // the empty text of a string without a heap block; always 0
    size_t capacity;  // bytes available at data, terminator included; 1 for &emptyByte
};

// Two strings side by side. OvString has no move operations, so the move forms copy and the
// source keeps its texts. Each operation applies to `first`, then to `second`.
struct ORVIK_COMMON_API OvStringPair {
    OvStringPair();
    OvStringPair(const OvStringPair& other);
    OvStringPair(OvStringPair&& other);
    OvStringPair& operator=(const OvStringPair& other);
    OvStringPair& operator=(OvStringPair&& other);
    ~OvStringPair();

    OvString first;
    OvString second;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_OV_STRING_H
