// Conversions between UTF-8 and wide text on POSIX systems, where wide text is whatever the
// width of wchar_t makes it (UTF-32 on Linux). The library's own codec does the work, repairing
// invalid input as the Windows conversions do. The user's locale is the C++ runtime's.
#include <cwchar>
#include <stdexcept>

#include "platform/platform.h"
#include "internal/unicode.h"

namespace orvik::platform {

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring wide;
    detail::Utf8ToWide(text, wide, detail::Invalid::kReplace);
    return wide;
}

std::string WideToUtf8(std::wstring_view text) {
    std::string narrow;
    detail::WideToUtf8(text, narrow, detail::Invalid::kReplace);
    return narrow;
}

namespace {

// The locale's own std::codecvt<wchar_t, char> facet. The encoding keeps the locale, so that
// another thread replacing the global locale meanwhile cannot destroy the facet.
class LocaleEncoding final : public UserEncoding {
public:
    explicit LocaleEncoding(std::locale locale)
        : locale_(std::move(locale)), facet_(std::use_facet<Facet>(locale_)) {}

    std::codecvt_base::result Decode(std::string_view bytes, std::wstring& out) const override {
        // One wide character per byte is the most any locale decodes to.
        out.assign(bytes.size(), L'\0');
        std::mbstate_t state{};
        const char* fromNext = nullptr;
        wchar_t* toNext = nullptr;
        const std::codecvt_base::result result =
            facet_.in(state, bytes.data(), bytes.data() + bytes.size(), fromNext, out.data(),
                      out.data() + out.size(), toNext);
        out.resize(static_cast<std::size_t>(toNext - out.data()));
        return result;
    }

    std::codecvt_base::result Encode(std::wstring_view wide, std::string& out) const override {
        out.assign(static_cast<std::size_t>(MaxLength()) * wide.size(), '\0');
        std::mbstate_t state{};
        const wchar_t* fromNext = nullptr;
        char* toNext = nullptr;
        const std::codecvt_base::result result =
            facet_.out(state, wide.data(), wide.data() + wide.size(), fromNext, out.data(),
                       out.data() + out.size(), toNext);
        out.resize(static_cast<std::size_t>(toNext - out.data()));
        return result;
    }

    int MaxLength() const override { return facet_.max_length(); }

private:
    using Facet = std::codecvt<wchar_t, char, std::mbstate_t>;
    const std::locale locale_;
    const Facet& facet_;
};

}  // namespace

std::unique_ptr<UserEncoding> InstallUserLocale() {
    std::locale user;
    try {
        user = std::locale("");
    } catch (const std::runtime_error&) {
        // The runtime's own text names its internals; callers are promised this one.
        throw std::runtime_error("bad locale name");
    }
    std::locale::global(user);
    return std::make_unique<LocaleEncoding>(std::move(user));
}

}  // namespace orvik::platform
