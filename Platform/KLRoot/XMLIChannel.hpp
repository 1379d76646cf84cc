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
class IChannel;

// Reads a document written by XMLOChannel. Inside each open tag a cursor moves forward over the
// children: StartTag and ReadElement take the next child of that name at or after the cursor and
// move the cursor behind it, so unknown elements are passed over. A missing child gives
// ErrXMLMissing and leaves the cursor; text that does not parse as the asked type gives ErrXMLFormat.
class LM_EXPORT XMLIChannel {
public:
    XMLIChannel();
    ~XMLIChannel();
    XMLIChannel(const XMLIChannel&) = delete;
    XMLIChannel& operator=(const XMLIChannel&) = delete;

    // ErrXMLFormat for text that is not well-formed XML; the message says where.
    int Parse(std::string_view text);
    int ReadFrom(IChannel& channel);
    const std::string& GetParseMessage() const { return parseMessage; }

    int StartTag(std::string_view name, ClassVersion* version = nullptr);
    int EndTag(std::string_view name);
    bool HasNext(std::string_view name) const;
    // The name of the next child element at the cursor, or empty at the end.
    std::string PeekNextName() const;
    int ReadAttribute(std::string_view name, UniString& value) const;
    int ReadText(UniString& text) const;

    int ReadElement(std::string_view name, UniString& value);
    int ReadElement(std::string_view name, bool& value);
    int ReadElement(std::string_view name, std::int32_t& value);
    int ReadElement(std::string_view name, std::uint32_t& value);
    int ReadElement(std::string_view name, std::int64_t& value);
    int ReadElement(std::string_view name, std::uint64_t& value);
    int ReadElement(std::string_view name, double& value);
    int ReadElement(std::string_view name, Guid& value);

private:
    int TakeElementText(std::string_view name, std::string& text);

    struct Document;
    std::unique_ptr<Document> document;
    std::string parseMessage;
};

} // namespace KL
