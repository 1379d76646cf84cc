#include "LibraryGenerator.hpp"

#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <numeric>
#include <span>
#include <unistd.h>

namespace libmgr {

namespace {

constexpr const char* Words[] = {"Chair", "Table", "Lamp", "Door", "Window", "Shelf",
                                 "Desk",  "Stair", "Beam", "Sofa", "Column", "Railing"};

// What scripts of the part language look like, for sizes that compress and parse like real ones.
constexpr const char* ScriptLines[] = {"BLOCK A, B, ZZYZX\n",
                                       "ADDZ ZZYZX / 2\n",
                                       "DEL 1\n",
                                       "ROTZ 90\n",
                                       "MATERIAL mat\n",
                                       "PEN pen\n",
                                       "FOR i = 1 TO n\n",
                                       "NEXT i\n",
                                       "CYLIND r, ZZYZX\n",
                                       "! keeps the legs inside the seat\n",
                                       "IF A > B THEN GOSUB 100\n",
                                       "RETURN\n"};

constexpr std::size_t KiB = 1024;

std::u16string Widen(const std::string& text) {
    return std::u16string(text.begin(), text.end());
}

} // namespace

LibraryGenerator::LibraryGenerator(const GeneratorOptions& options)
    : options(options), random(options.seed) {}

KL::Guid LibraryGenerator::NewGuid() {
    const std::uint64_t high = random();
    const std::uint64_t low = random();
    std::array<std::uint8_t, 8> tail{};
    for (std::size_t i = 0; i < tail.size(); ++i)
        tail[i] = static_cast<std::uint8_t>(low >> (8 * i));
    return KL::Guid(static_cast<std::uint32_t>(high >> 32), static_cast<std::uint16_t>(high >> 16),
                    static_cast<std::uint16_t>(high), tail);
}

// A random tree below one root: each type hangs below an earlier one that leaves room for its
// parts within the deepest chain allowed, so chains of every length up to it occur.
void LibraryGenerator::PlanTemplates() {
    const int count = options.depth == 1 ? 1 : std::clamp(options.parts / 40, 4, 400);
    templates.push_back({KL::UnID(NewGuid(), NewGuid()), "General Object", {}});
    for (int t = 1; t < count; ++t) {
        std::size_t parent = 0;
        do
            parent = Below(templates.size());
        while (templates[parent].ancestry.size() + 2 > static_cast<std::size_t>(options.depth));
        Template type{KL::UnID(NewGuid(), NewGuid()), "Type " + std::to_string(t),
                      templates[parent].ancestry};
        type.ancestry.push_back(templates[parent].id);
        templates.push_back(std::move(type));
    }
}

// Leaf folders two to four levels below "Objects", a few dozen parts each.
std::vector<std::string> LibraryGenerator::PlanFolders() {
    std::vector<std::string> folders;
    const int count = std::max(1, options.parts / 50);
    for (int k = 0; k < count; ++k) {
        const std::uint64_t levels = 1 + Below(3);
        std::string path = "Objects/Area " + std::to_string(k % 9);
        if (levels >= 2)
            path += "/Group " + std::to_string(k % 17);
        if (levels >= 3)
            path += "/Shelf " + std::to_string(k % 5);
        folders.push_back(path + "/Set " + std::to_string(k));
    }
    return folders;
}

std::vector<LibraryGenerator::PartPlan> LibraryGenerator::PlanParts(const std::vector<std::string>& folders) {
    std::vector<PartPlan> plans;
    for (int i = 0; i < options.parts; ++i) {
        PartPlan plan;
        plan.id = KL::UnID(NewGuid(), NewGuid());
        plan.name = std::string(Words[Below(std::size(Words))]) + " " + std::to_string(i);
        plan.templateIndex = Below(templates.size());
        plan.folder = folders[Below(folders.size())];
        plans.push_back(std::move(plan));
    }
    return plans;
}

std::u16string LibraryGenerator::ScriptText(std::size_t units) {
    std::string text;
    while (text.size() < units)
        text += ScriptLines[Below(std::size(ScriptLines))];
    text.resize(units);
    return Widen(text);
}

// Scripts take what the part's size leaves after its parameters: 2 to 40 KiB in all. A tiny part
// has a 3D and a 2D script of 64 to 192 bytes together.
void LibraryGenerator::AddScripts(LPF::SymbolFile* file) {
    const std::size_t bytes = options.tiny ? 64 + Below(128) : 2 * KiB + Below(38 * KiB);
    const std::size_t units = bytes / sizeof(char16_t);
    const std::pair<QDL_ScriptType, std::size_t> shares[] = {
        {QDL_3DScript, 50}, {QDL_2DScript, 20}, {QDL_MasterScript, 20}, {QDL_ParameterScript, 10}};
    const std::pair<QDL_ScriptType, std::size_t> tinyShares[] = {{QDL_3DScript, 70}, {QDL_2DScript, 30}};
    using Shares = std::span<const std::pair<QDL_ScriptType, std::size_t>>;
    for (const auto& [type, percent] : options.tiny ? Shares(tinyShares) : Shares(shares)) {
        const std::u16string script = ScriptText(units * percent / 100);
        LPF::SectionInfo info;
        info.tag = LPF::Tags::Scripts[type - 1];
        file->SetSection(info, script.data(), script.size() * sizeof(char16_t));
    }
}

void LibraryGenerator::AddParameters(LPF::SymbolFile* file) {
    SyParSection section;
    for (const char* name : {"A", "B", "ZZYZX"})
        section.parameters.push_back(
            {name, ParLength, 0, KL::UniString(name), 0, 0, {0.5 + 0.1 * Below(20)}, {}});
    const std::uint16_t kinds[] = {ParLength,  ParAngle,    ParRealNum, ParInteger,
                                   ParBoolean, ParMaterial, ParPenColor};
    const std::uint64_t more = options.tiny ? 0 : 2 + Below(26);
    for (std::uint64_t k = 0; k < more; ++k) {
        const std::string name = "p" + std::to_string(k);
        if (Below(8) == 0) {
            section.parameters.push_back({name,
                                          ParString,
                                          0,
                                          KL::UniString("Label " + std::to_string(k)),
                                          0,
                                          0,
                                          {},
                                          {KL::UniString("Oak veneer")}});
            continue;
        }
        section.parameters.push_back({name,
                                      kinds[Below(std::size(kinds))],
                                      0,
                                      KL::UniString("Parameter " + std::to_string(k)),
                                      0,
                                      0,
                                      {static_cast<double>(Below(100))},
                                      {}});
    }
    file->SetSectionDataRef(LPF::Tags::Parameters, 0, BuildSyParHandle(section), true, -1);
}

void LibraryGenerator::MakeTemplate(const Template& type, LPF::SymbolFile* file) {
    file->SetOwnUnID(type.id);
    file->SetDocumentName(KL::UniString(type.name));
    file->SetPlaceable(false);
    LM::AncestryInfo chain;
    for (const KL::UnID& ancestor : type.ancestry)
        chain.Append(ancestor);
    chain.MarkAsTemplate();
    file->SetSectionDataRef(LPF::Tags::Ancestry, 0, chain.GetAncestrySection(), true, -1);
    AddParameters(file);
}

void LibraryGenerator::MakePart(const PartPlan& plan, LPF::SymbolFile* file) {
    file->SetOwnUnID(plan.id);
    file->SetDocumentName(KL::UniString(plan.name));
    file->SetPlaceable(true);
    const Template& type = templates[plan.templateIndex];
    LM::AncestryInfo chain;
    for (const KL::UnID& ancestor : type.ancestry)
        chain.Append(ancestor);
    chain.Append(type.id);
    file->SetSectionDataRef(LPF::Tags::Ancestry, 0, chain.GetAncestrySection(), true, -1);
    AddParameters(file);
    AddScripts(file);
}

int LibraryGenerator::Save(const LPF::SymbolFile& file, const std::filesystem::path& path,
                           GeneratorSummary* summary, std::string* failedPath) {
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    const int result = file.Save(IO::Location(path.string()), IOUtil::ScratchFile::SyncByCaller);
    if (result != KL::NoError) {
        *failedPath = path.string();
        return result;
    }
    summary->bytes += std::filesystem::file_size(path, error);
    return KL::NoError;
}

int LibraryGenerator::WriteBytes(const std::filesystem::path& path, const std::string& bytes,
                                 GeneratorSummary* summary, std::string* failedPath) {
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    IOUtil::ScratchFile file(IO::Location(path.string()), 0, 0, IOUtil::ScratchFile::SyncByCaller);
    int result = file.Open(IO::File::WriteMode);
    if (result == KL::NoError)
        result = file.Write(bytes.data(), bytes.size());
    if (result == KL::NoError)
        result = file.MakePermanent();
    if (result != KL::NoError) {
        *failedPath = path.string();
        return result;
    }
    summary->bytes += bytes.size();
    return KL::NoError;
}

int LibraryGenerator::Generate(const std::filesystem::path& root, const Progress& progress,
                               GeneratorSummary* summary, std::string* failedPath) {
    *summary = GeneratorSummary();
    PlanTemplates();
    const std::vector<std::string> folders = PlanFolders();
    const std::vector<PartPlan> plans = PlanParts(folders);
    const int duplicates = static_cast<int>(std::lround(options.parts * options.duplicates / 100.0));
    const int total = static_cast<int>(templates.size() + plans.size()) + duplicates;
    int done = 0;
    const auto step = [&] { return !progress || progress(++done, total); };

    for (std::size_t t = 0; t < templates.size(); ++t) {
        const std::string folder = "Templates/Depth " + std::to_string(templates[t].ancestry.size());
        LPF::SymbolFile file;
        MakeTemplate(templates[t], &file);
        if (const int result = Save(file, root / folder / (templates[t].name + ".klm"), summary, failedPath))
            return result;
        if (!step())
            return Stopped;
    }
    for (const PartPlan& plan : plans) {
        LPF::SymbolFile file;
        MakePart(plan, &file);
        if (const int result = Save(file, root / plan.folder / (plan.name + ".klm"), summary, failedPath))
            return result;
        if (!step())
            return Stopped;
    }
    // Every other clash is the same part again; the rest are other revisions of one part. Each
    // clash takes a part of its own, so that every one is reported on its own.
    std::vector<std::size_t> order(plans.size());
    std::iota(order.begin(), order.end(), 0);
    for (int j = 0; j < duplicates; ++j) {
        const std::size_t at = static_cast<std::size_t>(j);
        std::swap(order[at], order[at + Below(order.size() - at)]);
        PartPlan copy = plans[order[at]];
        const bool sameId = j % 2 == 0;
        if (!sameId)
            copy.id = KL::UnID(copy.id.mainGuid, NewGuid());
        const std::string file = copy.name + (sameId ? " copy " : " revision ") + std::to_string(j) + ".klm";
        LPF::SymbolFile part;
        MakePart(copy, &part);
        if (const int result =
                Save(part, root / (sameId ? "Duplicates/Copies" : "Duplicates/Revisions") / file, summary,
                     failedPath))
            return result;
        ++(sameId ? summary->idDuplicates : summary->revisionConflicts);
        if (!step())
            return Stopped;
    }
    // Pictures that scripts would name, and a few notes.
    const std::string pngSignature("\x89PNG\r\n\x1a\n", 8);
    for (int k = 0; k < options.parts / 25; ++k) {
        std::string bytes = pngSignature;
        const std::uint64_t size = options.tiny ? 64 + Below(448) : KiB + Below(7 * KiB);
        while (bytes.size() < size)
            bytes.push_back(static_cast<char>(random() & 0xFF));
        const std::string name =
            "Pictures/Set " + std::to_string(k / 50) + "/Texture " + std::to_string(k) + ".png";
        if (const int result = WriteBytes(root / name, bytes, summary, failedPath))
            return result;
        ++summary->pictures;
    }
    for (int k = 0; k < options.parts / 100; ++k) {
        const std::string text = "Note " + std::to_string(k) + ": measured on site; see the drawings.\n";
        if (const int result =
                WriteBytes(root / ("Texts/Note " + std::to_string(k) + ".txt"), text, summary, failedPath))
            return result;
        ++summary->texts;
    }
    // Files are not synced one by one, which would make a large library take hours; one sync of
    // the file system keeps them all before the summary says they are written.
    if (const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); fd >= 0) {
        ::syncfs(fd);
        ::close(fd);
    }
    summary->parts = options.parts;
    summary->templates = static_cast<int>(templates.size());
    summary->folders = static_cast<int>(folders.size());
    return KL::NoError;
}

} // namespace libmgr
