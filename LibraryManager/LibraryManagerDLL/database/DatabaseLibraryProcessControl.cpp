#include "database/DatabaseLibraryProcessControl.hpp"

#include "KLRoot/ProcessControl.hpp"
#include "KLRoot/Thread.hpp"

namespace LM {

namespace {

constexpr int ContainerProcessId = 84;

} // namespace

DatabaseLibraryProcessControl::DatabaseLibraryProcessControl(const KL::UniString& title) : title(title) {}

DatabaseLibraryProcessControl::~DatabaseLibraryProcessControl() = default;

void DatabaseLibraryProcessControl::Start(KL::ProcessControl& process, int newTotal) {
    active = true;
    cancelled = false;
    onMainThread = KL::Thread::IsMain();
    if (onMainThread) {
        wasRunning = process.IsProcessRunning();
        if (!wasRunning)
            process.StartProcess(ContainerProcessId);
        process.SetTitle(title);
    }
    total = newTotal;
    process.SetStep(0);
    progress = 0;
}

void DatabaseLibraryProcessControl::Step(KL::ProcessControl& process) {
    progress += 2;
    // Asking the user costs; every eighth file is often enough.
    if ((progress & 0xF) == 0 && process.Step())
        cancelled = true;
}

void DatabaseLibraryProcessControl::Finish(KL::ProcessControl& process) {
    if (onMainThread && !wasRunning)
        process.EndProcess();
    active = false;
}

} // namespace LM
