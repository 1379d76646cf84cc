#pragma once

#include "Paths.hpp"

#include <memory>
#include <thread>

namespace LM {

class FolderSet;
class LibPartSet;

// Destroys the catalogue that an enumeration replaces on a thread of its own, beside the walk
// that builds the new one: freeing every record, name and tree node of a large catalogue costs
// about as much as a quarter of building it. Only one runs at a time; the next hand-over and the
// owner's end wait for it.
class CatalogueTeardown {
public:
    CatalogueTeardown() = default;
    ~CatalogueTeardown();
    CatalogueTeardown(const CatalogueTeardown&) = delete;
    CatalogueTeardown& operator=(const CatalogueTeardown&) = delete;

    // The host's data on the records is released here, on the caller's thread; the rest on the
    // teardown thread, or here when no thread can be started.
    void HandOver(std::unique_ptr<LibPartSet> parts, std::unique_ptr<FolderSet> folders,
                  Paths::TreeEntry* tree);
    void Wait();

private:
    std::thread worker;
};

} // namespace LM
