// Builds a small JSON object as text. There is no tree: each added entry is final text
// appended to one string, so building costs one append per entry. Keys and values go in byte
// for byte: nothing is escaped or validated, and text that needs escaping is the caller's.
//
//   JsonObject object;
//   object.AddNodeIfNeed("a", 1, 0);
//   object.AddNodeIfNeed("b", std::string("x"), std::string());
//   object.ToString();  // {"a":1,"b":"x"}
//
// ToString ends the filling: the braces stay in the object, so a second ToString wraps the
// text in a second pair ({{"a":1}}), and entries added afterwards land behind the closing
// brace. Nothing guards against either.
//
// Thread-safety: no lock; every member, ToString included, needs exclusive access.
#ifndef ORVIK_COMMON_JSON_OBJECT_H
#define ORVIK_COMMON_JSON_OBJECT_H

#include <string>

#include "common/export.h"

namespace orvik {

class ORVIK_COMMON_API JsonObject {
public:
    // An empty object; copies copy the text, moves move it. Out of line, so that the library
    // publishes them with the class.
    JsonObject();
    JsonObject(const JsonObject& other);
    JsonObject(JsonObject&& other) noexcept;
    JsonObject& operator=(const JsonObject& other);
    JsonObject& operator=(JsonObject&& other) noexcept;
    ~JsonObject();

    // Always adds "key":{...}, the text of ToString on the by-value copy `value`; the caller's
    // object is unchanged.
    void AddNode(const std::string& key, JsonObject value);

    // Each overload adds its entry only when its own test passes:
    //
    //   overload       entry               added when
    //   std::string    "key":"value"       value and defaultValue differ (case counts)
    //   int            "key":-12           value != defaultValue
    //   bool           "key":true          value != defaultValue
    //   const char*    "key":"value"       neither is null and value sorts AFTER defaultValue
    //                                      ignoring case (a case-insensitive strcmp > 0)
    //
    // The const char* test is one of order: ("abc", "ABC") and ("a", "b") add nothing, while
    // every non-empty value passes against the default "".
    void AddNodeIfNeed(const std::string& key, const std::string& value,
                       const std::string& defaultValue);
    void AddNodeIfNeed(const std::string& key, int value, int defaultValue);
    void AddNodeIfNeed(const std::string& key, const char* value, const char* defaultValue);
    void AddNodeIfNeed(const std::string& key, bool value, bool defaultValue);

    // Wraps the entries in braces, drops the last entry's comma, and returns a copy of the
    // text. A new object gives {}. Changes the object; see above.
    std::string ToString();

private:
    // The entries, each ended by a comma, without braces until ToString.
    std::string nodes;
};

}  // namespace orvik

#endif  // ORVIK_COMMON_JSON_OBJECT_H
