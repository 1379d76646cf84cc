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

NameIndex::Key NameIndex::KeyOf(const Entry& entry, std::size_t offset) {
    Key key{NameHead(entry.folded.View())};
    key.offset = static_cast<std::uint32_t>(offset);
    key.length = static_cast<std::uint32_t>(entry.folded.GetLength());
    key.type = entry.type;
    return key;
}

int NameIndex::CompareKeys(const Key& key, std::u16string_view text, const Key& other,
                           std::u16string_view otherText) {
    const int byText = CompareNames(key.head, text, other.head, otherText);
    return byText != 0 ? byText : CompareTypes(key.type, other.type);
}

std::u16string_view NameIndex::TextOf(const Key& key) const {
    return std::u16string_view(texts).substr(key.offset, key.length);
}

// Keys are sorted while they point at their entries' texts; the texts then enter the buffer in
// index order, each leaving its entry as it goes, so the build holds one copy of the names.
void NameIndex::Build(std::vector<std::pair<Entry, std::uint32_t>> entries) {
    std::vector<std::pair<Key, std::uint32_t>> keys;
    keys.reserve(entries.size());
    std::size_t textLength = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        keys.emplace_back(KeyOf(entries[i].first, i), entries[i].second);
        textLength += keys.back().first.length;
    }
    const auto textOf = [&](const Key& key) { return entries[key.offset].first.folded.View(); };
    index.Build(std::move(keys),
                [&](const Key& a, const Key& b) { return CompareKeys(a, textOf(a), b, textOf(b)); });
    texts.clear();
    texts.reserve(textLength);
    index.RewriteKeys([&](Key& key) {
        KL::UniString& text = entries[key.offset].first.folded;
        key.offset = static_cast<std::uint32_t>(texts.size());
        texts.append(text.View());
        text = KL::UniString();
    });
}

void NameIndex::Insert(const Entry& entry, std::uint32_t record) {
    const Key key = KeyOf(entry, texts.size());
    texts.append(entry.folded.View());
    index.Insert(key, record,
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
