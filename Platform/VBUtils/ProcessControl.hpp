#pragma once

// How an object file system reports a long walk: started with an estimated total, stepped once
// per file, finished, and asked whether the user stopped it. The foundation's process control
// that shows it is passed to each call, so one of these may serve several walks in turn.
#include "KLRoot/KLExport.hpp"

namespace KL {
class ProcessControl;
}

namespace OVFS {

class LM_EXPORT ProcessControl {
public:
    virtual ~ProcessControl();
    virtual void Start(KL::ProcessControl& process, int total) = 0;
    virtual void Finish(KL::ProcessControl& process) = 0;
    virtual void Step(KL::ProcessControl& process) = 0;
    virtual bool IsCancelled() = 0;
};

} // namespace OVFS
