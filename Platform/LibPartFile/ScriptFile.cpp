#include "LibPartFile/ScriptFile.hpp"

#include "LibPartFile/ByteSource.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <vector>

namespace LPF {

namespace {

std::u16string DecodeUTF16(const char* bytes, std::size_t size, KL::PlatformSign order) {
    std::u16string units(size / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = KL::LoadInOrder<char16_t>(bytes + 2 * i, order);
    return units;
}

} // namespace

std::u16string DecodeScriptText(const char* bytes, std::size_t size) {
    const auto* s = reinterpret_cast<const unsigned char*>(bytes);
    if (size >= 2 && s[0] == 0xFF && s[1] == 0xFE)
        return DecodeUTF16(bytes + 2, size - 2, KL::LittleEndianSign);
    if (size >= 2 && s[0] == 0xFE && s[1] == 0xFF)
        return DecodeUTF16(bytes + 2, size - 2, KL::BigEndianSign);
    if (size >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) {
        bytes += 3;
        size -= 3;
    }
    if (KL::IsValidUTF8(std::string_view(bytes, size)))
        return KL::UniString(std::string_view(bytes, size)).Units();
    std::u16string latin1(size, u'\0');
    for (std::size_t i = 0; i < size; ++i)
        latin1[i] = static_cast<unsigned char>(bytes[i]);
    return latin1;
}

ScriptFile::ScriptFile(const IO::Location& location) : location(location) {
    FileByteSource source(location);
    const SourceVisit visit(source);
    status = visit.GetStatus();
    if (status == KL::NoError)
        modificationTime = source.GetModificationTime();
}

int ScriptFile::GetModificationTime(TITime* time) const {
    if (status == KL::NoError)
        *time = modificationTime;
    return status;
}

int ScriptFile::GetDocumentName(KL::UniString* name) const {
    if (status != KL::NoError)
        return status;
    IO::Name last;
    if (const int err = location.GetLastLocalName(&last); err != KL::NoError)
        return err;
    *name = last.HasExtension() ? last.GetBase() : last.GetText();
    return KL::NoError;
}

int ScriptFile::GetData(GSHandle* data) const {
    if (data == nullptr)
        return KL::ErrParam;
    *data = nullptr;
    FileByteSource source(location);
    const SourceVisit visit(source);
    if (visit.GetStatus() != KL::NoError)
        return visit.GetStatus();
    if (source.GetLength() > MaxScriptSize)
        return KL::ErrNotEnoughMemory;
    std::vector<char> bytes(source.GetLength());
    if (const int err = source.ReadAt(0, bytes.data(), bytes.size()); err != KL::NoError)
        return err;
    const std::u16string units = DecodeScriptText(bytes.data(), bytes.size());
    *data = KL::BMNewHandleFrom(units.data(), static_cast<std::int64_t>(units.size() * sizeof(char16_t)));
    return *data != nullptr ? KL::NoError : BMError();
}

} // namespace LPF
