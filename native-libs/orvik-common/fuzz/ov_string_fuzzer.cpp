// OvString and OvStringPair. Properties (common/ov_string.h), checked against a std::string
// shadow of each of four strings while the input plays construction, copy and assignment:
//   - A string holds the bytes of its text up to the first zero byte (null counts as empty);
//     Cstr is zero-terminated, Length counts those bytes, IsEmpty is Length() == 0.
//   - Copy construction and both assignments keep the bytes, also when the source is the
//     target itself or lies inside the target's own block (a suffix of its Cstr).
//   - == and != follow the bytes; pair copies and moves copy both strings and keep the source.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "common/ov_string.h"
#include "fuzz_check.h"

using orvik::OvString;
using orvik::OvStringPair;

namespace {

void CheckHolds(const OvString& string, const std::string& shadow) {
    FUZZ_CHECK(string.Cstr() != nullptr);
    FUZZ_CHECK(string.Length() == shadow.size());
    FUZZ_CHECK(std::memcmp(string.Cstr(), shadow.c_str(), shadow.size() + 1) == 0);
    FUZZ_CHECK(string.IsEmpty() == shadow.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider provider(data, size);
    OvString strings[4];
    std::string shadows[4];
    while (provider.remaining_bytes() > 0) {
        const std::size_t target = provider.ConsumeIntegralInRange<std::size_t>(0, 3);
        const std::size_t source = provider.ConsumeIntegralInRange<std::size_t>(0, 3);
        OvString& string = strings[target];
        std::string& shadow = shadows[target];
        switch (provider.ConsumeIntegralInRange(0, 5)) {
            case 0: {  // assign a C string: bytes up to the first zero byte
                const std::string text = provider.ConsumeRandomLengthString(300);
                string = text.c_str();
                shadow = text.substr(0, text.find('\0'));
                break;
            }
            case 1:  // copy assignment, possibly to itself
                string = strings[source];
                shadow = shadows[source];
                break;
            case 2: {  // a suffix of the own block
                const std::size_t skip =
                    provider.ConsumeIntegralInRange<std::size_t>(0, shadow.size());
                string = string.Cstr() + skip;
                shadow.erase(0, skip);
                break;
            }
            case 3: {  // copy construction, then assignment back into place
                const OvString copy(strings[source]);
                CheckHolds(copy, shadows[source]);
                string = copy;
                shadow = shadows[source];
                break;
            }
            case 4:
                string = static_cast<const char*>(nullptr);
                shadow.clear();
                break;
            default: {  // a pair: copy and move keep the bytes and the source
                OvStringPair pair;
                pair.first = strings[source];
                pair.second = string;
                OvStringPair copied(pair);
                OvStringPair moved(std::move(pair));
                OvStringPair assigned;
                assigned = std::move(copied);
                for (const OvStringPair* each : {&pair, &copied, &moved, &assigned}) {
                    CheckHolds(each->first, shadows[source]);
                    CheckHolds(each->second, shadow);
                }
                break;
            }
        }
        CheckHolds(string, shadow);
        for (std::size_t i = 0; i < 4; ++i) {
            FUZZ_CHECK((strings[i] == string) == (shadows[i] == shadow));
            FUZZ_CHECK((strings[i] != string) == (shadows[i] != shadow));
        }
    }
    for (std::size_t i = 0; i < 4; ++i) {
        CheckHolds(strings[i], shadows[i]);
    }
    return 0;
}
