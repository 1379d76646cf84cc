#include "KLRoot/XMLOChannel.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/OChannel.hpp"

#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sstream>
#include <vector>

namespace KL {

struct XMLOChannel::Document {
    pugi::xml_document xml;
    std::vector<pugi::xml_node> open; // innermost last; the document itself at the bottom
};

namespace {

template <typename T>
std::string NumberText(T value) {
    char text[40];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

bool IsNameStart(unsigned char c) {
    return std::isalpha(c) || c == '_' || c == ':' || c >= 0x80;
}
bool IsNameChar(unsigned char c) {
    return IsNameStart(c) || std::isdigit(c) || c == '-' || c == '.';
}

bool IsValidName(std::string_view name) {
    return !name.empty() && IsNameStart(static_cast<unsigned char>(name.front())) &&
           std::all_of(name.begin(), name.end(),
                       [](char c) { return IsNameChar(static_cast<unsigned char>(c)); });
}

// XML 1.0 cannot carry U+0000 in any form.
bool HasNul(const UniString& text) {
    return text.FindFirst(u'\0') != UniString::NotFound;
}

} // namespace

XMLOChannel::XMLOChannel() : document(std::make_unique<Document>()) {
    document->open.push_back(document->xml);
}

XMLOChannel::~XMLOChannel() = default;

int XMLOChannel::StartTag(std::string_view name) {
    if (status != NoError)
        return status;
    if (!IsValidName(name))
        return status = ErrParam;
    document->open.push_back(document->open.back().append_child(std::string(name).c_str()));
    return NoError;
}

int XMLOChannel::StartTag(std::string_view name, ClassVersion version) {
    if (const int err = StartTag(name); err != NoError)
        return err;
    const std::string text = NumberText(version.major) + "." + NumberText(version.minor);
    document->open.back().append_attribute("version").set_value(text.c_str());
    return NoError;
}

int XMLOChannel::EndTag(std::string_view name) {
    if (status != NoError)
        return status;
    if (document->open.size() < 2 || name != document->open.back().name())
        return status = ErrParam;
    document->open.pop_back();
    return NoError;
}

int XMLOChannel::SetAttribute(std::string_view name, const UniString& value) {
    if (status != NoError)
        return status;
    if (document->open.size() < 2 || !IsValidName(name) || HasNul(value))
        return status = ErrParam;
    const std::string key(name);
    pugi::xml_node tag = document->open.back();
    pugi::xml_attribute attribute = tag.attribute(key.c_str());
    if (!attribute)
        attribute = tag.append_attribute(key.c_str());
    attribute.set_value(value.ToUTF8().c_str());
    return NoError;
}

int XMLOChannel::WriteText(const UniString& text) {
    if (status != NoError)
        return status;
    if (document->open.size() < 2 || HasNul(text))
        return status = ErrParam;
    document->open.back().append_child(pugi::node_pcdata).set_value(text.ToUTF8().c_str());
    return NoError;
}

int XMLOChannel::AddElement(std::string_view name, const std::string& text) {
    if (const int err = StartTag(name); err != NoError)
        return err;
    if (!text.empty())
        document->open.back().append_child(pugi::node_pcdata).set_value(text.c_str());
    document->open.pop_back();
    return NoError;
}

int XMLOChannel::WriteElement(std::string_view name, const UniString& value) {
    if (HasNul(value))
        return status = ErrParam;
    return AddElement(name, value.ToUTF8());
}
int XMLOChannel::WriteElement(std::string_view name, bool value) {
    return AddElement(name, value ? "true" : "false");
}
int XMLOChannel::WriteElement(std::string_view name, std::int32_t value) {
    return AddElement(name, NumberText(value));
}
int XMLOChannel::WriteElement(std::string_view name, std::uint32_t value) {
    return AddElement(name, NumberText(value));
}
int XMLOChannel::WriteElement(std::string_view name, std::int64_t value) {
    return AddElement(name, NumberText(value));
}
int XMLOChannel::WriteElement(std::string_view name, std::uint64_t value) {
    return AddElement(name, NumberText(value));
}
int XMLOChannel::WriteElement(std::string_view name, double value) {
    return AddElement(name, NumberText(value));
}
int XMLOChannel::WriteElement(std::string_view name, const Guid& value) {
    return AddElement(name, value.ToString());
}

std::string XMLOChannel::ToString() const {
    std::ostringstream text;
    document->xml.save(text, "  ", pugi::format_default, pugi::encoding_utf8);
    // The XML library escapes a carriage return in attributes but not in text, where any reader
    // would fold CR LF into LF. Indentation never holds one, so every CR left is content.
    std::string saved = text.str();
    std::string escaped;
    escaped.reserve(saved.size());
    for (const char c : saved) {
        if (c == '\r')
            escaped += "&#13;";
        else
            escaped += c;
    }
    return escaped;
}

int XMLOChannel::WriteTo(OChannel& channel) const {
    const std::string text = ToString();
    return channel.WriteBin(text.data(), text.size());
}

} // namespace KL
