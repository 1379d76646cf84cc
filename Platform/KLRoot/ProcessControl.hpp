#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace KL {

// The channel through which long work reports itself and learns of a user's break.
//
// A process has an id and a title; within it, phases have a text and a progress of a maximum;
// steps are numbered. The base keeps this state and calls the protected hooks, so a front end
// (a progress bar, a dialog) overrides only what it shows. Whether the user asked for a break
// is the front end's answer.
class LM_EXPORT ProcessControl {
public:
    ProcessControl();
    virtual ~ProcessControl();
    ProcessControl(const ProcessControl&) = delete;
    ProcessControl& operator=(const ProcessControl&) = delete;

    bool IsProcessRunning() const { return running; }
    int GetProcessId() const { return processId; }
    void StartProcess(int id);
    void EndProcess();
    void SetTitle(const UniString& title);
    const UniString& GetTitle() const { return title; }

    void SetPhaseText(const UniString& text);
    const UniString& GetPhaseText() const { return phaseText; }
    // Progress within the current phase: `value` out of `maximum`.
    void SetPhaseProgress(std::int64_t value, std::int64_t maximum);
    std::int64_t GetPhaseProgress() const { return phaseProgress; }
    std::int64_t GetPhaseMaximum() const { return phaseMaximum; }

    void SetStep(std::int64_t number);
    // Advances the step count by one and gives the front end a chance to run; returns
    // BreakRequested().
    bool Step();
    std::int64_t GetStep() const { return step; }

    // True when the user has asked the work to stop.
    virtual bool BreakRequested() = 0;

protected:
    virtual void ProcessChanged() {}
    virtual void PhaseChanged() {}
    virtual void ProgressChanged() {}

private:
    UniString title;
    UniString phaseText;
    std::int64_t phaseProgress = 0;
    std::int64_t phaseMaximum = 0;
    std::int64_t step = 0;
    int processId = 0;
    bool running = false;
};

// For work that no user can stop: it never reports a break and shows nothing.
class LM_EXPORT NonInterruptibleProcessControl : public ProcessControl {
public:
    NonInterruptibleProcessControl();
    ~NonInterruptibleProcessControl() override;
    bool BreakRequested() override { return false; }
};

} // namespace KL
