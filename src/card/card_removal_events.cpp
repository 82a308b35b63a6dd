#include "card/card_removal_events.h"

#include "card/card_log.h"
#include "card/card_result.h"
#include "card/cv_reader_event_subscriber.h"
#include "card/mw_controller.h"
#include "services/event_bus.h"

#include <mutex>

namespace {

void PublishRemoval(void*, NV::SMMW::ReaderEventKind kind, const wchar_t* readerName) {
    if (kind == NV::SMMW::READER_EVENT_CARD_REMOVED)
        PublishEvent(CV_EVENT_CARD_REMOVED, &CV_SOURCE_CARD_EVENTS, 0, readerName);
}

struct RemovalSource {
    std::mutex lock;
    CVReaderEventSubscriber sink{&PublishRemoval, nullptr};
    NV::SMMW::IController* subscribedTo = nullptr;
};

// Never destroyed: the module may hold the sink until the process ends.
RemovalSource& TheSource() {
    static RemovalSource* source = new RemovalSource;
    return *source;
}

} // namespace

void StartCardRemovalEvents() {
    RemovalSource& source = TheSource();
    std::lock_guard<std::mutex> guard(source.lock);
    if (source.subscribedTo) return;
    NV::SMMW::IController* controller = GetMWController();
    if (!controller) return;
    if (CallModule(CVLOG_ERROR,
                   L"StartCardRemovalEvents : Error while trying to subscribe to reader events: %ls.",
                   [&] { controller->Subscribe(&source.sink); }) == CV_OBJ_API_OK)
        source.subscribedTo = controller;
}

void StopCardRemovalEvents() {
    RemovalSource& source = TheSource();
    std::lock_guard<std::mutex> guard(source.lock);
    NV::SMMW::IController* controller = source.subscribedTo;
    if (!controller) return;
    source.subscribedTo = nullptr;
    CallModule(CVLOG_ERROR,
               L"StopCardRemovalEvents : Error while trying to unsubscribe from reader events: %ls.",
               [&] { controller->Unsubscribe(&source.sink); });
}
