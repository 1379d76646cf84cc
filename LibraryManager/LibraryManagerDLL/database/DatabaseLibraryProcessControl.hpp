#pragma once

// The progress of a database container's mount: a process of its own on the main thread when
// none runs yet, under a title, and a look at the user's break once every eight files.
#include "VBUtils/ProcessControl.hpp"

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

class LM_EXPORT DatabaseLibraryProcessControl : public OVFS::ProcessControl {
public:
    explicit DatabaseLibraryProcessControl(const KL::UniString& title);
    ~DatabaseLibraryProcessControl() override;

    void Start(KL::ProcessControl& process, int total) override;
    void Finish(KL::ProcessControl& process) override;
    void Step(KL::ProcessControl& process) override;
    bool IsCancelled() override { return cancelled; }

    int GetTotal() const { return total; }
    bool IsActive() const { return active; }

private:
    std::int32_t total = 0;
    std::int32_t progress = 0;
    bool cancelled = false;
    bool onMainThread = false;
    bool wasRunning = false;
    KL::UniString title;
    bool active = false;
};

} // namespace LM
