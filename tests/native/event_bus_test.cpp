#include "services/event_bus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

class Recorder : public CVDelegateSubscriber {
  public:
    ~Recorder() override { UnSubscribe(); }
    int Add(int eventId, const CVGuid* source) { return Subscribe(eventId, source); }
    void Remove() { UnSubscribe(); }
    void HandleEvent(const CVEventInfo* event) override {
        last = std::to_wstring(event->code) + L" " + event->readerName;
        ++received;
        if (onEvent) onEvent(this);
    }
    std::atomic<int> received{0};
    std::wstring last;
    std::function<void(Recorder*)> onEvent;
};

// Each test uses its own event ids: the registry is process-wide.
TEST(EventBus, DeliversByIdAndSourceUntilUnsubscribed) {
    const int id = 50100;
    Recorder a, b, otherSource, otherId;
    ASSERT_EQ(a.Add(id, &CV_SOURCE_CARD_EVENTS), 0);
    a.Add(id, &CV_SOURCE_CARD_EVENTS); // twice the same: still one delivery
    a.Add(id + 1, &CV_SOURCE_CARD_EVENTS);
    b.Add(id, &CV_SOURCE_CARD_EVENTS);
    otherSource.Add(id, &CV_SOURCE_SESSION_STATE);
    otherId.Add(id + 1, &CV_SOURCE_CARD_EVENTS);
    EXPECT_NE(a.Add(id, nullptr), 0);

    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS), 2);
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 7, L"Reader 1"), 2);
    EXPECT_EQ(a.received, 1);
    EXPECT_EQ(a.last, L"7 Reader 1");
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_SESSION_STATE, 1, nullptr), 1);
    EXPECT_EQ(otherSource.last, L"1 ") << "a null reader arrives as an empty string";
    EXPECT_EQ(PublishEvent(id, nullptr, 1, L"x"), -1);

    // A handler may unsubscribe itself during a delivery.
    b.onEvent = [](Recorder* self) { self->Remove(); };
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 8, L""), 2);
    a.Remove(); // drops all of its subscriptions; b has dropped its own
    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS) + CountSubscribers(id + 1, CV_SOURCE_CARD_EVENTS),
              1);
}

struct HookLog : IEventSourceHooks {
    void OnFirstSubscriber(int eventId, const CVGuid&) override { Add(L"first", eventId); }
    void OnLastSubscriberGone(int eventId, const CVGuid&) override { Add(L"last", eventId); }
    void Add(const wchar_t* what, int eventId) {
        EXPECT_EQ(std::this_thread::get_id(), thread) << "hooks run on the subscribing thread";
        calls.push_back(what + std::to_wstring(eventId));
    }
    std::vector<std::wstring> calls;
    std::thread::id thread = std::this_thread::get_id();
};

TEST(EventBus, HooksHearTheFirstAndTheLastSubscriberOfEachKey) {
    const int id = 50400;
    HookLog hooks;
    SetEventSourceHooks(&hooks);
    {
        Recorder a, b;
        a.Add(id, &CV_SOURCE_SESSION_STATE);
        b.Add(id, &CV_SOURCE_SESSION_STATE);
        b.Add(id + 1, &CV_SOURCE_SESSION_STATE);
        a.Remove();
        EXPECT_EQ(hooks.calls, (std::vector<std::wstring>{L"first50400", L"first50401"}));
        // Subscribing inside a delivery is announced on the same thread once it has finished.
        b.onEvent = [&](Recorder*) { a.Add(id + 2, &CV_SOURCE_SESSION_STATE); };
        PublishEvent(id + 1, &CV_SOURCE_SESSION_STATE, 0, L"");
        EXPECT_EQ(hooks.calls.back(), L"first50402");
    }
    SetEventSourceHooks(nullptr);
    EXPECT_EQ(hooks.calls.size(), 6u);
}

TEST(EventBus, SubscriberMayBeDestroyedWhileAnotherThreadPublishes) {
    const int id = 50500;
    std::atomic<bool> stop{false};
    std::thread publisher([&] {
        while (!stop)
            PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 1, L"reader");
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int round = 0; round < 200 && std::chrono::steady_clock::now() < deadline; ++round) {
        auto* r = new Recorder;
        r->Add(id, &CV_SOURCE_CARD_EVENTS);
        while (r->received == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        delete r; // ASan reports any delivery still touching it
    }
    stop = true;
    publisher.join();
    EXPECT_LT(std::chrono::steady_clock::now(), deadline) << "a delivery did not come in time";
}

} // namespace
