#include "services/BinFileTypes.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileTypeManager.hpp"
#include "InputOutput/Location.hpp"

#include <algorithm>
#include <array>

namespace LM {

namespace {

constexpr std::size_t MaxLineLength = 255;
constexpr std::size_t FieldCount = 4;
// Far beyond any real list of types; the rest of a larger file is not read.
constexpr std::uint64_t MaxFileSize = 1024 * 1024;

bool IsLineEnd(char c) {
    return c == '\n' || c == '\r';
}

std::uint32_t LittleEndianCode(std::string_view field) {
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < 4 && i < field.size(); ++i)
        code |= static_cast<std::uint32_t>(static_cast<unsigned char>(field[i])) << (8 * i);
    return code;
}

// Fields are separated by runs of tabs; leading tabs are skipped.
bool SplitFields(std::string_view line, std::array<std::string_view, FieldCount>* fields) {
    std::size_t position = 0;
    for (std::string_view& field : *fields) {
        while (position < line.size() && line[position] == '\t')
            ++position;
        const std::size_t end = std::min(line.find('\t', position), line.size());
        field = line.substr(position, end - position);
        if (field.empty())
            return false;
        position = end;
    }
    return true;
}

} // namespace

std::vector<BinFileTypeLine> ParseBinFileTypes(std::string_view text) {
    std::vector<BinFileTypeLine> lines;
    std::size_t position = 0;
    while (position < text.size()) {
        std::size_t end = position;
        while (end < text.size() && !IsLineEnd(text[end]) && end - position < MaxLineLength)
            ++end;
        const std::string_view line = text.substr(position, end - position);
        position = end;
        while (position < text.size() && IsLineEnd(text[position]))
            ++position;
        std::array<std::string_view, FieldCount> fields;
        if (!SplitFields(line, &fields))
            continue;
        lines.push_back({std::string(fields[0]), std::string(fields[1]), LittleEndianCode(fields[2]),
                         LittleEndianCode(fields[3])});
    }
    return lines;
}

void RegisterBinFileTypes(const IO::Location& location, FTM::FileTypeManager& manager,
                          KL::Array<FTM::GeneralID>* storable) {
    IO::File file(location);
    if (file.Open() != 0)
        return;
    std::uint64_t length = 0;
    if (file.GetDataLength(&length) != 0)
        return;
    std::string text(static_cast<std::size_t>(std::min(length, MaxFileSize)), '\0');
    std::uint64_t count = 0;
    file.ReadUpTo(text.data(), text.size(), &count);
    text.resize(static_cast<std::size_t>(count));
    for (const BinFileTypeLine& line : ParseBinFileTypes(text)) {
        const FTM::FileType type(KL::UniString(line.name), KL::UniString(line.extensions), line.creator,
                                 line.type);
        storable->Push(manager.AddType(type, FTM::RootGroup));
    }
}

} // namespace LM
