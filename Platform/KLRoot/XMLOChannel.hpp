#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace KL {

class Guid;
class OChannel;

// Builds an XML document of nested tags and typed elements. A tag may carry its class version
// as the attribute version="major.minor"; an element is a tag with text: a guid in its text form,
// a bool as true or false, numbers in decimal. Text keeps its white space and line ends; text
// with U+0000, which XML cannot hold, is refused with ErrParam. The first failure sticks.
class LM_EXPORT XMLOChannel {
public:
    XMLOChannel();
    ~XMLOChannel();
    XMLOChannel(const XMLOChannel&) = delete;
    XMLOChannel& operator=(const XMLOChannel&) = delete;

    int StartTag(std::string_view name);
    int StartTag(std::string_view name, ClassVersion version);
    // Closes the innermost open tag, which must be `name`.
    int EndTag(std::string_view name);
    int SetAttribute(std::string_view name, const UniString& value);
    int WriteText(const UniString& text);

    int WriteElement(std::string_view name, const UniString& value);
    int WriteElement(std::string_view name, const char* value) {
        return WriteElement(name, UniString(value));
    }
    int WriteElement(std::string_view name, bool value);
    int WriteElement(std::string_view name, std::int32_t value);
    int WriteElement(std::string_view name, std::uint32_t value);
    int WriteElement(std::string_view name, std::int64_t value);
    int WriteElement(std::string_view name, std::uint64_t value);
    int WriteElement(std::string_view name, double value);
    int WriteElement(std::string_view name, const Guid& value);

    int GetStatus() const { return status; }
    // The document as indented UTF-8 text with an XML declaration.
    std::string ToString() const;
    int WriteTo(OChannel& channel) const;

private:
    int AddElement(std::string_view name, const std::string& text);

    struct Document;
    std::unique_ptr<Document> document;
    int status = 0;
};

} // namespace KL
