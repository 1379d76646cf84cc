#pragma once

#include "KLRoot/EventSource.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

// How clients hear of changes to a catalogue. Called synchronously on the thread of the change;
// both do nothing unless overridden.
class LM_EXPORT LibrarySetObserver : public KL::EventObserver {
public:
    ~LibrarySetObserver() override;
    virtual void SomethingHappened();
    virtual void LibraryListChanged();
};

} // namespace LM
