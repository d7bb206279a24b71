#include "common/string_utils.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <optional>
#include <string_view>

#include "common/ov_string.h"
#include "internal/internal_log.h"
#include "internal/library_frame.h"
#include "internal/text_detail.h"

namespace orvik {
namespace {

// The most bytes that assignment from a plain C string takes.
constexpr size_t kMaxCStringLength = 0xFFFFFE;

bool EqualFolded(char a, char b) {
    return detail::LowerByte(a) == detail::LowerByte(b);
}

// Why an integer parse gave nothing; the words are those of the warning lines.
enum class ParseFailure { kInvalid, kOutOfRange };

const char* FailureWord(ParseFailure failure) {
    return failure == ParseFailure::kInvalid ? "invalid" : "out_of_range";
}

// Reads `text` as std::stoll does (white space, sign, decimal digits as far as they go) without
// throwing: an empty text gives nothing silently; no digits or a value beyond 64 bits calls
// `warn` with the reason and gives nothing. The caller's errno is kept, as std::stoll keeps it.
template <class Warn>
std::optional<long long> ParseInteger(const std::string& text, Warn warn) {
    if (text.empty()) {
        return std::nullopt;
    }
    const int savedErrno = errno;
    errno = 0;
    const char* begin = text.c_str();
    char* end = nullptr;
    const long long value = std::strtoll(begin, &end, 10);
    const bool outOfRange = errno == ERANGE;
    errno = savedErrno;
    if (end == begin) {
        warn(ParseFailure::kInvalid);
        return std::nullopt;
    }
    if (outOfRange) {
        warn(ParseFailure::kOutOfRange);
        return std::nullopt;
    }
    return value;
}

// The low 32 bits of `value` as a signed number.
std::int32_t Low32Bits(long long value) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

// The next occurrence of the non-empty `sep` in `text` from `from` on; a one-byte separator,
// the common case, goes through the plain byte search.
size_t FindSeparator(std::string_view text, std::string_view sep, size_t from) {
    return sep.size() == 1 ? text.find(sep[0], from) : text.find(sep, from);
}

// The occurrences of the non-empty `sep` in `text`, taken from left to right without overlap.
// A one-byte separator is counted in one pass over the bytes rather than one search per field,
// which for short fields costs more than the counting itself.
size_t CountSeparators(std::string_view text, std::string_view sep) {
    if (sep.size() == 1) {
        return static_cast<size_t>(std::count(text.begin(), text.end(), sep[0]));
    }
    size_t count = 0;
    for (size_t at = text.find(sep); at != std::string_view::npos;
         at = text.find(sep, at + sep.size())) {
        ++count;
    }
    return count;
}

// Appends the piece of `text` in front of each occurrence of the non-empty `sep`, taken from
// left to right without overlap, and returns the position behind the last occurrence (0 if
// there is none). The occurrences are counted first so that the vector is allocated once:
// growing it step by step would move every field again on each step.
size_t AppendFieldsBeforeEachSeparator(std::string_view text, std::string_view sep,
                                       std::vector<std::string>& fields) {
    fields.reserve(fields.size() + CountSeparators(text, sep) + 1);
    size_t position = 0;
    for (size_t found; (found = FindSeparator(text, sep, position)) != std::string_view::npos;
         position = found + sep.size()) {
        fields.emplace_back(text.data() + position, found - position);
    }
    return position;
}

}  // namespace

// ---- OvString ---------------------------------------------------------------------------------

OvString::OvString() {
    Init();
}

OvString::OvString(const char* text) {
    Init();
    *this = text;
}

OvString::OvString(const OvString& other) {
    Init();
    *this = other;
}

OvString::~OvString() {
    if (data != &emptyByte) {
        delete[] data;
    }
}

OvString& OvString::operator=(const OvString& other) {
    PutData(other.Cstr(), other.Length());
    return *this;
}

OvString& OvString::operator=(const char* text) {
    size_t length = 0;
    if (text != nullptr) {
        while (length < kMaxCStringLength && text[length] != '\0') {
            ++length;
        }
    }
    PutData(text, length);
    return *this;
}

bool OvString::operator==(const OvString& other) const {
    return std::strcmp(data, other.data) == 0;
}

bool OvString::operator!=(const OvString& other) const {
    return !(*this == other);
}

const char* OvString::Cstr() const {
    return data;
}

size_t OvString::Length() const {
    return std::strlen(data);
}

bool OvString::IsEmpty() const {
    return data[0] == '\0';
}

void OvString::Init() {
    emptyByte = '\0';
    data = &emptyByte;
    capacity = 1;
}

void OvString::PutData(const char* text, size_t length) {
    if (text == nullptr || length == 0) {
        data[0] = '\0';
        return;
    }
    if (length > capacity - 1) {
        // A text inside the own block is never longer than capacity - 1, so `text` cannot
        // point into the block freed here. The new block is taken first so that a failed
        // allocation leaves the object as it was.
        char* block = new char[length + 1];
        if (data != &emptyByte) {
            delete[] data;
        }
        data = block;
        capacity = length + 1;
    }
    std::memmove(data, text, length);  // `text` may overlap the own block
    data[length] = '\0';
}

// ---- OvStringPair -----------------------------------------------------------------------------

OvStringPair::OvStringPair() = default;
OvStringPair::OvStringPair(const OvStringPair& other) = default;
// OvString cannot move: the pair's move copies and leaves the source as it was.
OvStringPair::OvStringPair(OvStringPair&& other) : first(other.first), second(other.second) {}
OvStringPair& OvStringPair::operator=(const OvStringPair& other) = default;
OvStringPair& OvStringPair::operator=(OvStringPair&& other) {
    first = other.first;
    second = other.second;
    return *this;
}
OvStringPair::~OvStringPair() = default;

// ---- Comparison and case ----------------------------------------------------------------------

bool StringUtils::Equals(const std::string& first, const std::string& second) {
    return first == second;
}

bool StringUtils::EqualsIgnoreCase(const std::string& first, const std::string& second) {
    return first.size() == second.size() &&
           std::equal(first.begin(), first.end(), second.begin(), EqualFolded);
}

bool StringUtils::Contains(const std::string& first, const std::string& second) {
    return first.find(second) != std::string::npos;
}

bool StringUtils::ContainedIgnoreCase(const std::string& first, const std::string& second) {
    if (first.empty() || second.empty()) {
        return false;
    }
    return std::search(first.begin(), first.end(), second.begin(), second.end(), EqualFolded) !=
           first.end();
}

bool StringUtils::StartsWith(const std::string& first, const std::string& second) {
    return first.size() >= second.size() && first.compare(0, second.size(), second) == 0;
}

bool StringUtils::StartsWithIgnoreCase(const std::string& first, const std::string& second) {
    if (first.empty() || second.empty() || first.size() < second.size()) {
        return false;
    }
    return std::equal(second.begin(), second.end(), first.begin(), EqualFolded);
}

bool StringUtils::EndsWith(const std::string& first, const std::string& second) {
    return first.size() >= second.size() &&
           first.compare(first.size() - second.size(), second.size(), second) == 0;
}

std::string StringUtils::ToLowerCase(const std::string& text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), detail::LowerByte);
    return result;
}

