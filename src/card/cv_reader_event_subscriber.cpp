#include "card/cv_reader_event_subscriber.h"

#include "card/card_log.h"

CVReaderEventSubscriber::CVReaderEventSubscriber(Handler handler, void* owner)
    : m_handler(handler), m_owner(owner) {
    COBLOG(CVLOG_DETAIL, L"CVReaderEventSubscriber Constructor");
}

CVReaderEventSubscriber::~CVReaderEventSubscriber() {
    COBLOG(CVLOG_DETAIL, L"CVReaderEventSubscriber Destructor");
}

void CVReaderEventSubscriber::OnReaderEvent(NV::SMMW::ReaderEventKind kind, const wchar_t* readerName) {
    HandleEvent(kind, readerName);
}

void CVReaderEventSubscriber::HandleEvent(NV::SMMW::ReaderEventKind kind, const wchar_t* readerName) {
    COBLOG(CVLOG_ENTRY, L"CVReaderEventSubscriber::HandleEvent");
    // The module's thread must not see our failures.
    try {
        if (m_handler) m_handler(m_owner, kind, readerName ? readerName : L"");
    } catch (...) {
    }
}
