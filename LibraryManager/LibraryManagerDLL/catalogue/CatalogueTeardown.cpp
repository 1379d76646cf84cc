#include "catalogue/CatalogueTeardown.hpp"

#include "catalogue/LibPartSet.hpp"
#include "lists/FolderSet.hpp"

#include <system_error>

namespace LM {

namespace {

// Small catalogues are not worth a thread.
constexpr std::size_t MinRecordsForThread = 1000;

struct TreeDeleter {
    void operator()(Paths::TreeEntry* tree) const { Paths::DeleteTree(tree); }
};

// Whichever thread lets it go destroys everything it holds.
struct Replaced {
    std::unique_ptr<LibPartSet> parts;
    std::unique_ptr<FolderSet> folders;
    std::unique_ptr<Paths::TreeEntry, TreeDeleter> tree;
};

} // namespace

CatalogueTeardown::~CatalogueTeardown() {
    Wait();
}

void CatalogueTeardown::HandOver(std::unique_ptr<LibPartSet> parts, std::unique_ptr<FolderSet> folders,
                                 Paths::TreeEntry* tree) {
    Wait();
    if (parts != nullptr)
        parts->ClearUserData();
    Replaced replaced{std::move(parts), std::move(folders),
                      std::unique_ptr<Paths::TreeEntry, TreeDeleter>(tree)};
    if (replaced.parts == nullptr || replaced.parts->GetCount() < MinRecordsForThread)
        return; // destroyed here, on leaving
    try {
        worker =
            std::thread([replaced = std::move(replaced)]() mutable { Replaced gone = std::move(replaced); });
    } catch (const std::system_error&) {
        // No thread: what the failed start held is gone with it, on this thread.
    }
}

void CatalogueTeardown::Wait() {
    if (worker.joinable())
        worker.join();
}

} // namespace LM
