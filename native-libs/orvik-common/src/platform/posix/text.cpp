// Conversions between UTF-8 and wide text on POSIX systems, where wide text is whatever the
// width of wchar_t makes it (UTF-32 on Linux). The library's own codec does the work, repairing
// invalid input as the Windows conversions do. The user's locale is the C++ runtime's.
#include <cwchar>
#include <stdexcept>

#include "internal/unicode.h"
#include "platform/platform.h"

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
        return ConvertWhole(bytes, bytes.size(), out,
                            [this](auto&&... step) { return facet_.in(step...); });
    }

    std::codecvt_base::result Encode(std::wstring_view wide, std::string& out) const override {
        return ConvertWhole(wide, static_cast<std::size_t>(MaxLength()) * wide.size(), out,
                            [this](auto&&... step) { return facet_.out(step...); });
    }

    int MaxLength() const override { return facet_.max_length(); }

private:
    using Facet = std::codecvt<wchar_t, char, std::mbstate_t>;

    // Runs `step` (the facet's `in` or `out`, with its arguments) over all of `from`, into
    // `out` made `room` characters long, then cut to what the step wrote.
    template <class From, class To, class Step>
    static std::codecvt_base::result ConvertWhole(std::basic_string_view<From> from,
                                                  std::size_t room, std::basic_string<To>& out,
                                                  Step step) {
        out.assign(room, To());
        std::mbstate_t state{};
        const From* fromNext = nullptr;
        To* toNext = nullptr;
        const std::codecvt_base::result result =
            step(state, from.data(), from.data() + from.size(), fromNext, out.data(),
                 out.data() + out.size(), toNext);
        out.resize(static_cast<std::size_t>(toNext - out.data()));
        return result;
    }

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
