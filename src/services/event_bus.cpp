// The process-wide subscription registry. A delivery runs with the registry locked: that is what
// lets UnSubscribe promise that no delivery to the subscriber is still running elsewhere. The lock
// is recursive because a subscriber may (un)subscribe from inside its own HandleEvent.
#include "services/event_bus.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

const CVGuid CV_SOURCE_CARD_EVENTS = {
    0xE9F60E34, 0xE16C, 0x4C33, {0xA5, 0xF0, 0xAA, 0x46, 0xDB, 0x99, 0xCA, 0x32}};
const CVGuid CV_SOURCE_SESSION_STATE = {
    0xF0C38807, 0x4D99, 0x4004, {0x8C, 0x00, 0x7C, 0x1E, 0xA1, 0x49, 0x23, 0x5D}};

bool operator==(const CVGuid& a, const CVGuid& b) {
    return a.data1 == b.data1 && a.data2 == b.data2 && a.data3 == b.data3 &&
           std::equal(a.data4, a.data4 + 8, b.data4);
}

namespace {

struct EventKey {
    int eventId;
    CVGuid source;
    bool operator==(const EventKey& other) const {
        return eventId == other.eventId && source == other.source;
    }
};

struct Subscription {
    CVDelegateSubscriber* subscriber;
    EventKey key;
    unsigned long long serial; // tells a live subscription from a new one at a reused address
};

struct Registry {
    std::recursive_mutex lock;
    std::vector<Subscription> subscriptions;
    unsigned long long nextSerial = 1;
    // Keys whose subscriber count changed inside a delivery, announced once it is over.
    std::vector<std::pair<std::thread::id, EventKey>> deferredHooks;

    // Serialises hook calls so that first/last alternate per key. Never taken while `lock` is
    // held by the same thread, so a delivering thread and a subscribing one cannot deadlock.
    std::recursive_mutex hookLock;
    std::vector<EventKey> announced;
    std::atomic<IEventSourceHooks*> hooks{nullptr};
};

// Never destroyed: subscribers that are themselves statics may unsubscribe during exit.
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

thread_local int t_deliveryDepth = 0;

int CountLocked(Registry& registry, const EventKey& key) {
    return static_cast<int>(std::count_if(registry.subscriptions.begin(), registry.subscriptions.end(),
                                          [&](const Subscription& s) { return s.key == key; }));
}

// Brings the announced state of key in line with the registry, calling at most one hook.
void AnnounceChange(const EventKey& key) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::recursive_mutex> hookGuard(registry.hookLock);
    bool present;
    {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        present = CountLocked(registry, key) > 0;
    }
    auto it = std::find(registry.announced.begin(), registry.announced.end(), key);
    bool wasPresent = it != registry.announced.end();
    if (present == wasPresent) return;
    if (present)
        registry.announced.push_back(key);
    else
        registry.announced.erase(it);
    IEventSourceHooks* hooks = registry.hooks.load();
    if (!hooks) return;
    if (present)
        hooks->OnFirstSubscriber(key.eventId, key.source);
    else
        hooks->OnLastSubscriberGone(key.eventId, key.source);
}

void NoteCountChanged(Registry& registry, const EventKey& key) {
    if (t_deliveryDepth > 0) {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        registry.deferredHooks.emplace_back(std::this_thread::get_id(), key);
    } else {
        AnnounceChange(key);
    }
}

void RunDeferredHooks(Registry& registry) {
    std::vector<EventKey> keys;
    {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        auto mine = [](const std::pair<std::thread::id, EventKey>& d) {
            return d.first == std::this_thread::get_id();
        };
        for (const auto& d : registry.deferredHooks)
            if (mine(d)) keys.push_back(d.second);
        auto& d = registry.deferredHooks;
        d.erase(std::remove_if(d.begin(), d.end(), mine), d.end());
    }
    for (const EventKey& key : keys)
        AnnounceChange(key);
}

} // namespace

CVDelegateSubscriber::CVDelegateSubscriber() = default;

CVDelegateSubscriber::~CVDelegateSubscriber() {
    UnSubscribe();
}

int CVDelegateSubscriber::Subscribe(int eventId, const CVGuid* eventSource) {
    if (!eventSource) return -1;
    Registry& registry = TheRegistry();
    EventKey key{eventId, *eventSource};
    {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        for (const Subscription& s : registry.subscriptions)
            if (s.subscriber == this && s.key == key) return 0; // already there: no double delivery
        registry.subscriptions.push_back({this, key, registry.nextSerial++});
    }
    NoteCountChanged(registry, key);
    return 0;
}

void CVDelegateSubscriber::UnSubscribe() {
    Registry& registry = TheRegistry();
    std::vector<EventKey> keys;
    {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        auto& subs = registry.subscriptions;
        auto mine = [this](const Subscription& s) { return s.subscriber == this; };
        for (const Subscription& s : subs)
            if (mine(s)) keys.push_back(s.key);
        subs.erase(std::remove_if(subs.begin(), subs.end(), mine), subs.end());
    }
    for (const EventKey& key : keys)
        NoteCountChanged(registry, key);
}

int PublishEvent(int eventId, const CVGuid* source, int code, const wchar_t* readerName) {
    if (!source) return -1;
    Registry& registry = TheRegistry();
    const EventKey key{eventId, *source};
    const CVEventInfo info{eventId, *source, code, readerName ? readerName : L""};
    int reached = 0;
    {
        std::lock_guard<std::recursive_mutex> guard(registry.lock);
        ++t_deliveryDepth;
        // A handler may change the list; deliver to the subscriptions present at the start that
        // are still present when their turn comes.
        std::vector<unsigned long long> serials;
        for (const Subscription& s : registry.subscriptions)
            if (s.key == key) serials.push_back(s.serial);
        for (unsigned long long serial : serials) {
            auto& subs = registry.subscriptions;
            auto it = std::find_if(subs.begin(), subs.end(),
                                   [serial](const Subscription& s) { return s.serial == serial; });
            if (it == subs.end()) continue;
            ++reached;
            try {
                it->subscriber->HandleEvent(&info);
            } catch (...) {
                // One faulty subscriber must not keep the event from the others.
            }
        }
        --t_deliveryDepth;
    }
    if (t_deliveryDepth == 0) RunDeferredHooks(registry);
    return reached;
}

int CountSubscribers(int eventId, const CVGuid& source) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    return CountLocked(registry, EventKey{eventId, source});
}

void SetEventSourceHooks(IEventSourceHooks* hooks) {
    TheRegistry().hooks.store(hooks);
}
