#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/Time.hpp"
#include "KLRoot/UniString.hpp"

namespace LPF {

// A bare script file. On disk it is UTF-8 or UTF-16 text, told apart by its byte order mark; text
// without a mark is UTF-8 when it is valid UTF-8 and Latin-1 otherwise. The script engine gets
// UTF-16 in the host's order, without a mark.
class LM_EXPORT ScriptFile {
public:
    static constexpr std::int64_t MaxScriptSize = 64 * 1024 * 1024;

    explicit ScriptFile(const IO::Location& location);

    int GetStatus() const { return status; }
    int GetModificationTime(TITime* time) const;
    // The file name without its extension: a bare script has no name of its own.
    int GetDocumentName(KL::UniString* name) const;
    // The whole script as UTF-16 units in a new handle that the caller owns.
    int GetData(GSHandle* data) const;

private:
    IO::Location location;
    TITime modificationTime = 0;
    int status = 0;
};

// Decodes script bytes as ScriptFile does.
LM_EXPORT std::u16string DecodeScriptText(const char* bytes, std::size_t size);

} // namespace LPF