std::string StringUtils::ToUpperCase(const std::string& text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), detail::UpperByte);
    return result;
}

void StringUtils::Trim(std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    text.erase(0, first);
}

// ---- Split, join and extraction ---------------------------------------------------------------

std::vector<std::string> StringUtils::SplitString(const std::string& text, const std::string& sep) {
    std::vector<std::string> result;
    if (text.empty()) {
        return result;
    }
    if (sep.empty()) {
        result.push_back(text);
        return result;
    }
    // Split as if one more separator stood behind the text, without copying the text: the
    // fields before each separator inside the text, then the last field, which ends at the
    // first separator in the rest of the text followed by that added one. It is found there
    // (an occurrence may straddle the text's end and the added separator), and only that piece
    // is copied, into the string the result keeps.
    const size_t rest = AppendFieldsBeforeEachSeparator(text, sep, result);
    std::string last(text, rest);
    last.append(sep);
    last.resize(last.find(sep));
    result.push_back(std::move(last));
    return result;
}

std::vector<std::string> StringUtils::SplitAllByString(const std::string& text,
                                                       const std::string& sep) {
    std::vector<std::string> result;
    if (sep.empty() || text.find(sep) == std::string::npos) {
        result.push_back(text);
        return result;
    }
    const size_t rest = AppendFieldsBeforeEachSeparator(text, sep, result);
    if (rest < text.size()) {
        result.emplace_back(text, rest);
    }
    return result;
}

std::vector<std::string> StringUtils::SplitFirstByString(const std::string& text,
                                                         const std::string& sep) {
    std::vector<std::string> result;
    const size_t found = text.find(sep);
    if (found == std::string::npos) {
        result.push_back(text);
        return result;
    }
    result.reserve(2);
    result.emplace_back(text, 0, found);
    result.emplace_back(text, found + sep.size());
    return result;
}

std::string StringUtils::Join(std::vector<std::string>& items, const std::string& sep) {
    std::string result;
    if (items.empty()) {
        return result;
    }
    size_t size = sep.size() * (items.size() - 1);
    for (const std::string& item : items) {
        size += item.size();
    }
    result.reserve(size);
    for (size_t i = 0; i < items.size(); ++i) {
        if (i > 0) {
            result += sep;
        }
        result += items[i];
    }
    return result;
}

