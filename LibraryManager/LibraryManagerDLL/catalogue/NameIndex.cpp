#include "catalogue/NameIndex.hpp"

#include <algorithm>

namespace LM {

namespace {

// Heads pad with zero units: when both texts fit their heads, equal heads leave the shorter text a
// prefix of the longer.
int CompareNames(const NameHead& head, std::u16string_view text, const NameHead& otherHead,
                 std::u16string_view otherText) {
    for (std::size_t word = 0; word < head.words.size(); ++word)
        if (head.words[word] != otherHead.words[word])
            return head.words[word] < otherHead.words[word] ? -1 : 1;
    if (text.size() <= NameHead::Units && otherText.size() <= NameHead::Units)
        return text.size() == otherText.size() ? 0 : (text.size() < otherText.size() ? -1 : 1);
    return KL::CompareCodePointOrder(text, otherText);
}

int CompareTypes(std::int32_t type, std::int32_t other) {
    return type < other ? -1 : (type > other ? 1 : 0);
}

// Names are stored with ":" for "/".
constexpr KL::UniChar AsciiFolded(KL::UniChar c) {
    return c == u'/' ? u':' : KL::AsciiLower(c);
}

} // namespace

NameHead::NameHead(std::u16string_view folded) {
    for (std::size_t i = 0; i < std::min(folded.size(), Units); ++i)
        words[i / 4] |= std::uint64_t{KL::CodePointOrderOf(folded[i])} << (48 - 16 * (i % 4));
}

NameQuery::NameQuery(const KL::UniString& name) : text(Fold(name)), head(text) {}

std::u16string_view NameQuery::Fold(const KL::UniString& name) {
    const std::u16string_view units = name.View();
    if (units.size() <= shortText.size() && KL::IsAsciiText(units)) {
        std::transform(units.begin(), units.end(), shortText.begin(), AsciiFolded);
        return {shortText.data(), units.size()};
    }
    longText = name.GetFolded();
    longText.ReplaceAll(u'/', u':');
    return longText.View();
}

NameIndex::Key NameIndex::AppendKey(std::u16string& texts, const KL::UniString& name, std::int32_t type,
                                    std::uint32_t record) {
    const KL::UniString folded = name.GetFolded();
    Key key{NameHead(folded.View())};
    key.offset = static_cast<std::uint32_t>(texts.size());
    key.length = static_cast<std::uint32_t>(folded.GetLength());
    key.type = type;
    key.record = record;
    texts.append(folded.View());
    return key;
}

void NameIndex::Builder::Add(const KL::UniString& name, std::int32_t type, std::uint32_t record) {
    keys.push_back(AppendKey(texts, name, type, record));
}

int NameIndex::CompareKeys(const Key& key, std::u16string_view text, const Key& other,
                           std::u16string_view otherText) {
    const int byText = CompareNames(key.head, text, other.head, otherText);
    return byText != 0 ? byText : CompareTypes(key.type, other.type);
}

std::u16string_view NameIndex::TextOf(const Key& key) const {
    return std::u16string_view(texts).substr(key.offset, key.length);
}

// Keys are sorted while they point into the builder's texts; the texts then move to a buffer in
// index order, so that the last steps of a search read neighbouring texts.
void NameIndex::Build(Builder builder) {
    const std::u16string_view unsorted = builder.texts;
    const auto textOf = [&](const Key& key) { return unsorted.substr(key.offset, key.length); };
    index.Build(std::move(builder.keys),
                [&](const Key& a, const Key& b) { return CompareKeys(a, textOf(a), b, textOf(b)); });
    std::u16string sorted;
    sorted.reserve(unsorted.size());
    index.RewriteKeys([&](Key& key) {
        const std::u16string_view text = textOf(key);
        key.offset = static_cast<std::uint32_t>(sorted.size());
        sorted.append(text);
    });
    texts = std::move(sorted);
}

void NameIndex::Insert(const KL::UniString& name, std::int32_t type, std::uint32_t record) {
    index.Insert(AppendKey(texts, name, type, record),
                 [&](const Key& a, const Key& b) { return CompareKeys(a, TextOf(a), b, TextOf(b)); });
}

NameIndex::Range NameIndex::EqualRange(const NameQuery& name) const {
    return index.EqualRange(name, [&](const Key& key, const NameQuery& query) {
        return CompareNames(key.head, TextOf(key), query.GetHead(), query.GetText());
    });
}

bool NameIndex::HaveEqualKeys(std::size_t position, std::size_t other) const {
    const Key& key = index.GetKeys()[position];
    const Key& otherKey = index.GetKeys()[other];
    return CompareKeys(key, TextOf(key), otherKey, TextOf(otherKey)) == 0;
}

} // namespace LM
