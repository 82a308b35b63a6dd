// One smart-card reader as seen by one user of the card layer. Copies of a CVReader share one
// CVReaderData: the reader object and the one security-module context that all their
// connections use, counted so that the context is released when the last copy disconnects.
#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "cvpingui_export.h"
#include "card/cv_connection.h"
#include "smmw.h"

struct CVReaderData {
    NV::SMMW::IReader* m_pReader = nullptr;         // may be absent (unknown or empty name)
    NV::SMMW::IController* m_pController = nullptr; // the one that established m_pContext
    NV::SMMW::IContext* m_pContext = nullptr;       // absent while no connection is open
    uint32_t m_nOpenConnections = 0;
};

class CVPINGUI_CLASS CVReader {
  public:
    explicit CVReader(const wchar_t* lpszReaderName);
    // A reader the controller listed (CVReaderList).
    CVReader(const wchar_t* lpszReaderName, NV::SMMW::IReader* reader);
    // A copy shares the reader record and starts disconnected.
    CVReader(const CVReader& src);
    CVReader& operator=(const CVReader& src);
    // A copy still connected gives its connection back.
    ~CVReader();

    const std::wstring& GetReaderName() const { return m_strReaderName; }
    NV::SMMW::ReaderState GetReaderState();

    // Gives the reader's context to cConnection, establishing it for the first connection.
    uint32_t Connect(CVConnection& cConnection);
    // Takes the context from cConnection; the last connection releases it.
    uint32_t Disconnect(CVConnection& cConnection);

  private:
    std::wstring m_strReaderName;
    bool m_bConnected = false;
    std::shared_ptr<CVReaderData> m_pReaderData;
};
