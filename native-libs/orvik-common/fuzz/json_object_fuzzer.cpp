// JsonObject and StringUtils::AppendJsonString: append-only JSON object text, nothing escaped.
// Properties (common/json_object.h, common/string_utils.h):
//   - The text is exactly what the header builds: each entry that passes its overload's test
//     ("key":"value", "key":-12, "key":true, "key":{...}) in order, commas between, braces
//     around. A second ToString wraps it in a second pair. Copies and moves keep the text;
//     AddNode leaves the caller's object unchanged.
//   - When no key or text value needs escaping (no '"', '\', control byte; valid UTF-8), the
//     text parses with nlohmann::json as an object whose keys hold the last value given.
//   - AppendJsonString gives "{", the pairs, the body's content if it is "{...}", "}".
#include <fuzzer/FuzzedDataProvider.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "common/json_object.h"
#include "common/string_utils.h"
#include "fuzz_check.h"

using orvik::JsonObject;

namespace {

// Text that a JSON string may hold as it is (nlohmann also requires valid UTF-8).
bool NeedsNoEscape(const std::string& text) {
    for (const char c : text) {
        if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) {
            return false;
        }
    }
    try {
        (void)nlohmann::json(text).dump();  // throws type_error 316 on invalid UTF-8
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

int CompareIgnoringCase(const char* a, const char* b) {
    for (;; ++a, ++b) {
        const int x = (*a >= 'A' && *a <= 'Z') ? *a - 'A' + 'a' : static_cast<unsigned char>(*a);
        const int y = (*b >= 'A' && *b <= 'Z') ? *b - 'A' + 'a' : static_cast<unsigned char>(*b);
        if (x != y || x == 0) {
            return x - y;
        }
    }
}

// An object filled from the input beside the text and the values the header predicts.
struct Model {
    JsonObject object;
    std::string entries;    // comma-separated entry text
    nlohmann::json values;  // the last value of every key, where nothing needs escaping
    bool safe = true;

    void Expect(const std::string& key, const std::string& valueText, nlohmann::json value) {
        entries += (entries.empty() ? "\"" : ",\"") + key + "\":" + valueText;
        safe = safe && NeedsNoEscape(key);
        if (safe) {
            values[key] = std::move(value);
        }
    }
    std::string Text() const { return "{" + entries + "}"; }
};

void Fill(Model& model, FuzzedDataProvider& provider, int depth) {
    while (provider.remaining_bytes() > 0) {
        const std::string key = provider.ConsumeRandomLengthString(12);
        switch (provider.ConsumeIntegralInRange(0, depth < 2 ? 5 : 4)) {
            case 0: {
                const std::string value = provider.ConsumeRandomLengthString(12);
                const std::string fallback = provider.ConsumeBool() ? value : "";
                model.object.AddNodeIfNeed(key, value, fallback);
                if (value != fallback) {
                    model.safe = model.safe && NeedsNoEscape(value);
                    model.Expect(key, "\"" + value + "\"", value);
                }
                break;
            }
            case 1: {
                const int value = provider.ConsumeIntegral<int>();
                const int fallback = provider.ConsumeBool() ? value : 0;
                model.object.AddNodeIfNeed(key, value, fallback);
                if (value != fallback) {
                    model.Expect(key, std::to_string(value), value);
                }
                break;
            }
            case 2: {
                const bool value = provider.ConsumeBool();
                const bool fallback = provider.ConsumeBool();
                model.object.AddNodeIfNeed(key, value, fallback);
                if (value != fallback) {
                    model.Expect(key, value ? "true" : "false", value);
                }
                break;
            }
            case 3:
            case 4: {
                const std::string value = provider.ConsumeRandomLengthString(12);
                const std::string fallback = provider.ConsumeRandomLengthString(4);
                const bool nullValue = provider.ConsumeIntegralInRange(0, 15) == 0;
                const char* v = nullValue ? nullptr : value.c_str();
                model.object.AddNodeIfNeed(key, v, fallback.c_str());
                if (v != nullptr && CompareIgnoringCase(v, fallback.c_str()) > 0) {
                    const std::string shown(v);
                    model.safe = model.safe && NeedsNoEscape(shown);
                    model.Expect(key, "\"" + shown + "\"", shown);
                }
                break;
            }
            default: {
                Model child;
                const std::string bytes = provider.ConsumeRandomLengthString(64);
                FuzzedDataProvider childProvider(
                    reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
                Fill(child, childProvider, depth + 1);
                const JsonObject before = child.object;
                model.object.AddNode(key, child.object);
                JsonObject after = child.object;
                JsonObject copy = before;
                FUZZ_CHECK(after.ToString() == copy.ToString());
                model.safe = model.safe && child.safe;
                model.Expect(key, child.Text(),
                             child.values.is_null() ? nlohmann::json::object() : child.values);
                break;
            }
        }
    }
}

void CheckAppendJsonString(FuzzedDataProvider& provider) {
    std::string p[5];
    for (std::string& element : p) {
        element = provider.ConsumeRandomLengthString(8);
    }
    const std::string body = provider.ConsumeRandomLengthString(16);
    const int count = provider.ConsumeIntegralInRange(0, 5);
    std::string expected;
    for (int i = 0; i + 1 < count; i += 2) {
        expected += (expected.empty() ? "\"" : ",\"") + p[i] + "\":\"" + p[i + 1] + "\"";
    }
    if (body.size() > 2 && body.front() == '{' && body.back() == '}') {
        expected += (expected.empty() ? "" : ",") + body.substr(1, body.size() - 2);
    }
    using orvik::StringUtils;
    const std::string results[] = {
        StringUtils::AppendJsonString(body, {}),
        StringUtils::AppendJsonString(body, {p[0]}),
        StringUtils::AppendJsonString(body, {p[0], p[1]}),
        StringUtils::AppendJsonString(body, {p[0], p[1], p[2]}),
        StringUtils::AppendJsonString(body, {p[0], p[1], p[2], p[3]}),
        StringUtils::AppendJsonString(body, {p[0], p[1], p[2], p[3], p[4]}),
    };
    FUZZ_CHECK(results[count] == "{" + expected + "}");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    if (provider.ConsumeBool()) {
        CheckAppendJsonString(provider);
        return 0;
    }
    Model model;
    Fill(model, provider, 0);
    JsonObject copy(model.object);
    JsonObject moved(std::move(copy));
    const std::string text = model.object.ToString();
    FUZZ_CHECK(text == model.Text());
    FUZZ_CHECK(moved.ToString() == text);
    FUZZ_CHECK(model.object.ToString() == "{" + text + "}");
    if (model.safe) {
        nlohmann::json parsed;
        try {
            parsed = nlohmann::json::parse(text);
        } catch (const nlohmann::json::parse_error& error) {
            std::fprintf(stderr, "%s\n", error.what());
            FUZZ_CHECK(!"the text of safe entries parses");
        }
        FUZZ_CHECK(parsed.is_object());
        FUZZ_CHECK(parsed == (model.values.is_null() ? nlohmann::json::object() : model.values));
    }
    return 0;
}
