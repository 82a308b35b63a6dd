#include "services/event_bus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

template <typename Predicate>
bool WaitFor(Predicate done, std::chrono::seconds limit = std::chrono::seconds(10)) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

class Recorder : public CVDelegateSubscriber {
  public:
    ~Recorder() override { UnSubscribe(); }
    int Add(int eventId, const CVGuid* source) { return Subscribe(eventId, source); }
    void Remove() { UnSubscribe(); }
    void HandleEvent(const CVEventInfo* event) override {
        lastCode = event->code;
        lastReader = event->readerName;
        ++received;
        if (onEvent) onEvent(this);
    }
    std::atomic<int> received{0};
    int lastCode = 0;
    std::wstring lastReader;
    std::function<void(Recorder*)> onEvent;
};

// Each test uses its own event ids: the registry is process-wide.
TEST(EventBus, DeliversOnlyToMatchingIdAndSource) {
    const int id = 50100;
    Recorder a, b, otherSource, otherId;
    ASSERT_EQ(a.Add(id, &CV_SOURCE_CARD_EVENTS), 0);
    ASSERT_EQ(b.Add(id, &CV_SOURCE_CARD_EVENTS), 0);
    otherSource.Add(id, &CV_SOURCE_SESSION_STATE);
    otherId.Add(id + 1, &CV_SOURCE_CARD_EVENTS);

    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS), 2);
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 7, L"Reader 1"), 2);
    EXPECT_EQ(a.received, 1);
    EXPECT_EQ(a.lastCode, 7);
    EXPECT_EQ(a.lastReader, L"Reader 1");
    EXPECT_EQ(otherSource.received + otherId.received, 0);

    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_SESSION_STATE, 1, nullptr), 1);
    EXPECT_EQ(otherSource.lastReader, L"") << "a null reader arrives as an empty string";
    EXPECT_EQ(PublishEvent(id, nullptr, 1, L"x"), -1);
    EXPECT_EQ(PublishEvent(id + 2, &CV_SOURCE_CARD_EVENTS, 1, L"x"), 0);
    EXPECT_NE(a.Add(id, nullptr), 0);

    b.Remove();
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 8, L""), 1);
    EXPECT_EQ(b.received, 1);
}

TEST(EventBus, OneSubscriberHoldsSeveralSubscriptionsAndLosesThemAllAtOnce) {
    const int id = 50200;
    Recorder r;
    r.Add(id, &CV_SOURCE_CARD_EVENTS);
    r.Add(id, &CV_SOURCE_CARD_EVENTS); // twice the same: still one delivery
    r.Add(id + 1, &CV_SOURCE_CARD_EVENTS);
    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS), 1);
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 0, L""), 1);
    EXPECT_EQ(PublishEvent(id + 1, &CV_SOURCE_CARD_EVENTS, 0, L""), 1);
    EXPECT_EQ(r.received, 2);
    r.Remove();
    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS) + CountSubscribers(id + 1, CV_SOURCE_CARD_EVENTS),
              0);
    {
        Recorder scoped;
        scoped.Add(id, &CV_SOURCE_CARD_EVENTS);
    }
    EXPECT_EQ(CountSubscribers(id, CV_SOURCE_CARD_EVENTS), 0) << "destruction unsubscribes";
}

TEST(EventBus, HandlersMaySubscribeAndUnsubscribeDuringDelivery) {
    const int id = 50300;
    Recorder quitter, late, stays;
    quitter.Add(id, &CV_SOURCE_CARD_EVENTS);
    stays.Add(id, &CV_SOURCE_CARD_EVENTS);
    quitter.onEvent = [&](Recorder* self) {
        self->Remove();
        late.Add(id, &CV_SOURCE_CARD_EVENTS);
    };
    PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 0, L"");
    EXPECT_EQ(quitter.received + stays.received, 2);
    EXPECT_EQ(late.received, 0) << "a subscription made during a delivery waits for the next event";
    EXPECT_EQ(PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 0, L""), 2);
    EXPECT_EQ(quitter.received, 1);
}

struct HookLog : IEventSourceHooks {
    void OnFirstSubscriber(int eventId, const CVGuid& source) override { Add(L"first", eventId); }
    void OnLastSubscriberGone(int eventId, const CVGuid& source) override { Add(L"last", eventId); }
    void Add(const wchar_t* what, int eventId) {
        std::lock_guard<std::mutex> guard(lock);
        calls.push_back(what + std::to_wstring(eventId));
        threads.push_back(std::this_thread::get_id());
    }
    std::mutex lock;
    std::vector<std::wstring> calls;
    std::vector<std::thread::id> threads;
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
    for (const auto& thread : hooks.threads)
        EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(EventBus, SubscriberMayBeDestroyedWhileAnotherThreadPublishes) {
    const int id = 50500;
    std::atomic<bool> stop{false};
    std::atomic<long> published{0};
    std::thread publisher([&] {
        while (!stop) {
            PublishEvent(id, &CV_SOURCE_CARD_EVENTS, 1, L"reader");
            ++published;
        }
    });
    for (int round = 0; round < 200; ++round) {
        auto r = std::make_unique<Recorder>();
        std::vector<int> scratch(64);
        r->onEvent = [&scratch](Recorder* self) { scratch[self->received % 64] = self->lastCode; };
        r->Add(id, &CV_SOURCE_CARD_EVENTS);
        ASSERT_TRUE(WaitFor([&] { return r->received > 0; }));
        r.reset(); // ASan reports any delivery still touching it
    }
    stop = true;
    publisher.join();
    EXPECT_GT(published, 0);
}

TEST(EventBus, SourceGuidsHaveTheirRegisteredValues) {
    auto text = [](const CVGuid& g) {
        char out[40];
        std::snprintf(out, sizeof out, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", g.data1, g.data2,
                      g.data3, g.data4[0], g.data4[1], g.data4[2], g.data4[3], g.data4[4], g.data4[5],
                      g.data4[6], g.data4[7]);
        return std::string(out);
    };
    EXPECT_EQ(text(CV_SOURCE_CARD_EVENTS), "E9F60E34-E16C-4C33-A5F0-AA46DB99CA32");
    EXPECT_EQ(text(CV_SOURCE_SESSION_STATE), "F0C38807-4D99-4004-8C00-7C1EA149235D");
    EXPECT_FALSE(CV_SOURCE_CARD_EVENTS == CV_SOURCE_SESSION_STATE);
}

} // namespace
