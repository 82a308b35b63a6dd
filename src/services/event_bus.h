// The event service: subscribers register for (event id, source); a publisher delivers an event
// to every current subscriber on the publisher's own thread. Portable; the built-in sources
// (session notifications) live in event_sources_win.cpp.
#pragma once
#include <cstdint>

// Same layout as the Windows GUID.
struct CVGuid {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};
bool operator==(const CVGuid& a, const CVGuid& b);

extern const CVGuid CV_SOURCE_CARD_EVENTS;     // {E9F60E34-E16C-4C33-A5F0-AA46DB99CA32}
extern const CVGuid CV_SOURCE_SESSION_STATE;   // {F0C38807-4D99-4004-8C00-7C1EA149235D}
constexpr int CV_EVENT_SESSION_STATE = 10001;
constexpr int CV_EVENT_CARD_REMOVED = 10002;
constexpr int CV_SESSION_CODE_LOCKING = 10060;
constexpr int CV_SESSION_CODE_LOCKING_2 = 10065;

// What a subscriber receives. readerName is valid only during HandleEvent; never null.
struct CVEventInfo {
    int eventId;
    CVGuid source;
    int code;
    const wchar_t* readerName;
};

class CVDelegateSubscriber {
public:
    CVDelegateSubscriber();
    virtual ~CVDelegateSubscriber();  // unsubscribes, if the derived class has not
    // Called on the publisher's thread. Must not block: post to a window and return.
    virtual void HandleEvent(const CVEventInfo* event) = 0;

    CVDelegateSubscriber(const CVDelegateSubscriber&) = delete;
    CVDelegateSubscriber& operator=(const CVDelegateSubscriber&) = delete;

protected:
    // 0 on success. A subscriber may hold several subscriptions.
    int Subscribe(int eventId, const CVGuid* eventSource);
    // Removes every subscription of this subscriber. When it returns, no delivery to this
    // subscriber is running on another thread, so the subscriber may be destroyed.
    void UnSubscribe();
};

// Delivers one event; returns the number of subscribers reached, -1 for a null source.
int PublishEvent(int eventId, const CVGuid* source, int code, const wchar_t* readerName);

// Number of subscriptions for (eventId, source) right now.
int CountSubscribers(int eventId, const CVGuid& source);

// Told when the first subscriber of (eventId, source) arrives and the last one leaves, on the
// subscribing thread; lets a built-in source start and stop with its audience.
class IEventSourceHooks {
public:
    virtual ~IEventSourceHooks() = default;
    virtual void OnFirstSubscriber(int eventId, const CVGuid& source) = 0;
    virtual void OnLastSubscriberGone(int eventId, const CVGuid& source) = 0;
};
void SetEventSourceHooks(IEventSourceHooks* hooks);
