// Rules shared by the text sources: byte-wise case folding and the pieces of JSON entry text.
#ifndef ORVIK_COMMON_TEXT_DETAIL_H
#define ORVIK_COMMON_TEXT_DETAIL_H

#include <cctype>
#include <string>

namespace orvik::detail {

// One byte through the current C locale's tolower / toupper, stored back as one byte. The
// byte goes in as unsigned char, the one form std::tolower is defined for.
inline char LowerByte(char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}
inline char UpperByte(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// "key": (the opening of every entry)
inline void AppendJsonKey(std::string& out, const std::string& key) {
    out += '"';
    out += key;
    out += "\":";
}

// "key":"value" without a trailing comma; nothing is escaped.
inline void AppendJsonTextEntry(std::string& out, const std::string& key,
                                const std::string& value) {
    AppendJsonKey(out, key);
    out += '"';
    out += value;
    out += '"';
}

}  // namespace orvik::detail

#endif  // ORVIK_COMMON_TEXT_DETAIL_H
