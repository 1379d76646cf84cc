#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace KL {

class EventSource;

// Receives notifications of the sources it is attached to. Destroying an observer detaches it.
class LM_EXPORT EventObserver {
public:
    EventObserver();
    EventObserver(const EventObserver&);
    EventObserver& operator=(const EventObserver&);
    virtual ~EventObserver();

private:
    friend class EventSource;
    std::vector<EventSource*> sources;
};

// Keeps its observers in order of attachment, each with a number that grows with every
// attachment. Notifications walk from the newest observer to the oldest and survive observers
// attached or detached during a call. Any thread may attach and detach: a re-entrant lock guards
// the list, held through a notification so that an observer may detach itself.
class LM_EXPORT EventSource {
public:
    EventSource();
    EventSource(const EventSource&);
    EventSource& operator=(const EventSource&);
    virtual ~EventSource();

    void Attach(EventObserver& observer);
    void Detach(EventObserver& observer);
    bool IsAttached(const EventObserver& observer) const;
    std::size_t GetObserverCount() const;

protected:
    // The source must outlive its own notification.
    // Calls `notify` for each observer attached when the walk starts and still attached when its
    // turn comes, newest first. After each call the list is read again: the position is clamped to
    // its length and entries whose number is not below that of the observer just called are
    // skipped, so none is called twice and newly attached ones wait for the next notification.
    void NotifyObservers(const std::function<void(EventObserver&)>& notify);

private:
    friend class EventObserver;
    struct ObserverEntry {
        EventObserver* observer;
        std::uint64_t attachmentNumber;
    };

    void Forget(EventObserver& observer);

    mutable std::recursive_mutex lock;
    std::vector<ObserverEntry> observers;
    std::uint64_t nextAttachmentNumber = 1;
};

} // namespace KL
