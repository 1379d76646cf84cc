#pragma once

// A stand-in for the closed script engine: it runs a script the way the engine does, through the
// file services and file references alone. Every line is read; a line that calls a macro by a
// quoted name resolves it from the caller and runs the macro's 3D script in turn. Each script is
// compiled once: its code is read back when the catalogue has it, and made and stored when not.
#include <LibraryManager.hpp>

#include <map>
#include <string>

namespace testsupport {

class TestScriptEngine {
public:
    // What one run saw. Code reads and writes depend on which thread came first; the rest does not.
    struct Run {
        int lines = 0;
        std::map<std::string, int> resolved; // macro name to the number of calls that found it
        std::map<std::string, int> missing;
        int codeReads = 0;
        int codeWrites = 0;
        int errors = 0;

        bool SameWork(const Run& other) const {
            return lines == other.lines && resolved == other.resolved && missing == other.missing &&
                   errors == other.errors;
        }
    };

    explicit TestScriptEngine(QDL::IFileServices& services, int maxDepth = 8)
        : services(services), maxDepth(maxDepth) {}

    void RunScript(QDL::IFileRef& ref, QDL_ScriptType type, Run* run, int depth = 0) {
        KL::UniString unused;
        if (ref.OpenQDL(nullptr, type, unused) != 0) {
            ++run->errors;
            return;
        }
        KL::UniString line;
        int lineNumber = 0;
        QDL_ScriptType lineType = type;
        std::string text;
        while (ref.GetFileLine(line, &lineNumber, &lineType) >= 0) {
            ++run->lines;
            text += line.ToUTF8() + '\n';
            if (depth < maxDepth) {
                for (const KL::UniString& name : FindMacroCallNames(line))
                    CallMacro(ref, name.ToUTF8(), run, depth);
            }
        }
        ref.Close();
        Compile(ref, type, text, run);
    }

private:
    void CallMacro(QDL::IFileRef& caller, const std::string& name, Run* run, int depth) {
        short missing = 0;
        KL::UnID found;
        QDL::IFileRef* macro =
            services.Macro2File(KL::UniString(name), &caller, nullptr, &missing, QDL_3DScript, &found, false);
        if (macro == nullptr) {
            ++run->missing[name];
            return;
        }
        ++run->resolved[name];
        RunScript(*macro, QDL_3DScript, run, depth + 1);
        services.Dispose(&macro);
    }

    // "Compiled" code is the script's text, so that what comes back can be checked.
    void Compile(QDL::IFileRef& ref, QDL_ScriptType type, const std::string& text, Run* run) {
        KL::ConstSharedPtr<BinCode> code;
        if (ref.ReadCode(code, type) == 0 && code != nullptr) {
            ++run->codeReads;
            if (std::string(*code->GetHandle(), static_cast<std::size_t>(code->GetSize())) != text)
                ++run->errors;
            return;
        }
        short written = 0;
        const KL::ConstSharedPtr<BinCode> made(new BinCode(KL::BMNewHandleFrom(text.data(), text.size())));
        if (ref.WriteCode(made, type, &written) == 0)
            ++run->codeWrites;
    }

    QDL::IFileServices& services;
    int maxDepth;
};

} // namespace testsupport
