#include "common/json_object.h"

#include <charconv>

#include "internal/library_frame.h"
#include "internal/text_detail.h"

namespace orvik {
namespace {

// strcmp after tolower on every byte, bytes taken as unsigned char: the order of _stricmp,
// following the current C locale as it does.
int CompareIgnoringCase(const char* first, const char* second) {
    for (;; ++first, ++second) {
        const int a = static_cast<unsigned char>(detail::LowerByte(*first));
        const int b = static_cast<unsigned char>(detail::LowerByte(*second));
        if (a != b || a == 0) {
            return a - b;
        }
    }
}

}  // namespace

JsonObject::JsonObject() = default;
JsonObject::JsonObject(const JsonObject& other) = default;
JsonObject::JsonObject(JsonObject&& other) noexcept = default;
JsonObject& JsonObject::operator=(const JsonObject& other) = default;
JsonObject& JsonObject::operator=(JsonObject&& other) noexcept = default;
JsonObject::~JsonObject() = default;

void JsonObject::AddNode(const std::string& key, JsonObject value) {
    detail::AppendJsonKey(nodes, key);
    nodes += value.ToString();
    nodes += ',';
}

void JsonObject::AddNodeIfNeed(const std::string& key, const std::string& value,
                               const std::string& defaultValue) {
    if (value == defaultValue) {
        return;
    }
    detail::AppendJsonTextEntry(nodes, key, value);
    nodes += ',';
}

void JsonObject::AddNodeIfNeed(const std::string& key, int value, int defaultValue) {
    if (value == defaultValue) {
        return;
    }
    char digits[16];
    const auto converted = std::to_chars(digits, digits + sizeof digits, value);
    detail::AppendJsonKey(nodes, key);
    nodes.append(digits, converted.ptr);
    nodes += ',';
}

void JsonObject::AddNodeIfNeed(const std::string& key, const char* value,
                               const char* defaultValue) {
    if (value == nullptr || defaultValue == nullptr ||
        CompareIgnoringCase(value, defaultValue) <= 0) {
        return;
    }
    detail::AppendJsonKey(nodes, key);
    nodes += '"';
    nodes += value;
    nodes += "\",";
}

void JsonObject::AddNodeIfNeed(const std::string& key, bool value, bool defaultValue) {
    if (value == defaultValue) {
        return;
    }
    detail::AppendJsonKey(nodes, key);
    nodes += value ? detail::trueText : detail::falseText;
    nodes += ',';
}

std::string JsonObject::ToString() {
    nodes.insert(nodes.begin(), '{');
    if (nodes.size() > 1 && nodes.back() == ',') {
        nodes.pop_back();
    }
    nodes += '}';
    return nodes;
}

}  // namespace orvik
