#include "KLRoot/ProcessControl.hpp"

namespace KL {

ProcessControl::ProcessControl() = default;
ProcessControl::~ProcessControl() = default;

void ProcessControl::StartProcess(int id) {
    processId = id;
    running = true;
    step = 0;
    phaseProgress = phaseMaximum = 0;
    ProcessChanged();
}

void ProcessControl::EndProcess() {
    running = false;
    ProcessChanged();
}

void ProcessControl::SetTitle(const UniString& text) {
    title = text;
    ProcessChanged();
}

void ProcessControl::SetPhaseText(const UniString& text) {
    phaseText = text;
    phaseProgress = phaseMaximum = 0;
    PhaseChanged();
}

void ProcessControl::SetPhaseProgress(std::int64_t value, std::int64_t maximum) {
    phaseMaximum = maximum < 0 ? 0 : maximum;
    phaseProgress = value < 0 ? 0 : (value > phaseMaximum && phaseMaximum > 0 ? phaseMaximum : value);
    ProgressChanged();
}

void ProcessControl::SetStep(std::int64_t number) {
    step = number;
    ProgressChanged();
}

bool ProcessControl::Step() {
    ++step;
    ProgressChanged();
    return BreakRequested();
}

NonInterruptibleProcessControl::NonInterruptibleProcessControl() = default;
NonInterruptibleProcessControl::~NonInterruptibleProcessControl() = default;

} // namespace KL
