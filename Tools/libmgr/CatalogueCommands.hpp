#pragma once

#include "CommandLine.hpp"

#include <nlohmann/json.hpp>

namespace libmgr {

// The commands that enumerate libraries and show the catalogue: demo, enumerate, list, duplicates
// and tree. Each starts the manager as a host would, through the public interface only.
int RunEnumerateCommand(const Arguments& arguments);
int RunListCommand(const Arguments& arguments);
int RunDuplicatesCommand(const Arguments& arguments);
int RunTreeCommand(const Arguments& arguments);
// `sampleLibrary` is the sample library's folder.
int RunDemoCommand(const Arguments& arguments, const std::string& sampleLibrary);

class Session;
// The counts that `enumerate --json` prints.
nlohmann::json SummaryJson(Session& session);
// The type tree to `depth` levels (0: all) as `tree --json` prints it.
nlohmann::json TypeTreeJson(Session& session, int depth);
// The four kinds of duplicate findings of the session's catalogue, as `duplicates --json` prints them.
nlohmann::json DuplicatesJson(Session& session);

} // namespace libmgr
