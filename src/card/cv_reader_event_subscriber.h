// Receives the security module's card insertions and removals and hands them to whoever
// registered it. Called on the thread that caused the event: handlers must not block.
#pragma once
#include "smmw.h"

class CVReaderEventSubscriber : public NV::SMMW::IReaderEventSink {
  public:
    using Handler = void (*)(void* owner, NV::SMMW::ReaderEventKind kind, const wchar_t* readerName);

    CVReaderEventSubscriber(Handler handler, void* owner);
    ~CVReaderEventSubscriber() override;
    CVReaderEventSubscriber(const CVReaderEventSubscriber&) = delete;
    CVReaderEventSubscriber& operator=(const CVReaderEventSubscriber&) = delete;

    void OnReaderEvent(NV::SMMW::ReaderEventKind kind, const wchar_t* readerName) override;
    void HandleEvent(NV::SMMW::ReaderEventKind kind, const wchar_t* readerName);

  private:
    Handler m_handler;
    void* m_owner;
};
