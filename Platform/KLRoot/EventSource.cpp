#include "KLRoot/EventSource.hpp"

#include <algorithm>
#include <limits>

namespace KL {

EventObserver::EventObserver() = default;

// A copy observes nothing until attached: attachment belongs to the object, not its value.
EventObserver::EventObserver(const EventObserver&) {}

EventObserver& EventObserver::operator=(const EventObserver&) {
    return *this;
}

EventObserver::~EventObserver() {
    const std::vector<EventSource*> attachedTo = sources;
    for (EventSource* source : attachedTo)
        source->Detach(*this);
}

EventSource::EventSource() = default;

EventSource::EventSource(const EventSource&) {}

EventSource& EventSource::operator=(const EventSource&) {
    return *this;
}

EventSource::~EventSource() {
    const std::lock_guard guard(lock);
    while (!observers.empty())
        Detach(*observers.back().observer);
}

void EventSource::Attach(EventObserver& observer) {
    const std::lock_guard guard(lock);
    if (IsAttached(observer))
        return;
    observers.push_back({&observer, nextAttachmentNumber++});
    observer.sources.push_back(this);
}

void EventSource::Detach(EventObserver& observer) {
    const std::lock_guard guard(lock);
    const auto it = std::find_if(observers.begin(), observers.end(),
                                 [&](const ObserverEntry& entry) { return entry.observer == &observer; });
    if (it == observers.end())
        return;
    observers.erase(it);
    Forget(observer);
}

void EventSource::Forget(EventObserver& observer) {
    auto& sources = observer.sources;
    const auto it = std::find(sources.begin(), sources.end(), this);
    if (it != sources.end())
        sources.erase(it);
}

std::size_t EventSource::GetObserverCount() const {
    const std::lock_guard guard(lock);
    return observers.size();
}

bool EventSource::IsAttached(const EventObserver& observer) const {
    const std::lock_guard guard(lock);
    return std::any_of(observers.begin(), observers.end(),
                       [&](const ObserverEntry& entry) { return entry.observer == &observer; });
}

void EventSource::NotifyObservers(const std::function<void(EventObserver&)>& notify) {
    const std::lock_guard guard(lock);
    std::uint64_t lastCalled = std::numeric_limits<std::uint64_t>::max();
    std::size_t position = observers.size();
    while (position > 0) {
        position = std::min(position, observers.size());
        if (position == 0)
            break;
        const ObserverEntry entry = observers[position - 1];
        --position;
        if (entry.attachmentNumber >= lastCalled)
            continue;
        lastCalled = entry.attachmentNumber;
        notify(*entry.observer);
    }
}

} // namespace KL
