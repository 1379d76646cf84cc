#include "QDL/MacroCalls.hpp"

namespace {

bool IsWordChar(char16_t c) {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_';
}

bool IsBlank(char16_t c) {
    return c == u' ' || c == u'\t';
}

// "CALL" at `at`, in any case, with no word character on either side.
bool IsCallKeyword(std::u16string_view text, std::size_t at) {
    static constexpr std::u16string_view Keyword = u"call";
    if (at + Keyword.size() > text.size() || (at > 0 && IsWordChar(text[at - 1])))
        return false;
    for (std::size_t i = 0; i < Keyword.size(); ++i) {
        const char16_t c = text[at + i];
        if ((c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c) != Keyword[i])
            return false;
    }
    return at + Keyword.size() == text.size() || !IsWordChar(text[at + Keyword.size()]);
}

} // namespace

std::vector<KL::UniString> FindMacroCallNames(const KL::UniString& line) {
    const std::u16string_view text = line.View();
    std::vector<KL::UniString> names;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!IsCallKeyword(text, at))
            continue;
        std::size_t quote = at + 4;
        while (quote < text.size() && IsBlank(text[quote]))
            ++quote;
        if (quote == at + 4 || quote >= text.size() || (text[quote] != u'"' && text[quote] != u'\''))
            continue;
        const std::size_t end = text.find(text[quote], quote + 1);
        if (end == std::u16string_view::npos || end == quote + 1)
            continue;
        names.emplace_back(text.substr(quote + 1, end - quote - 1));
        at = end;
    }
    return names;
}
