#include "KLRoot/XMLIChannel.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/IChannel.hpp"

#include <pugixml.hpp>

#include <algorithm>
#include <charconv>
#include <vector>

namespace KL {

struct XMLIChannel::Document {
    struct Level {
        pugi::xml_node node;
        pugi::xml_node cursor; // next child to consider; null at the end
    };

    pugi::xml_document xml;
    std::vector<Level> levels;

    void Reset() {
        levels.clear();
        levels.push_back({xml, xml.first_child()});
    }

    pugi::xml_node FindNext(std::string_view name) const {
        for (pugi::xml_node node = levels.back().cursor; node; node = node.next_sibling()) {
            if (node.type() == pugi::node_element && name == node.name())
                return node;
        }
        return {};
    }
};

namespace {

// Numbers may stand between white space, as hand-written documents have them.
template <typename T>
int ParseNumber(const std::string& text, T& value) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (first == std::string::npos)
        return ErrXMLFormat;
    T parsed{};
    const char* begin = text.data() + first;
    const char* end = text.data() + last + 1;
    const auto result = std::from_chars(begin, end, parsed);
    if (result.ec != std::errc() || result.ptr != end)
        return ErrXMLFormat;
    value = parsed;
    return NoError;
}

bool ParseVersion(const char* text, ClassVersion& version) {
    const std::string_view view(text);
    const std::size_t dot = view.find('.');
    if (dot == view.npos)
        return false;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    const auto a = std::from_chars(view.data(), view.data() + dot, major);
    const auto b = std::from_chars(view.data() + dot + 1, view.data() + view.size(), minor);
    if (a.ec != std::errc() || b.ec != std::errc() || a.ptr != view.data() + dot ||
        b.ptr != view.data() + view.size())
        return false;
    version = {major, minor};
    return true;
}

} // namespace

XMLIChannel::XMLIChannel() : document(std::make_unique<Document>()) {
    document->Reset();
}

XMLIChannel::~XMLIChannel() = default;

namespace {

// "line L, column C" of a byte offset, both from 1; columns count bytes.
std::string LineAndColumn(std::string_view text, std::ptrdiff_t offset) {
    const std::size_t end =
        std::min(static_cast<std::size_t>(std::max<std::ptrdiff_t>(offset, 0)), text.size());
    std::size_t line = 1;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < end; ++i) {
        if (text[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(end - lineStart + 1);
}

} // namespace

int XMLIChannel::Parse(std::string_view text) {
    // Keep text as written: carriage returns, and an element that holds only white space.
    constexpr unsigned options = (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;
    const pugi::xml_parse_result result =
        document->xml.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
    if (!result)
        document->xml.reset();
    document->Reset();
    if (!result) {
        parseMessage = std::string(result.description()) + " at " + LineAndColumn(text, result.offset);
        return ErrXMLFormat;
    }
    parseMessage.clear();
    return NoError;
}

int XMLIChannel::ReadFrom(IChannel& channel) {
    std::string text;
    char block[64 * 1024];
    for (std::uint64_t count = sizeof block; count == sizeof block;) {
        if (const int err = channel.ReadUpTo(block, sizeof block, &count); err != NoError)
            return err;
        text.append(block, count);
    }
    return Parse(text);
}

int XMLIChannel::StartTag(std::string_view name, ClassVersion* version) {
    const pugi::xml_node node = document->FindNext(name);
    if (!node)
        return ErrXMLMissing;
    if (version != nullptr) {
        const pugi::xml_attribute attribute = node.attribute("version");
        if (!attribute || !ParseVersion(attribute.value(), *version))
            return ErrXMLFormat;
    }
    document->levels.back().cursor = node.next_sibling();
    document->levels.push_back({node, node.first_child()});
    return NoError;
}

int XMLIChannel::EndTag(std::string_view name) {
    if (document->levels.size() < 2 || name != document->levels.back().node.name())
        return ErrParam;
    document->levels.pop_back();
    return NoError;
}

bool XMLIChannel::HasNext(std::string_view name) const {
    return static_cast<bool>(document->FindNext(name));
}

std::string XMLIChannel::PeekNextName() const {
    for (pugi::xml_node node = document->levels.back().cursor; node; node = node.next_sibling()) {
        if (node.type() == pugi::node_element)
            return node.name();
    }
    return {};
}

int XMLIChannel::ReadAttribute(std::string_view name, UniString& value) const {
    const pugi::xml_attribute attribute = document->levels.back().node.attribute(std::string(name).c_str());
    if (!attribute)
        return ErrXMLMissing;
    value = UniString(attribute.value());
    return NoError;
}

int XMLIChannel::ReadText(UniString& text) const {
    text = UniString(document->levels.back().node.text().get());
    return NoError;
}

int XMLIChannel::TakeElementText(std::string_view name, std::string& text) {
    const pugi::xml_node node = document->FindNext(name);
    if (!node)
        return ErrXMLMissing;
    document->levels.back().cursor = node.next_sibling();
    text = node.text().get();
    return NoError;
}

int XMLIChannel::ReadElement(std::string_view name, UniString& value) {
    std::string text;
    const int err = TakeElementText(name, text);
    if (err == NoError)
        value = UniString(text);
    return err;
}

int XMLIChannel::ReadElement(std::string_view name, bool& value) {
    std::string text;
    if (const int err = TakeElementText(name, text); err != NoError)
        return err;
    if (text != "true" && text != "false")
        return ErrXMLFormat;
    value = text == "true";
    return NoError;
}

#define LM_READ_NUMBER_ELEMENT(Type)                                                                         \
    int XMLIChannel::ReadElement(std::string_view name, Type& value) {                                       \
        std::string text;                                                                                    \
        if (const int err = TakeElementText(name, text); err != NoError)                                     \
            return err;                                                                                      \
        return ParseNumber(text, value);                                                                     \
    }

LM_READ_NUMBER_ELEMENT(std::int32_t)
LM_READ_NUMBER_ELEMENT(std::uint32_t)
LM_READ_NUMBER_ELEMENT(std::int64_t)
LM_READ_NUMBER_ELEMENT(std::uint64_t)
LM_READ_NUMBER_ELEMENT(double)

#undef LM_READ_NUMBER_ELEMENT

int XMLIChannel::ReadElement(std::string_view name, Guid& value) {
    std::string text;
    if (const int err = TakeElementText(name, text); err != NoError)
        return err;
    const std::optional<Guid> guid = Guid::Parse(text);
    if (!guid)
        return ErrXMLFormat;
    value = *guid;
    return NoError;
}

} // namespace KL
