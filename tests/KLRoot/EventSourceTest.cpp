#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

class Recorder : public KL::EventObserver {
public:
    Recorder(std::string name, std::vector<std::string>* log) : name(std::move(name)), log(log) {}
    std::function<void()> onCall;

    void Notified() {
        log->push_back(name);
        if (onCall)
            onCall();
    }

private:
    std::string name;
    std::vector<std::string>* log;
};

class Source : public KL::EventSource {
public:
    void Send() {
        NotifyObservers([](KL::EventObserver& observer) { static_cast<Recorder&>(observer).Notified(); });
    }
};

TEST(EventSource, NotifiesNewestFirstAndSurvivesChangesDuringACall) {
    std::vector<std::string> log;
    Source source;
    Recorder a("a", &log), b("b", &log), c("c", &log), d("d", &log);
    source.Attach(a);
    source.Attach(b);
    source.Attach(c);
    source.Attach(a); // attaching twice changes nothing
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"c", "b", "a"}));

    // c detaches b and attaches d: b is not called, d waits for the next notification.
    log.clear();
    c.onCall = [&] {
        source.Detach(b);
        source.Attach(d);
    };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"c", "a"}));

    // d detaches itself; the walk goes on with c and a.
    log.clear();
    c.onCall = nullptr;
    d.onCall = [&] { source.Detach(d); };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"d", "c", "a"}));

    // c detaches everyone below it.
    log.clear();
    source.Attach(b);
    c.onCall = [&] { source.Detach(a); };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"b", "c"}));
}

TEST(EventSource, DestroyingEitherSideDetaches) {
    std::vector<std::string> log;
    auto source = std::make_unique<Source>();
    Recorder survivor("survivor", &log);
    {
        Recorder shortLived("short", &log);
        source->Attach(shortLived);
        source->Attach(survivor);
        EXPECT_EQ(source->GetObserverCount(), 2u);
    }
    EXPECT_EQ(source->GetObserverCount(), 1u);
    source->Send();
    EXPECT_EQ(log, (std::vector<std::string>{"survivor"}));
    source.reset(); // the survivor outlives its source without a dangling link
}

} // namespace