std::vector<std::string> StringUtils::FetchConsecutiveNumbers(std::string text) {
    // The runs that the regular expression \d+ finds one after the other. A regular expression
    // built now would take its digit class from the global locale's ctype facet; asking that
    // facet directly gives the same runs without building one on every call.
    const std::locale locale;
    const auto& ctype = std::use_facet<std::ctype<char>>(locale);
    const auto isDigit = [&ctype](char c) { return ctype.is(std::ctype_base::digit, c); };
    std::vector<std::string> result;
    auto run = std::find_if(text.begin(), text.end(), isDigit);
    while (run != text.end()) {
        const auto runEnd = std::find_if_not(run, text.end(), isDigit);
        result.emplace_back(run, runEnd);
        run = std::find_if(runEnd, text.end(), isDigit);
    }
    return result;
}

std::string StringUtils::GetHashText(const void* data, const size_t& length) {
    unsigned char digest[SHA256_DIGEST_LENGTH] = {};
    if (SHA256(static_cast<const unsigned char*>(data), length, digest) == nullptr) {
        return std::string();
    }
    // Width 2 with the default blank fill: a byte below 0x10 is a blank and one digit.
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text(2 * SHA256_DIGEST_LENGTH, ' ');
    for (size_t i = 0; i < SHA256_DIGEST_LENGTH; ++i) {
        if (digest[i] >= 0x10) {
            text[2 * i] = kDigits[digest[i] >> 4];
        }
        text[2 * i + 1] = kDigits[digest[i] & 0x0F];
    }
    return text;
}

std::string StringUtils::SpaceToUnderscore(std::string text, const std::string& chars,
                                           const char& replacement) {
    if (chars.empty()) {
        return text;
    }
    for (char& c : text) {
        if (chars.find(c) != std::string::npos) {
            c = replacement;
        }
    }
    return text;
}

std::string StringUtils::CharToString(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

// ---- Number and bool conversion ---------------------------------------------------------------

bool StringUtils::CheckNumber(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool StringUtils::CheckBool(const std::string& text) {
    return EqualsIgnoreCase(text, detail::trueText) || EqualsIgnoreCase(text, detail::falseText);
}

int StringUtils::StrTollInt(std::string& text, int defaultValue) {
    const auto value = ParseInteger(text, [](ParseFailure failure) {
        ORVIK_LOG(LOG_LEVEL_WARN, "StrTollInt %s", FailureWord(failure));
    });
    return value ? Low32Bits(*value) : defaultValue;
}

long StringUtils::StrTollLong(std::string& text, long defaultValue) {
    const auto value = ParseInteger(text, [](ParseFailure failure) {
        ORVIK_LOG(LOG_LEVEL_WARN, "StrTollLong %s", FailureWord(failure));
    });
    return value ? Low32Bits(*value) : defaultValue;
}

float StringUtils::StrTollFloat(std::string& text, float defaultValue) {
    const auto value = ParseInteger(text, [](ParseFailure failure) {
        ORVIK_LOG(LOG_LEVEL_WARN, "StrTollFloat %s", FailureWord(failure));
    });
    return value ? static_cast<float>(*value) : defaultValue;
}

double StringUtils::StrTollDouble(std::string& text, double defaultValue) {
    const auto value = ParseInteger(text, [](ParseFailure failure) {
        ORVIK_LOG(LOG_LEVEL_WARN, "StrTollDouble %s", FailureWord(failure));
    });
    return value ? static_cast<double>(*value) : defaultValue;
}

bool StringUtils::StrTollBool(std::string& text, bool defaultValue) {
    if (text.empty()) {
        return defaultValue;
    }
    if (CheckBool(text)) {
        return EqualsIgnoreCase(text, detail::trueText);
    }
    ORVIK_LOG(LOG_LEVEL_WARN, "StrTollBool unknown exception");
    return defaultValue;
}

// ---- JSON text ----------------------------------------------------------------------------------

std::string StringUtils::AppendJsonString(const std::string& body,
                                          std::initializer_list<std::string> pairs) {
    std::string result = "{";
    const std::string* element = pairs.begin();
    bool wrotePair = false;
    for (size_t left = pairs.size(); left >= 2; left -= 2, element += 2) {
        if (wrotePair) {
            result += ',';
        }
        detail::AppendJsonTextEntry(result, element[0], element[1]);
        wrotePair = true;
    }
    // The content between the braces of an object text; any other body counts for nothing.
    if (body.size() > 2 && body.front() == '{' && body.back() == '}') {
        if (wrotePair) {
            result += ',';
        }
        result.append(body, 1, body.size() - 2);
    }
    result += '}';
    return result;
}

}  // namespace orvik
