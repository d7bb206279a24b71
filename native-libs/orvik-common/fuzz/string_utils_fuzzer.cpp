// StringUtils: the three splits, Join, digit runs, number and bool conversion. Properties
// (common/string_utils.h), with a separator and a text from the input:
//   - Each split equals the header's rule, built here from the fields between the
//     left-to-right, non-overlapping occurrences of the separator (see Fields).
//   - Join round trips: SplitFirstByString's pieces re-joined give the text;
//     SplitAllByString's give the text, or the text without its trailing separator;
//     SplitString's give the text, or the text less a tail that straddled the added separator
//     (a proper prefix of it). Join leaves its `items` unchanged.
//   - FetchConsecutiveNumbers gives the runs of '0'..'9'; CheckNumber and CheckBool follow their
//     one-line rules.
//   - The StrToll family agrees with strtoll (base 10): the default for empty text, no digits
//     or ERANGE; else the low 32 bits (Int, Long) or the value as float / double. The text
//     stays unchanged. StrTollBool: "true"/"false" in any case, else the default.
#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/string_utils.h"
#include "fuzz_check.h"

using orvik::StringUtils;
using Pieces = std::vector<std::string>;

namespace {

// The pieces between the occurrences of the non-empty `sep`: always one more than there are
// occurrences.
Pieces Fields(const std::string& text, const std::string& sep) {
    Pieces fields;
    std::size_t from = 0;
    for (std::size_t at; (at = text.find(sep, from)) != std::string::npos; from = at + sep.size()) {
        fields.push_back(text.substr(from, at - from));
    }
    fields.push_back(text.substr(from));
    return fields;
}

std::string Join(Pieces pieces, const std::string& sep) {
    const Pieces before = pieces;
    const std::string joined = StringUtils::Join(pieces, sep);
    FUZZ_CHECK(pieces == before);
    return joined;
}

void CheckSplits(const std::string& text, const std::string& sep) {
    Pieces split;
    Pieces all{text};
    if (!text.empty()) {
        split = {text};
    }
    if (!sep.empty()) {
        all = Fields(text, sep);
        if (all.size() > 1 && all.back().empty()) {
            all.pop_back();
        }
        if (!text.empty()) {
            split = Fields(text + sep, sep);
            split.pop_back();
        }
    }
    FUZZ_CHECK(StringUtils::SplitString(text, sep) == split);
    FUZZ_CHECK(StringUtils::SplitAllByString(text, sep) == all);
    const std::size_t found = text.find(sep);
    const Pieces first = found == std::string::npos
                             ? Pieces{text}
                             : Pieces{text.substr(0, found), text.substr(found + sep.size())};
    FUZZ_CHECK(StringUtils::SplitFirstByString(text, sep) == first);

    FUZZ_CHECK(Join(first, sep) == text);
    const std::string joinedAll = Join(all, sep);
    FUZZ_CHECK(joinedAll == text || joinedAll + sep == text);
    const std::string joinedSplit = Join(split, sep);
    // A last occurrence straddling the added separator drops a tail of the text, which is
    // then a proper prefix of the separator ("a-" by "--" => "a").
    const std::size_t dropped = text.size() - joinedSplit.size();
    FUZZ_CHECK(joinedSplit.size() <= text.size() &&
               text.compare(0, joinedSplit.size(), joinedSplit) == 0);
    FUZZ_CHECK(dropped == 0 || (dropped < sep.size() &&
                                text.compare(joinedSplit.size(), dropped, sep, 0, dropped) == 0));
}

void CheckNumbers(std::string text, int seed) {
    Pieces runs;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t begin = text.find_first_of("0123456789", i);
        if (begin == std::string::npos) {
            break;
        }
        std::size_t end = text.find_first_not_of("0123456789", begin);
        end = end == std::string::npos ? text.size() : end;
        runs.push_back(text.substr(begin, end - begin));
        i = end;
    }
    FUZZ_CHECK(StringUtils::FetchConsecutiveNumbers(text) == runs);
    FUZZ_CHECK(StringUtils::CheckNumber(text) ==
               (text.find_first_not_of("0123456789") == std::string::npos));

    const std::string kept = text;
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    const bool parsed = !text.empty() && end != text.c_str() && errno != ERANGE;
    const auto low32 = static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
    FUZZ_CHECK(StringUtils::StrTollInt(text, seed) == (parsed ? low32 : seed));
    FUZZ_CHECK(StringUtils::StrTollLong(text, seed) == (parsed ? low32 : seed));
    FUZZ_CHECK(StringUtils::StrTollFloat(text, 0.5f) ==
               (parsed ? static_cast<float>(value) : 0.5f));
    FUZZ_CHECK(StringUtils::StrTollDouble(text, 0.5) ==
               (parsed ? static_cast<double>(value) : 0.5));

    std::string lower = text;
    for (char& c : lower) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    const bool isBool = lower == "true" || lower == "false";
    FUZZ_CHECK(StringUtils::CheckBool(text) == isBool);
    const bool fallback = (seed & 1) != 0;
    FUZZ_CHECK(StringUtils::StrTollBool(text, fallback) == (isBool ? lower == "true" : fallback));
    FUZZ_CHECK(text == kept);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    QuietLibraryLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    const int seed = provider.ConsumeIntegral<int>();
    const std::string sep = provider.ConsumeRandomLengthString(4);
    const std::string text = provider.ConsumeRemainingBytesAsString();
    CheckSplits(text, sep);
    CheckNumbers(text, seed);
    return 0;
}
